
#include <algorithm>
#include <bit>

#include "bitvec/bitvec.h"
#include "decode/burst_rle_kernels.h"
#include "decode/row_marker.h"
#include "decode/run_table.h"
#include "frame/tavoc_avx512g.h"
#include "portable/intrinsics.h"
#include "scan/packed_code.h"

namespace {

using tavo::load_big_endian_4;
using tavo::row_marker;
using tavo::run_length;

// ---- Run tables ----

// Rows of `runs` runs from `first` on.
template <class Entry>
[[gnu::always_inline]] inline ub8 rows_of_runs(const void *run_table, ub8 first, ub8 runs) noexcept {
    const ub1 *bytes = static_cast<const ub1 *>(run_table) + first * sizeof(Entry);
    const __m512i zero = _mm512_setzero_si512();
    __m512i sums_u64x8 = zero;
    // Of a big-endian entry the high byte comes first: sums of high and of low bytes, 256 to 1.
    __m512i high_sums_u64x8 = zero;
    auto add = [&](__m512i entries) __attribute__((always_inline)) {
        if constexpr (sizeof(Entry) == 1) {
            sums_u64x8 = _mm512_add_epi64(sums_u64x8, _mm512_sad_epu8(entries, zero));
        } else {
            const __m512i high_bytes = _mm512_and_si512(entries, _mm512_set1_epi16(0xff));
            high_sums_u64x8 = _mm512_add_epi64(high_sums_u64x8, _mm512_sad_epu8(high_bytes, zero));
            sums_u64x8 = _mm512_add_epi64(sums_u64x8, _mm512_sad_epu8(_mm512_srli_epi16(entries, 8), zero));
        }
    };
    ub8 left = runs * sizeof(Entry);
    for (; left >= 64; left -= 64, bytes += 64)
        add(_mm512_loadu_si512(bytes));
    if (left > 0)
        add(_mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, static_cast<unsigned>(left)), bytes));
    if constexpr (sizeof(Entry) == 2)
        sums_u64x8 = _mm512_add_epi64(sums_u64x8, _mm512_slli_epi64(high_sums_u64x8, 8));
    return static_cast<ub8>(_mm512_reduce_add_epi64(sums_u64x8));
}

// Sixteen entries from `first` on in lanes of 32 bits; those at and above `runs` count as 0 and are not read.
template <class Entry>
[[gnu::always_inline]] inline __m512i load_runs_u32x16(const void *run_table, ub8 first, ub4 runs) noexcept {
    const ub1 *bytes = static_cast<const ub1 *>(run_table) + first * sizeof(Entry);
    const auto present = static_cast<__mmask16>(_bzhi_u32(0xffff, std::min(runs, 16u)));
    if constexpr (sizeof(Entry) == 1)
        return _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(present, bytes));
    const __m256i stored = _mm256_maskz_loadu_epi16(present, bytes);
    return _mm512_cvtepu16_epi32(_mm256_or_si256(_mm256_slli_epi16(stored, 8), _mm256_srli_epi16(stored, 8)));
}

// Each lane becomes the sum of itself and the lanes below it.
[[gnu::always_inline]] inline __m512i running_sums_u32x16(__m512i v) noexcept {
    v = _mm512_add_epi32(v, _mm512_bslli_epi128(v, 4));
    v = _mm512_add_epi32(v, _mm512_bslli_epi128(v, 8));
    // Now across the quarters: the sum of the quarter below, then that of the two before it.
    __m512i tops = _mm512_shuffle_epi32(v, _MM_PERM_DDDD);
    v = _mm512_add_epi32(v, _mm512_maskz_shuffle_i32x4(0xfff0, tops, tops, _MM_SHUFFLE(2, 1, 0, 0)));
    tops = _mm512_shuffle_epi32(v, _MM_PERM_DDDD);
    return _mm512_add_epi32(v, _mm512_maskz_shuffle_i32x4(0xff00, tops, tops, _MM_SHUFFLE(1, 0, 0, 0)));
}

// The rows at which the runs of a 64-run block start and end, counted from the block's first row. They are 32 bits
// wide: 64 runs of a 16-bit table can cover more rows than 16 bits count.
struct run_starts {
    alignas(64) ub4 at[65];

    template <class Entry>
    [[gnu::always_inline]] inline void load(const void *run_table, ub8 first, ub4 runs) noexcept {
        at[0] = 0;
        __m512i before = _mm512_setzero_si512();
#pragma GCC unroll 4
        for (ub4 i = 0; i < 64; i += 16) {
            const ub4 present = runs > i ? runs - i : 0;
            const __m512i ends =
                _mm512_add_epi32(before, running_sums_u32x16(load_runs_u32x16<Entry>(run_table, first + i, present)));
            _mm512_storeu_si512(at + 1 + i, ends);
            before = _mm512_permutexvar_epi32(_mm512_set1_epi32(15), ends);
        }
    }
};

// ---- Walks over the selected runs (Set), or over those that are not ----

// One at a time, for few of them: the rows between two are summed up.
template <class Entry, bool Set>
ub8 mark_by_iterator(const tavo_enc_ctx *enc, const ub8 *run_bits, row_marker<Set> rows) noexcept {
    tavo_bit_iter it;
    tavo_lbiwv_ictx_ini2_dydi(&it, run_bits, enc->run_count, Set ? 0 : 1, 0);
    ub8 passed = 0, row = 0; // runs behind the walk, and their rows
    for (;;) {
        const ub8 run = Set ? tavo_lbiwviter_dydi(&it) : tavo_lbiwviter_clr_dydi(&it);
        if (run == TAVO_LBIWV_END)
            return rows.finish();
        row += rows_of_runs<Entry>(enc->run_table, passed, run - passed);
        const ub4 length = run_length<Entry>(enc->run_table, run);
        rows.mark(row, length);
        row += length;
        passed = run + 1;
    }
}

// Word by word of the run bit vector, 64 runs at a time.
template <class Entry, bool Set>
ub8 mark_by_words(const tavo_enc_ctx *enc, const ub8 *run_bits, row_marker<Set> rows) noexcept {
    ub8 row = 0; // first row of the block
    run_starts start;
    for (ub8 block = 0; block < enc->run_count; block += 64) {
        const ub4 runs = static_cast<ub4>(std::min<ub8>(64, enc->run_count - block));
        ub8 word = Set ? run_bits[block / 64] : ~run_bits[block / 64];
        word = _bzhi_u64(word, runs);
        start.load<Entry>(enc->run_table, block, runs);
        for (; word != 0; word &= word - 1) {
            const int run = std::countr_zero(word);
            rows.mark(row + start.at[run], start.at[run + 1] - start.at[run]);
        }
        row += start.at[64];
    }
    return rows.finish();
}

// One at a time, by cumulative row numbers.
template <bool Set>
ub8 mark_by_cla(const tavo_enc_ctx *enc, const ub8 *run_bits, row_marker<Set> rows) noexcept {
    const auto *cumulative = reinterpret_cast<const ub1 *>(enc->run_cla);
    tavo_bit_iter it;
    tavo_lbiwv_ictx_ini2_dydi(&it, run_bits, enc->run_count, Set ? 0 : 1, 0);
    for (;;) {
        const ub8 run = Set ? tavo_lbiwviter_dydi(&it) : tavo_lbiwviter_clr_dydi(&it);
        if (run == TAVO_LBIWV_END)
            return rows.finish();
        const ub4 first = load_big_endian_4(cumulative + 4 * run);
        rows.mark(first, load_big_endian_4(cumulative + 4 * run + 4) - first);
    }
}

// ---- Plans ----

ub4 finish_burst(tavo_vec *res, ub8 selected) noexcept {
    res->count = static_cast<ub4>(selected);
    return selected == 0 ? TAVO_NONE_SELECTED : TAVO_DONE;
}

// The run bit vector of a call whose column has runs and whose result is another vector.
const ub8 *checked_run_bits(const tavo_vec *res, const tavo_vec *src, const tavo_env *env) noexcept {
    TAVO_ASSERT(TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(src), TAVO_RLE));
    const ub8 *tavo_bv_res = res->bits, *tavo_bv_aux = env->sel_bits;
    TAVO_ASSERT(tavo_bv_res != tavo_bv_aux);
    return tavo_bv_aux;
}

// Only the exceptions are walked: selected runs on a clear vector, or the others on a set one.
template <class Entry>
[[gnu::always_inline]] inline ub4 burst_run_table(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept {
    const ub8 *run_bits = checked_run_bits(res, src, env);
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const ub4 rows = TAVO_VEC_SIZE(res), runs = enc->run_count;
    const ub8 selected = env->sel_count;
    if (selected < static_cast<ub8>(runs * 0.02))
        return finish_burst(res, mark_by_iterator<Entry>(enc, run_bits, row_marker<true>(res->bits, rows)));
    if (selected > static_cast<ub8>(runs * 0.98))
        return finish_burst(res, rows - mark_by_iterator<Entry>(enc, run_bits, row_marker<false>(res->bits, rows)));
    if (selected <= runs / 2)
        return finish_burst(res, mark_by_words<Entry>(enc, run_bits, row_marker<true>(res->bits, rows)));
    return finish_burst(res, rows - mark_by_words<Entry>(enc, run_bits, row_marker<false>(res->bits, rows)));
}

[[gnu::always_inline]] inline ub4 burst_cla(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept {
    const ub8 *run_bits = checked_run_bits(res, src, env);
    const tavo_enc_ctx *enc = TAVO_VEC_ENC_CTX(src);
    const ub4 rows = TAVO_VEC_SIZE(res);
    if (enc->run_count / 2 >= env->sel_count)
        return finish_burst(res, mark_by_cla(enc, run_bits, row_marker<true>(res->bits, rows)));
    return finish_burst(res, rows - mark_by_cla(enc, run_bits, row_marker<false>(res->bits, rows)));
}

} // namespace

// The entry width of the _cla forms is that of the table they stand in for; the row numbers are ub4 in both.
ub4 tavo_burst_rle_8bit(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept {
    return burst_run_table<ub1>(res, src, env);
}
ub4 tavo_burst_rle_8bit_cla(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept { return burst_cla(res, src, env); }
ub4 tavo_burst_rle_16bit(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept {
    return burst_run_table<ub2>(res, src, env);
}
ub4 tavo_burst_rle_16bit_cla(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept { return burst_cla(res, src, env); }
