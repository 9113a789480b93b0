// Row-major tables and their readers the plain way: rows of strings, laid out by hand, and what a gather is to write.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"

namespace tavo::test {

using strings = std::vector<std::string>;
using string_rows = std::vector<strings>; // by row, by column

inline std::string random_string(std::size_t length, std::mt19937_64 &rng) {
    std::string s(length, 0);
    for (char &c : s)
        c = static_cast<char>(rng());
    return s;
}
// Lengths on both sides of every register's width; now and then a longer one.
inline std::size_t random_length(std::mt19937_64 &rng) {
    static const std::size_t odd[] = {0, 1, 15, 16, 17, 31, 32, 33, 63, 64, 65, 200};
    return rng() % 4 == 0 ? odd[rng() % std::size(odd)] : rng() % 12;
}
template <class T>
void append(std::string &to, T value) {
    to.append(reinterpret_cast<const char *>(&value), sizeof value);
}
inline void append_record(std::string &to, std::size_t length, const void *address) {
    append(to, static_cast<ub2>(length));
    append(to, address);
}
inline std::span<const ub1> bytes_of(const std::string &s) {
    return {reinterpret_cast<const ub1 *>(s.data()), s.size()};
}

// Partitions of rows in one of the table forms. Every table ends at an unreadable page, and so do elements that are
// referred to one by one.
struct row_table {
    std::vector<string_rows> parts;
    std::vector<guarded> memory;
    std::vector<ub1 *> ref_tables;
    std::vector<ub4 *> cla_tables;
    std::vector<ub8> part_bases;
    std::vector<ub1> col_bytes, col_offsets;
    tavo_gather_spec shape{};

    // `widths` of a fixed table's columns; the elements have them already.
    row_table(ub4 form, std::vector<string_rows> of_parts, ub4 cols, std::vector<ub1> widths = {},
              bool own_pages = false, ub1 gap = 0)
        : parts(std::move(of_parts)), col_bytes(std::move(widths)) {
        shape.flags = form;
        shape.row_cols = static_cast<ub2>(cols);
        unsigned row_bytes = gap;
        for (ub1 width : col_bytes) {
            col_offsets.push_back(static_cast<ub1>(row_bytes));
            row_bytes += width + gap;
        }
        shape.row_bytes = static_cast<ub2>(row_bytes);
        for (const string_rows &rows : parts) {
            std::string table, bytes;
            std::vector<std::size_t> starts;
            if (form == TAVO_TABLE_CLA)
                append(table, ub4{0});
            for (const strings &row : rows)
                for (std::size_t c = 0; c < row.size(); c++) {
                    if (form == TAVO_TABLE_FIXED)
                        bytes.append(gap, '\x77');
                    bytes += row[c];
                    if (form == TAVO_TABLE_CLA)
                        append(table, static_cast<ub4>(bytes.size()));
                    if (form == TAVO_TABLE_FIXED && c + 1 == row.size())
                        bytes.append(gap, '\x77');
                }
            memory.emplace_back(bytes_of(bytes));
            part_bases.push_back(reinterpret_cast<ub8>(memory.back().data()));
            if (form == TAVO_TABLE_REFERENCE) {
                const ub1 *element = memory.back().data();
                for (const strings &row : rows)
                    for (const std::string &e : row) {
                        const ub1 *at = element;
                        element += e.size();
                        if (own_pages) {
                            memory.emplace_back(bytes_of(e));
                            at = memory.back().data();
                        }
                        append_record(table, e.size(), at);
                    }
            }
            memory.emplace_back(bytes_of(table));
            ref_tables.push_back(memory.back().data());
            cla_tables.push_back(memory.back().as<ub4>());
        }
        shape.col_bytes = col_bytes.data();
        shape.col_offsets = col_offsets.data();
        shape.ref_tables = ref_tables.data();
        shape.cla_tables = cla_tables.data();
        shape.part_bases = part_bases.data();
        shape.part_low = 64;
        shape.part_top = 63;
    }
    row_table(const row_table &) = delete;
};

// A source of codes.
enum class code_source { u8, u16, u32, u64, bytes_3, bytes_7, pairs };
inline constexpr code_source code_sources[] = {code_source::u8,   code_source::u16,     code_source::u32,
                                               code_source::u64,  code_source::bytes_3, code_source::bytes_7,
                                               code_source::pairs};
inline unsigned code_bytes(code_source form) {
    switch (form) {
    case code_source::u8: return 1;
    case code_source::u16: return 2;
    case code_source::bytes_3: return 3;
    case code_source::u32: return 4;
    case code_source::bytes_7: return 7;
    default: return 8;
    }
}
struct code_column {
    guarded data;
    tavo_enc_ctx enc{};
    tavo_vec vec{};

    code_column(code_source form, const std::vector<ub8> &codes) : data(std::size_t{0}) {
        std::string bytes;
        for (ub8 code : codes) {
            if (form == code_source::pairs)
                append(bytes, ~code);
            bytes.append(reinterpret_cast<const char *>(&code), code_bytes(form));
        }
        data = guarded(bytes_of(bytes));
        enc.flags = form == code_source::pairs ? TAVO_RECORD_CODE : TAVO_FIXED;
        enc.width_bits = form == code_source::pairs ? 0 : 8 * code_bytes(form);
        vec.enc = &enc;
        vec.data = data.data();
        vec.size = static_cast<ub4>(codes.size());
    }
    code_column(const code_column &) = delete;
};

// The room that an element takes in each layout.
inline std::size_t room_needed(ub4 layout, std::size_t length) {
    switch (layout) {
    case TAVO_LV: return length + 2;
    case TAVO_LP_SEP: return 8;
    case TAVO_LP: return 10;
    default: return length;
    }
}

// An output of exactly this much room, and lengths for exactly as many elements.
struct row_output {
    ub4 layout;
    guarded data, lengths;
    tavo_enc_ctx enc{};
    tavo_vec vec{};

    row_output(ub4 of_layout, std::size_t bytes, std::size_t elements)
        : layout(of_layout), data(bytes),
          lengths(of_layout == TAVO_LV_SEP || of_layout == TAVO_LP_SEP ? 2 * elements : 0) {
        enc.flags = layout;
        vec.enc = &enc;
        vec.data = data.data();
        vec.lengths = lengths.as<ub2>();
        vec.byte_size = bytes;
    }
    // The first n elements, taken apart by the layout's rule; `lengths_of` a fixed output's. `used` becomes the bytes
    // that they take.
    strings elements(std::size_t n, const strings &expected, std::size_t &used) const {
        strings out;
        const ub1 *p = data.data();
        for (std::size_t i = 0; i < n; i++) {
            ub2 length = static_cast<ub2>(expected[i].size());
            const ub1 *bytes = p;
            if (layout == TAVO_LP || layout == TAVO_LV)
                std::memcpy(&length, p, 2);
            else if (layout != TAVO_FIXED)
                std::memcpy(&length, lengths.data() + 2 * i, 2);
            if (layout == TAVO_LP || layout == TAVO_LP_SEP)
                std::memcpy(&bytes, layout == TAVO_LP ? p + 2 : p, 8);
            if (layout == TAVO_LV)
                bytes += 2;
            out.emplace_back(reinterpret_cast<const char *>(bytes), length);
            p += room_needed(layout, length);
        }
        used = static_cast<std::size_t>(p - data.data());
        return out;
    }
    bool untouched_from(std::size_t used, std::size_t elements) const {
        for (std::size_t i = used; i < data.size(); i++)
            if (data.data()[i] != 0xa5)
                return false;
        for (std::size_t i = 2 * elements; i < lengths.size(); i++)
            if (lengths.data()[i] != 0xa5)
                return false;
        return true;
    }
};

} // namespace tavo::test
