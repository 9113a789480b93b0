// A member of the scans as the dispatch table has it, the plain meaning of its operator, and one call of it.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <compare>
#include <optional>
#include <string>
#include <vector>

#include "frame/dispatch_table.h"
#include "frame/tavo.h"
#include "tests/kit/codes.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

// What a row holds: a code or a number, and where the member has one, its tz. Order goes by the number first. A dynp
// element's length is its tz plus one.
struct scan_value {
    ub8 number;
    int tz;
    scan_value(ub8 of = 0, int tz_of = 0) : number(of), tz(tz_of) {}
    auto operator<=>(const scan_value &) const = default;
};

inline bool in_set(ub8 code, ub8 choice) { return ((code + 1) * (2 * choice + 0x9e3779b97f4a7c15) >> 33) % 8 < 3; }

// The bit vector of a set, for the codes of a column alone: it ends at an unreadable page behind the word of the
// largest of them. At 24 and 32 bits most of it has never been touched.
class code_set {
public:
    code_set(unsigned width, const tavo_vec &column, ub8 choice) {
        const ub4 rows = (column.enc->flags & TAVO_RLE) != 0 ? column.enc->run_count : column.size;
        const auto codes = unpack_codes(static_cast<const ub1 *>(column.data), rows, width);
        const ub8 top = codes.empty() ? 0 : *std::max_element(codes.begin(), codes.end());
        constexpr std::size_t page = 4096;
        const std::size_t size = (top / 64 + 1) * 8, room = (size + page - 1) / page * page;
        map_size_ = room + page;
        map_ = mmap(nullptr, map_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (map_ == MAP_FAILED || mprotect(static_cast<ub1 *>(map_) + room, page, PROT_NONE) != 0)
            std::abort();
        bits_ = reinterpret_cast<ub8 *>(static_cast<ub1 *>(map_) + room - size);
        for (ub8 code : codes)
            if (in_set(code, choice))
                bits_[code / 64] |= 1ull << code % 64;
    }
    code_set(const code_set &) = delete;
    ~code_set() { munmap(map_, map_size_); }
    ub8 *bits() const { return bits_; }

private:
    void *map_;
    std::size_t map_size_;
    ub8 *bits_;
};

struct scan_member {
    unsigned operation, width;
    bool second; // _null or _tz
    unsigned encoding = TAVO_CLASS_DICT;
    unsigned width_bits = width; // of a fixed column's elements
    bool common_tz = false;      // one tz for all rows

    unsigned index() const { return dispatch_index(operation, encoding, width_code(width), second); }
    bool is_range() const { return operation >= TAVO_OP_GT_LT && operation <= TAVO_OP_GE_LE; }
    bool is_set() const { return operation == TAVO_OP_SET; } // of codes, chosen by the constant lo
    int selected_flag() const { return is_set() ? TAVO_RESULT_SET_SELECTED : TAVO_RESULT_SCAN_SELECTED; }
    bool is_dict() const { return encoding == TAVO_CLASS_DICT; }
    bool is_dynp() const { return encoding == TAVO_CLASS_DYNP; }
    bool has_tz() const { return second && !is_dict() && width != 8; }
    unsigned control_bits() const { return width == 16 ? 1 : width == 32 ? 2 : 4; }
    std::string name() const {
        return tavo_dispatch_func_names.name[index()] + (width_bits != width ? "/" + std::to_string(width_bits) : "") +
               (common_tz ? "/common tz" : "");
    }

    bool qualifies(scan_value x, scan_value lo, scan_value hi) const {
        if (is_set())
            return in_set(x.number, lo.number);
        if (is_dict() && second && x.number == 0)
            return false;
        if (!has_tz())
            x.tz = lo.tz = hi.tz = 0;
        switch (operation) {
        case TAVO_OP_EQ: return x == lo;
        case TAVO_OP_LT: return x < lo;
        case TAVO_OP_GT: return x > lo;
        case TAVO_OP_LE: return x <= lo;
        case TAVO_OP_GE: return x >= lo;
        case TAVO_OP_NE: return x != lo;
        case TAVO_OP_GT_LT: return x > lo && x < hi;
        case TAVO_OP_GT_LE: return x > lo && x <= hi;
        case TAVO_OP_GE_LT: return x >= lo && x < hi;
        default: return x >= lo && x <= hi;
        }
    }

    // Constants are handed over in exactly the bytes that the width names: in the processor's order for codes, as the
    // column stores them for numbers, with noise behind a narrow one. A tz byte is there for those that read it alone.
    std::vector<ub1> constant_bytes(ub8 number) const {
        const std::size_t bytes = width == 8 ? 1 : width == 16 ? 2 : width == 64 ? 8 : 4;
        std::vector<ub1> out(bytes, 0x9d);
        if (is_dict())
            std::memcpy(out.data(), &number, bytes);
        else
            for (unsigned i = 0; i < width_bits / 8; i++)
                out[i] = static_cast<ub1>(number >> (width_bits - 8 - 8 * i));
        return out;
    }
    ub4 operator()(tavo_vec *res, tavo_vec *src, scan_value lo, scan_value hi, tavo_env *env) const {
        if (is_set()) {
            const code_set set(width, *src, lo.number);
            tavo_vec set_vec{};
            set_vec.bits = set.bits();
            return tavo_global_specialized_ctx.dispatch_table[index()].scan(res, src, &set_vec, env);
        }
        const guarded lo_data(constant_bytes(lo.number)), hi_data(constant_bytes(hi.number));
        std::optional<guarded> lo_tz, hi_tz;
        tavo_vec lo_vec{}, hi_vec{};
        lo_vec.data = lo_data.data();
        hi_vec.data = hi_data.data();
        if (has_tz()) {
            lo_vec.lengths = lo_tz.emplace(1, guard::behind, static_cast<ub1>(lo.tz)).as<ub2>();
            hi_vec.lengths = hi_tz.emplace(1, guard::behind, static_cast<ub1>(hi.tz)).as<ub2>();
        }
        const tavo_kernel_slot slot = tavo_global_specialized_ctx.dispatch_table[index()];
        return is_range() ? slot.range_scan(res, src, &lo_vec, &hi_vec, env) : slot.scan(res, src, &lo_vec, env);
    }

    // Rows that favour the ends of the range, where comparisons go wrong, and so numbers that are equal.
    std::vector<scan_value> random_values(std::size_t n, std::mt19937_64 &rng) const {
        std::vector<scan_value> values;
        const int one_tz = static_cast<int>(rng() % 256) - 128;
        for (ub8 code : random_codes(n, is_dict() ? width : width_bits, rng)) {
            if (is_dynp()) { // the bytes behind a length that may go on over zeros
                const int cut = static_cast<int>(rng() % (width / 8));
                values.push_back({code >> 8 * cut << 8 * cut, static_cast<int>(width) / 8 - 1 - cut});
            } else {
                values.push_back({code, common_tz ? one_tz : static_cast<int>(rng() % (1u << control_bits()))});
            }
        }
        return values;
    }
};

inline std::vector<scan_member> all_dict_members() {
    std::vector<scan_member> members;
    for (unsigned operation = TAVO_OP_EQ; operation <= TAVO_OP_GE_LE; operation++)
        for (unsigned width : code_widths())
            for (bool nullable : {false, true})
                members.push_back({operation, width, nullable});
    return members;
}
// Fixed at every width of its elements, with a tz a row and with one for all; dynp.
inline std::vector<scan_member> all_number_members() {
    std::vector<scan_member> members;
    for (unsigned operation = TAVO_OP_EQ; operation <= TAVO_OP_GE_LE; operation++)
        for (bool tz : {false, true}) {
            for (unsigned bits : {8u, 16u, 24u, 32u, 40u, 48u, 56u, 64u}) {
                const unsigned width = bits <= 16 ? bits : bits <= 32 ? 32 : 64;
                members.push_back({operation, width, tz, TAVO_CLASS_FIXED, bits});
                if (tz && width != 8)
                    members.push_back({operation, width, tz, TAVO_CLASS_FIXED, bits, true});
            }
            for (unsigned width : {16u, 32u, 64u})
                members.push_back({operation, width, tz, TAVO_CLASS_DYNP, width});
        }
    return members;
}
inline std::vector<scan_member> all_set_members() {
    std::vector<scan_member> members;
    for (unsigned width : code_widths())
        if (width != 64)
            members.push_back({TAVO_OP_SET, width, false});
    return members;
}
inline std::vector<scan_member> all_scan_members() {
    auto members = all_dict_members();
    for (const scan_member &member : all_number_members())
        members.push_back(member);
    for (const scan_member &member : all_set_members())
        members.push_back(member);
    return members;
}

// Bits of the rows for which `selected` holds, in whole words, zeros above.
template <class F>
std::vector<ub8> bits_where(ub4 rows, F &&selected) {
    std::vector<ub8> words((rows + 63) / 64, 0);
    for (ub4 r = 0; r < rows; r++)
        if (selected(r))
            words[r / 64] |= 1ull << r % 64;
    return words;
}
inline ub4 population(const std::vector<ub8> &words) {
    ub4 n = 0;
    for (ub8 w : words)
        n += static_cast<ub4>(std::popcount(w));
    return n;
}

// A column between unreadable pages. Behind packed codes 3 bytes may be read; behind the numbers of a narrow fixed
// column, by a walk of selected rows, what is missing to its kernel's width; nothing behind dynp elements and fields of
// any kind.
struct scan_column {
    tavo_enc_ctx enc{};
    tavo_vec src{};
    guarded data, lengths;

    scan_column(const std::vector<ub8> &codes, unsigned width, guard side = guard::behind)
        : data(pack_codes(codes, width, 3), side), lengths(std::size_t{0}) {
        fill_in(TAVO_DICT, codes.size());
    }
    scan_column(const scan_member &member, const std::vector<scan_value> &values, guard side = guard::behind,
                bool walked = true)
        : data(data_bytes(member, values, walked), side), lengths(field_bytes(member, values), side) {
        fill_in((member.is_dict() ? TAVO_DICT : TAVO_FIXED) | (member.common_tz ? TAVO_TZ : 0), values.size());
        enc.width_bits = member.width_bits | 0xab00; // the low byte counts
        if (member.is_dynp() || member.has_tz())
            src.lengths = lengths.as<ub2>();
    }

private:
    void fill_in(ub4 flags, std::size_t rows) {
        enc.flags = flags;
        src.enc = &enc;
        src.data = data.data();
        src.size = static_cast<ub4>(rows);
    }
    static std::vector<ub1> data_bytes(const scan_member &member, const std::vector<scan_value> &values, bool walked) {
        std::vector<ub8> codes;
        std::vector<ub1> bytes;
        for (const scan_value &value : values) {
            codes.push_back(value.number);
            for (int i = 0; i <= value.tz && member.is_dynp(); i++)
                bytes.push_back(static_cast<ub1>(value.number >> (member.width - 8 - 8 * static_cast<unsigned>(i))));
        }
        if (member.is_dynp())
            return bytes;
        return pack_codes(codes, member.width_bits,
                          member.is_dict() ? 3 : walked * (member.width - member.width_bits) / 8);
    }
    static std::vector<ub1> field_bytes(const scan_member &member, const std::vector<scan_value> &values) {
        if (member.common_tz)
            return {static_cast<ub1>(values.empty() ? 0 : values[0].tz)};
        std::vector<ub8> fields;
        for (const scan_value &value : values)
            fields.push_back(static_cast<ub8>(value.tz));
        return pack_codes(fields, member.control_bits());
    }
};

struct scan_result {
    guarded words;
    tavo_vec res{};

    explicit scan_result(ub4 rows) : words((rows + 63) / 64 * 8) {
        res.bits = words.as<ub8>();
        res.size = rows;
        res.count = 0xdeadbeef;
    }
    std::vector<ub8> bits() const { return {words.as<ub8>(), words.as<ub8>() + words.size() / 8}; }
};

// A dense scan without selections, against the plain meaning row by row.
inline void expect_agreement(const scan_member &member, const std::vector<scan_value> &values, scan_value lo,
                             scan_value hi, guard side) {
    scan_column column(member, values, side, false);
    scan_result result(column.src.size);
    const ub4 status = member(&result.res, &column.src, lo, hi, nullptr);
    const auto expected = bits_where(column.src.size, [&](ub4 r) { return member.qualifies(values[r], lo, hi); });
    ASSERT_EQ(result.bits(), expected) << member.name() << " rows " << values.size() << " constants " << lo.number
                                       << " tz " << lo.tz << ", " << hi.number << " tz " << hi.tz;
    ASSERT_EQ(result.res.count, population(expected)) << member.name();
    ASSERT_EQ(status, population(expected) == 0 ? TAVO_NONE_SELECTED : TAVO_DONE) << member.name();
}

} // namespace tavo::test
