// The smallest and the largest code of the selected rows: the one text of 44 kernels, one for each (code width, null
// rule). Codes are assigned in the order of their symbols, so these two name the smallest and the largest value.
//
//   source   codes of W bits, any alignment; src.enc.symbol_count is one above any code. A code that isn't below it is
//            folded like any other
//   rows     sel_bits from resume_row on, else all of ones_vec, else all rows from resume_row on
//   null     a _null member passes over rows of code 0
//   mode     TAVO_MINMAX_LOW: only the smallest code is wanted, TAVO_MINMAX_HIGH: only the largest; else both
//   result   TAVO_DONE with the pair (ub4 smallest, ub4 largest) at res.data; TAVO_NONE_SELECTED if no row contributed,
//            with the pair left alone
//
// A walk along a selection ends early once it has seen the best values that the mode allows: the half of the pair that
// isn't wanted is then no extreme of the rows. A range of rows and a run-length column are always read to their end.
//
// resume_row moves behind the last row or list entry. It stays where it was if a list ended early, and if no row of a
// range or a selection contributed. A run-length column sets res.count to 2 or 0 and keeps run_index and run_end. After
// an early end of a selection resume_row is 32 rows a block behind the first, and nobody goes on from there. A
// dictionary has at most 2^31 symbols. Codes are read up to 3 bytes past the last one, and not at all where a block of
// 64 rows has none selected.
#pragma once

#include "aggregate/fold_codes.h"
#include "aggregate/minmax_kernels.h"
#include "bitvec/bitvec.h"
#include "decode/code_block.h"
#include "decode/run_cursor.h"
#include "frame/tavoc_avx512g.h"

namespace tavo {

// Blocks of a bit vector that have a selected row: their numbers, in batches, so that a walk can fetch codes ahead.
class selected_block_list {
public:
    static constexpr unsigned capacity = 256;

    [[gnu::always_inline]] selected_block_list(const ub1 *bits, ub8 blocks) noexcept : bits(bits), blocks(blocks) {}

    // Takes the next batch; false if no block is left.
    [[gnu::always_inline]] bool next() noexcept {
        const __m512i lanes = _mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7);
        size = 0;
        while (scanned < blocks && size + 8 <= capacity) {
            const ub8 left = blocks - scanned;
            const auto words = static_cast<__mmask8>(_bzhi_u32(0xff, static_cast<ub4>(std::min<ub8>(left, 8))));
            const __m512i selected = _mm512_maskz_loadu_epi64(words, bits + 8 * scanned);
            const __mmask8 any = _mm512_test_epi64_mask(selected, selected);
            const __m512i numbers = _mm512_add_epi64(_mm512_set1_epi64(static_cast<long long>(scanned)), lanes);
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(number + size),
                                _mm512_cvtepi64_epi32(_mm512_maskz_compress_epi64(any, numbers)));
            size += static_cast<unsigned>(__builtin_popcount(any));
            scanned += 8;
        }
        return size != 0;
    }
    [[gnu::always_inline]] ub8 word(unsigned i) const noexcept {
        ub8 selected;
        memcpy(&selected, bits + 8ull * number[i], sizeof selected);
        return selected;
    }

    ub4 number[capacity];
    unsigned size = 0;

private:
    const ub1 *bits;
    ub8 blocks, scanned = 0;
};

template <unsigned W, bool Nullable>
class minmax_call {
public:
    [[gnu::always_inline]] minmax_call(tavo_vec *res, tavo_vec *src, tavo_env *env, const ub1 *codes, ub4 mode) noexcept
        : res(res), env(env), enc(TAVO_VEC_ENC_CTX(src)), codes(codes), rows(TAVO_VEC_SIZE(src)),
          none(enc->symbol_count), seen{none, 0} {
        const ub4 lowest = Nullable ? 1 : 0, highest = none - 1;
        best = {mode == TAVO_MINMAX_HIGH ? highest : lowest, mode == TAVO_MINMAX_LOW ? lowest : highest};
    }

    [[gnu::always_inline]] ub4 plain() noexcept {
        if (env->sel_bits != nullptr)
            return selected_blocks();
        if (env->ones_vec != nullptr)
            return listed_rows();
        seen = fold_codes<W, Nullable>(seen, codes, env->resume_row, rows);
        return finish(static_cast<ub4>(rows));
    }

    [[gnu::always_inline]] ub4 run_length(const char *empty_list) noexcept {
        run_cursor run(enc, env);
        bool is_new = true; // the cursor's run hasn't been read
        const auto visit = [&](ub4 row) {
            if (run.step_to(row) || is_new)
                fold_code<Nullable>(seen, packed_code<W>(codes, run.index));
            is_new = false;
        };
        if (env->sel_bits != nullptr) {
            ub4 batch[row_batch];
            tavo_bit_iter selected;
            tavo_lbiwv_ictx_ini2_dydi(&selected, env->sel_bits, rows, 0, env->resume_row);
            ub8 n;
            do {
                n = tavo_lbiwvones_dydi(&selected, batch, row_batch);
                for (ub8 i = 0; i < n; i++)
                    visit(batch[i]);
            } while (n == row_batch);
            env->resume_row = static_cast<ub4>(rows);
        } else if (env->ones_vec != nullptr) {
            const ub4 n = env->ones_vec_size;
            if (n == 0)
                raise(env->host, empty_list);
            for (ub4 i = 0; i < n; i++)
                visit(env->ones_vec[i]);
            if (n != 0)
                env->resume_row = env->ones_vec[n - 1] + 1;
        } else if (env->resume_row < rows) {
            // All further runs, one code each: their lengths are not looked at.
            run.step_to(env->resume_row);
            seen = fold_codes<W, Nullable>(seen, codes, run.index, enc->run_count);
            env->resume_row = static_cast<ub4>(rows);
        }
        run.save(env);
        res->count = seen.low == none ? 0 : 2;
        return finish(env->resume_row);
    }

private:
    ub4 finish(ub4 resume_row) noexcept {
        if (seen.low == none)
            return TAVO_NONE_SELECTED;
        env->resume_row = resume_row;
        return write(seen);
    }
    ub4 write(code_extremes pair) noexcept {
        memcpy(res->data, &pair, sizeof pair);
        return TAVO_DONE;
    }

    // Blocks of 64 rows, those alone that have a selected row.
    ub4 selected_blocks() noexcept {
        using lanes = code_lanes<W>;
        constexpr unsigned ahead = 10;
        const auto *bits = reinterpret_cast<const ub1 *>(env->sel_bits);
        ub8 row = env->resume_row;
        const auto row_by_row = [&](ub8 stop) {
            for (; row < stop; row++)
                if (bits[row / 8] >> row % 8 & 1)
                    fold_code<Nullable>(seen, packed_code<W>(codes, row));
        };
        row_by_row(std::min(next_block_start<W>(row), rows));
        if (const ub8 blocks = row < rows ? (rows - row) / block_rows : 0; blocks != 0) {
            const ub8 start = row;
            const ub1 *const first = block_codes<W>(codes, start);
            const lanes source;
            const __m512i low_target = source.place(best.low), high_target = source.place(best.high);
            auto extremes = lanes_from_here(source);
            selected_block_list list(bits + start / 8, blocks);
            ub8 walked = 0;
            while (list.next())
                for (unsigned i = 0; i < list.size; i++, walked++) {
                    if (i + ahead < list.size) {
                        const ub1 *const next = first + static_cast<ub8>(list.number[i + ahead]) * (8 * W);
                        __builtin_prefetch(next);
                        __builtin_prefetch(next + 64);
                    }
                    const ub1 *const block = first + static_cast<ub8>(list.number[i]) * (8 * W);
                    const ub8 word = list.word(i);
#pragma GCC unroll 4
                    for (unsigned g = 0; g < block_rows / lanes::rows; g++)
                        extremes.add(source.fields(lanes::load(block + g * lanes::bytes)),
                                     static_cast<lane_mask<lanes::lane_bits>>(word >> g * lanes::rows % 64));
                    if (may_end_early() && have_reached(extremes, low_target, high_target)) {
                        // Half the rows that the blocks have: nobody goes on behind an early end.
                        env->resume_row = static_cast<ub4>(start + 32 * (walked + 1));
                        return write(best);
                    }
                }
            if (walked != 0)
                extremes.fold_into(seen, field_shifts<W>);
            row += blocks * block_rows;
        }
        row_by_row(rows);
        return finish(static_cast<ub4>(row));
    }

    // Lanes that go on from the rows folded so far; of 32 bits also where that is the mark of none, which fits there.
    [[gnu::always_inline]] lane_extremes<code_lanes<W>::lane_bits, Nullable>
    lanes_from_here(const code_lanes<W> &source) const noexcept {
        if (W == 32 || seen.low != none)
            return {source.place(seen.low), source.place(seen.high)};
        return {};
    }

    // Codes of the width can meet the targets, and lanes that no row has reached don't.
    bool may_end_early() const noexcept {
        constexpr ub4 largest = static_cast<ub4>((1ull << W) - 1);
        return best.low < none && best.high <= largest && best.low >= (Nullable ? 1u : 0u);
    }
    // The comparison is one of signed 32-bit numbers, which only codes of 32 bits can tell from another.
    template <class Lanes>
    [[gnu::always_inline]] static bool have_reached(const Lanes &lanes, __m512i low, __m512i high) noexcept {
        if constexpr (W == 32)
            return lanes.have_reached_signed(low, high);
        else
            return lanes.have_reached(low, high);
    }

    ub4 listed_rows() noexcept {
        constexpr ub4 ahead = 16;
        const ub4 *const list = env->ones_vec, n = env->ones_vec_size;
        for (ub4 i = 0; i < n; i++) {
            if (i + ahead < n)
                __builtin_prefetch(codes + static_cast<ub8>(list[i + ahead]) * W / 8);
            const ub4 code = packed_code<W>(codes, list[i]);
            if (Nullable && code == 0)
                continue;
            seen.fold(code);
            if (seen.low <= best.low && seen.high >= best.high)
                return write(seen);
        }
        if (n != 0) // also where no row contributed
            env->resume_row = list[n - 1] + 1;
        return finish(env->resume_row);
    }

    tavo_vec *res;
    tavo_env *env;
    const tavo_enc_ctx *enc;
    const ub1 *codes;
    ub8 rows;
    ub4 none; // the mark that no row has contributed
    code_extremes seen, best;
};

template <unsigned W, bool Nullable>
[[gnu::always_inline]] inline ub4 minmax(tavo_vec *res, tavo_vec *src, tavo_env *env, ub4 mode,
                                         const kernel_texts &texts, const char *empty_list) noexcept {
    minmax_call<W, Nullable> call(res, src, env, column_data(src, env, texts), mode);
    return TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(src), TAVO_RLE) ? call.run_length(empty_list) : call.plain();
}

} // namespace tavo

#define TAVO_MINMAX_KERNEL(name, W, nullable)                                                                          \
    extern "C" ub4 name(tavo_vec *res, tavo_vec *src, tavo_env *env, ub4 mode) noexcept {                              \
        return tavo::minmax<W, nullable>(res, src, env, mode, TAVO_KERNEL_TEXTS(name), TAVO_EMPTY_LIST_TEXT(name));    \
    }
#define TAVO_MINMAX_MEMBER(W) TAVO_MINMAX_KERNEL(tavo_minmax_dict_##W##bit, W, false)
#define TAVO_MINMAX_NULL_MEMBER(W) TAVO_MINMAX_KERNEL(tavo_minmax_dict_##W##bit_null, W, true)
