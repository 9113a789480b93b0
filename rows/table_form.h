// The three forms of a row-major table: how the elements of a row that has been found are reached.
//
//   one(places, k, col)        the element of column `col` in row k of the block
//   run(batch, at, places, k, first, n)    the elements of columns first to first + n - 1, into the batch from `at` on
//   fetch(places, k, first, n)             fetches what one() reads of them
#pragma once

#include "rows/element_batch.h"
#include "rows/row_places.h"

namespace tavo {

struct reference_table {
    static constexpr bool fetches_ahead = true;
    static constexpr unsigned entry_bytes = lp_elements::record_bytes;
    row_finder rows;

    reference_table(row_codes codes, const tavo_gather_spec *shape, ub4 row_cols) noexcept
        : rows(codes, shape, shape->ref_tables, ub8{row_cols} * entry_bytes) {}

    [[gnu::always_inline]] static const ub1 *record(const row_places &places, ub4 k, ub8 col) noexcept {
        return reinterpret_cast<const ub1 *>(places.at[k] + col * entry_bytes);
    }
    [[gnu::always_inline]] element one(const row_places &places, ub4 k, ub8 col) const noexcept {
        return lp_elements(nullptr, record(places, k, col))(0);
    }
    [[gnu::always_inline]] void run(element_batch &batch, ub4 at, const row_places &places, ub4 k, ub8 first,
                                    ub4 n) const noexcept {
        read_records(batch, at, record(places, k, first), n);
    }
    [[gnu::always_inline]] static void fetch(const row_places &places, ub4 k, ub8 first, ub4 n) noexcept {
        const ub1 *records = record(places, k, first);
        const ub4 bytes = (n < 25 ? n : 25) * entry_bytes; // the rest follows by itself
        __builtin_prefetch(records);
        for (ub4 line = 64; line < bytes; line += 64)
            __builtin_prefetch(records + line);
    }
};

struct cla_table {
    static constexpr bool fetches_ahead = false;
    row_finder rows;
    const ub8 *bases;

    cla_table(row_codes codes, const tavo_gather_spec *shape, ub4 row_cols) noexcept
        : rows(codes, shape, shape->cla_tables, ub8{row_cols} * sizeof(ub4)), bases(shape->part_bases) {}

    [[gnu::always_inline]] static const ub1 *entry(const row_places &places, ub4 k, ub8 col) noexcept {
        return reinterpret_cast<const ub1 *>(places.at[k] + col * sizeof(ub4));
    }
    [[gnu::always_inline]] ub8 base(const row_places &places, ub4 k) const noexcept {
        return bases[rows.has_parts() ? places.part[k] : 0];
    }
    // Where `cols` elements lie together, and their bytes in all.
    [[gnu::always_inline]] element together(const row_places &places, ub4 k, ub8 col, ub8 cols) const noexcept {
        ub4 start, end;
        memcpy(&start, entry(places, k, col), sizeof start);
        memcpy(&end, entry(places, k, col + cols), sizeof end);
        return {reinterpret_cast<const ub1 *>(base(places, k) + start), end - start};
    }
    [[gnu::always_inline]] element one(const row_places &places, ub4 k, ub8 col) const noexcept {
        return together(places, k, col, 1);
    }
    [[gnu::always_inline]] void run(element_batch &batch, ub4 at, const row_places &places, ub4 k, ub8 first,
                                    ub4 n) const noexcept {
        const ub1 *from = entry(places, k, first);
        for (ub4 i = 0; i < n; i += 16, from += 64) {
            const auto there = static_cast<__mmask16>(_bzhi_u32(0xffff, n - i));
            const __m512i start = _mm512_maskz_loadu_epi32(there, from),
                          end = _mm512_maskz_loadu_epi32(there, from + sizeof(ub4));
            batch.set_addresses(at + i, base(places, k), start);
            _mm512_storeu_si512(batch.length + at + i, _mm512_sub_epi32(end, start));
        }
    }
};

struct fixed_table {
    static constexpr bool fetches_ahead = false;
    row_finder rows;
    const ub1 *col_bytes, *col_offsets;

    fixed_table(row_codes codes, const tavo_gather_spec *shape, ub4) noexcept
        : rows(codes, shape, shape->part_bases, shape->row_bytes), col_bytes(shape->col_bytes),
          col_offsets(shape->col_offsets) {}

    [[gnu::always_inline]] element one(const row_places &places, ub4 k, ub8 col) const noexcept {
        return {reinterpret_cast<const ub1 *>(places.at[k] + col_offsets[col]), col_bytes[col]};
    }
    [[gnu::always_inline]] void run(element_batch &batch, ub4 at, const row_places &places, ub4 k, ub8 first,
                                    ub4 n) const noexcept {
        for (ub4 i = 0; i < n; i += 16) {
            const auto there = static_cast<__mmask16>(_bzhi_u32(0xffff, n - i));
            const auto numbers = [&](const ub1 *array) {
                return _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(there, array + first + i));
            };
            batch.set_addresses(at + i, places.at[k], numbers(col_offsets));
            _mm512_storeu_si512(batch.length + at + i, numbers(col_bytes));
        }
    }
};

} // namespace tavo
