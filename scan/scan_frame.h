// What every predicate scan has around its compare: the choice of the path, the block loop of the dense path, the walk
// over the selected rows of the sparse path.
#pragma once

#include <string.h>

#include "bitvec/bitvec.h"
#include "frame/tavoc_avx512g.h"
#include "portable/intrinsics.h"

namespace tavo {

// The dense path. Rows is a column read from its first row on, one 512-bit compare after another:
//
//   rows           rows of one compare: 64, 32, 16 or 8
//   rows_behind    next() is called only where at least so many rows follow the block: its loads may reach into them
//   start_block()  before each eight compares
//   next()         bit i: row i of the next `rows` rows qualifies
//   next_exact()   the same, reading nothing past these rows
//   last(n)        the same for the last n rows, n < rows; other bits may be anything
//
// Writes (n + 63) / 64 words, zeros above row n, and returns the rows that qualify.
template <class Rows>
[[gnu::always_inline]] inline ub4 scan_blocks(Rows column, ub8 *bv, ub4 n) noexcept {
    constexpr unsigned compares_per_block = 8, words_per_block = Rows::rows / 8;
    constexpr unsigned compares_per_word = 64 / Rows::rows;
    constexpr ub4 rows_per_block = compares_per_block * Rows::rows;

    const ub4 blocks = n < Rows::rows_behind ? 0 : (n - Rows::rows_behind) / rows_per_block;
    ub8 count = 0;
    ub8 *word = bv;
    for (ub4 block = blocks; block != 0; block--) {
        column.start_block();
        ub8 hits[compares_per_block];
#pragma GCC unroll 8
        for (unsigned i = 0; i < compares_per_block; i++)
            hits[i] = column.next();
#pragma GCC unroll 8
        for (unsigned w = 0; w < words_per_block; w++) {
            ub8 joined = 0;
#pragma GCC unroll 8
            for (unsigned i = 0; i < compares_per_word; i++)
                joined |= hits[w * compares_per_word + i] << i * Rows::rows % 64;
            word[w] = joined;
            count += static_cast<ub8>(__builtin_popcountll(joined));
        }
        word += words_per_block;
    }

    ub4 left = n - blocks * rows_per_block;
    if (left != 0) {
        // Whole compares, then one of the rows that remain; what a block would store as words goes into zeroed ones.
        memset(word, 0, (left + 63) / 64 * 8);
        auto *position = reinterpret_cast<ub1 *>(word);
        while (true) {
            const ub8 hits = left < Rows::rows ? _bzhi_u64(column.last(left), left) : column.next_exact();
            memcpy(position, &hits, Rows::rows / 8);
            count += static_cast<ub8>(__builtin_popcountll(hits));
            if (left <= Rows::rows)
                break;
            left -= Rows::rows;
            position += Rows::rows / 8;
        }
    }
    return static_cast<ub4>(count);
}

// Does this call ask for the sparse path?
[[gnu::always_inline]] inline bool walks_selection(const tavo_env *env) noexcept {
    return env != nullptr && env->sel_bits != nullptr && (env->flags & TAVO_ENV_SPARSE) != 0;
}

// The sparse path: touches only the rows that env.sel_bits names, in ascending order. Column reads single rows:
//
//   qualifies(row)
//   address(row)    where it reads the row, to have that on its way in a long column; none if only the walk can tell
//
// The row count is that of the source, runs of a run-length column are ignored.
template <class Column>
[[gnu::always_inline]] inline ub4 scan_selected(tavo_vec *res, const tavo_vec *src, tavo_env *env, Column column,
                                                ub1 selected_flag = TAVO_RESULT_SCAN_SELECTED) noexcept {
    env->result_flags |= selected_flag;
    const ub4 n = TAVO_VEC_SIZE(src);
    ub8 *bv = res->bits;
    memset(bv, 0, (static_cast<ub8>(n) + 63) / 64 * 8);

    ub4 count = 0;
    // Entering and leaving the iterator costs as much as a few rows do, so a batch is more than the eight that are
    // visited at a time.
    constexpr unsigned batch = 64;
    ub4 rows[batch];
    tavo_bit_iter selected;
    tavo_lbiwv_ictx_ini2_dydi(&selected, env->sel_bits, n, 0, 0);
    ub8 got;
    do {
        got = tavo_lbiwvones_dydi(&selected, rows, batch);
        if constexpr (requires { column.address(n); }) {
            const bool is_long = column.address(n) - column.address(0) > 4 << 20; // more than a second-level cache
            // In a long column the lines of a whole batch are on their way before the first is needed.
            for (ub8 i = 0; is_long && i < got; i++) {
                __builtin_prefetch(column.address(rows[i]));
                __builtin_prefetch(bv + rows[i] / 64, 1);
            }
        }
#pragma GCC unroll 8
        for (ub8 i = 0; i < got; i++) {
            const ub4 row = rows[i];
            const ub8 hit = column.qualifies(row);
            count += static_cast<ub4>(hit);
            bv[row / 64] |= hit << row % 64;
        }
    } while (got == batch);
    return finish_selected_scan(res, src, n, count);
}

// The dense path from the prologue to the finish: scan(data, bv, n) writes the bits of n rows, or runs, and returns
// their count.
template <class Scan>
[[gnu::always_inline]] inline ub4 scan_all(tavo_vec *res, tavo_vec *src, tavo_env *env, const kernel_texts &texts,
                                           Scan scan, ub1 selected_flag = TAVO_RESULT_SCAN_SELECTED) noexcept {
    const scan_target target = target_of_scan(res, src);
    const ub1 *data = column_data(src, env, texts);
    return finish_scan(res, src, env, target, scan(data, target.bv, target.n), selected_flag);
}

} // namespace tavo
