// A column of random elements in any of the forms that column hashing reads, beside the elements as plain strings. All
// memory ends at an unreadable page.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

enum class column_form { fixed, packed_one_len, packed_cla, codes_one_len, codes_cla, lv_sep, lv, lp_sep, lp };
inline constexpr column_form column_forms[] = {
    column_form::fixed,     column_form::packed_one_len, column_form::packed_cla, column_form::codes_one_len,
    column_form::codes_cla, column_form::lv_sep,         column_form::lv,         column_form::lp_sep,
    column_form::lp};

class element_column {
public:
    // `width`: bytes of a fixed element, bits of a packed code.
    element_column(column_form form, ub4 rows, unsigned width, std::mt19937_64 &rng) {
        vec.enc = &enc;
        vec.size = rows;
        switch (form) {
        case column_form::fixed:
            enc.flags = TAVO_FIXED | TAVO_PACKED_KEYS | TAVO_DICT | TAVO_LP; // the first form counts
            enc.width_bits = width * 8;
            for (ub4 row = 0; row < rows; row++)
                elements.push_back(random_bytes(width, rng));
            vec.data = keep(joined(elements));
            break;
        case column_form::packed_one_len:
        case column_form::packed_cla:
        case column_form::codes_one_len:
        case column_form::codes_cla: {
            const bool packed = form == column_form::packed_one_len || form == column_form::packed_cla;
            const bool cla = form == column_form::packed_cla || form == column_form::codes_cla;
            const ub4 symbol_count = packed && width < 9 ? 1u << width : 300;
            std::vector<std::string> symbols;
            for (ub4 s = 0; s < symbol_count; s++)
                symbols.push_back(random_bytes(cla ? rng() % 12 : 5, rng));
            std::vector<ub8> codes;
            for (ub4 row = 0; row < rows; row++) {
                codes.push_back(rng() % symbol_count);
                elements.push_back(symbols[codes.back()]);
            }
            enc.symbols = reinterpret_cast<ub8>(keep(joined(symbols)));
            if (cla) {
                std::vector<ub4> ends = {0};
                for (const std::string &s : symbols)
                    ends.push_back(__builtin_bswap32(__builtin_bswap32(ends.back()) + static_cast<ub4>(s.size())));
                enc.cla = static_cast<ub4 *>(keep_array(ends));
                enc.dict_kind = TAVO_DICT_CLA;
            } else {
                enc.symbol_len = static_cast<ub2 *>(keep_array(std::vector<ub2>{__builtin_bswap16(5)}));
            }
            if (packed) {
                enc.flags = TAVO_PACKED_KEYS | TAVO_DICT;
                enc.width_bits = width;
                std::vector<ub1> stream = pack_codes(codes, width, 3);
                vec.data = keep(std::string(stream.begin(), stream.end()));
            } else {
                enc.flags = TAVO_DICT;
                vec.data = keep_array(std::vector<ub4>(codes.begin(), codes.end()));
            }
            break;
        }
        case column_form::lv_sep:
            enc.flags = TAVO_LV_SEP;
            draw(rows, rng);
            vec.data = keep(joined(elements));
            vec.lengths = lengths();
            break;
        case column_form::lv: {
            enc.flags = TAVO_LV;
            draw(rows, rng);
            std::string bytes;
            for (const std::string &e : elements) {
                append(bytes, static_cast<ub2>(e.size()));
                bytes += e;
            }
            vec.data = keep(bytes);
            break;
        }
        case column_form::lp_sep:
        case column_form::lp: {
            enc.flags = form == column_form::lp ? TAVO_LP : TAVO_LP_SEP;
            draw(rows, rng);
            std::string records;
            for (const std::string &e : elements) {
                if (form == column_form::lp)
                    append(records, static_cast<ub2>(e.size()));
                append(records, reinterpret_cast<ub8>(keep_small(e)));
            }
            vec.data = keep(records);
            if (form == column_form::lp_sep)
                vec.lengths = lengths();
            break;
        }
        }
    }
    element_column(const element_column &) = delete;

    std::vector<std::string> elements;
    tavo_enc_ctx enc{};
    tavo_vec vec{};

private:
    static std::string random_bytes(std::size_t size, std::mt19937_64 &rng) {
        std::string s(size, 0);
        for (char &c : s)
            c = static_cast<char>(rng());
        return s;
    }
    static std::string joined(const std::vector<std::string> &parts) {
        std::string all;
        for (const std::string &p : parts)
            all += p;
        return all;
    }
    template <class T>
    static void append(std::string &to, T value) {
        to.append(reinterpret_cast<const char *>(&value), sizeof value);
    }
    void draw(ub4 rows, std::mt19937_64 &rng) {
        for (ub4 row = 0; row < rows; row++)
            elements.push_back(random_bytes(rng() % 8 == 0 ? rng() % 400 : rng() % 9, rng));
    }
    ub2 *lengths() {
        std::vector<ub2> all;
        for (const std::string &e : elements)
            all.push_back(static_cast<ub2>(e.size()));
        return static_cast<ub2 *>(keep_array(all));
    }
    void *keep(const std::string &bytes) {
        memory_.emplace_back(std::span(reinterpret_cast<const ub1 *>(bytes.data()), bytes.size()));
        return memory_.back().data();
    }
    template <class T>
    void *keep_array(const std::vector<T> &values) {
        return keep(std::string(reinterpret_cast<const char *>(values.data()), values.size() * sizeof(T)));
    }
    const void *keep_small(const std::string &bytes) {
        small_.push_back(std::make_unique<std::string>(bytes));
        return small_.back()->data();
    }

    std::vector<guarded> memory_;
    std::vector<std::unique_ptr<std::string>> small_;
};

// A hash that every byte, the length and the seed go into.
inline ub8 test_hash(const void *data, ub8 length, ub8 seed) {
    ub8 h = seed * 0x9e3779b97f4a7c15 + length;
    for (ub8 i = 0; i < length; i++)
        h = (h ^ static_cast<const ub1 *>(data)[i]) * 0x100000001b3 + (h >> 29);
    return h ^ h >> 32;
}

} // namespace tavo::test
