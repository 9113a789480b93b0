// The text of the bloom filter kernels; their contract stands in bloom_kernels.h.
//
// Sixteen rows are tested at a time: positions are worked out in 32-bit lanes, then each row's word is loaded on its
// own.
#pragma once

#include "bitvec/bitvec.h"
#include "frame/tavo_status.h"
#include "kv/bloom_kernels.h"
#include "portable/intrinsics.h"
#include "scan/passing_rows.h"

namespace tavo {

[[gnu::always_inline]] inline __m512i swap_bytes_u32x16(__m512i v) noexcept {
    return _mm512_shuffle_epi8(
        v, _mm512_broadcast_i32x4(_mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12)));
}

// The half of a hash that positions are drawn from, before its bytes are swapped.
template <class Hash>
struct hash_half;
template <>
struct hash_half<ub4> {
    [[gnu::always_inline]] static ub4 of(const ub4 *hash) noexcept { return *hash; }
    [[gnu::always_inline]] static __m512i sixteen(const ub4 *hash) noexcept { return _mm512_loadu_si512(hash); }
};
template <>
struct hash_half<ub8> {
    [[gnu::always_inline]] static ub4 of(const ub8 *hash) noexcept { return static_cast<ub4>(*hash >> 32); }
    [[gnu::always_inline]] static __m512i sixteen(const ub8 *hash) noexcept {
        const __m512i odd = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
        return _mm512_permutex2var_epi32(_mm512_loadu_si512(hash), odd, _mm512_loadu_si512(hash + 8));
    }
};

// Bits: tested a row, 1 or 2.
template <unsigned Bits, bool Segmented>
class bloom_filter {
public:
    explicit bloom_filter(const tavo_vec *filter) noexcept
        : bits(filter->bits), hash_mask(filter->enc->hash_mask), bit_mask(filter->enc->bit_mask),
          segment_shift(filter->enc->segment_shift) {}

    [[gnu::always_inline]] bool passes(ub4 half) const noexcept {
        const ub4 x = __builtin_bswap32(half), m = x & hash_mask, p = m & bit_mask;
        ub8 wanted = 1ull << p % 64;
        if (Bits == 2)
            wanted |= 1ull << (x >> 26 & hash_mask & bit_mask);
        return (wanted & ~segment(segment_shift < 32 ? m >> segment_shift : 0)[p / 64]) == 0;
    }

    // Sixteen rows, as a mask.
    [[gnu::always_inline]] unsigned passing(__m512i halves) const noexcept {
        const lanes l(*this, halves);
        return static_cast<unsigned>(eight(l, 0)) | static_cast<unsigned>(eight(l, 1)) << 8;
    }

    // Fetches the words of sixteen rows.
    [[gnu::always_inline]] void prefetch(__m512i halves) const noexcept {
        const lanes l(*this, halves);
#pragma GCC unroll 16
        for (unsigned i = 0; i < 16; i++)
            __builtin_prefetch(l.word(*this, i));
    }

private:
    struct lanes {
        [[gnu::always_inline]] lanes(const bloom_filter &f, __m512i halves) noexcept {
            x = swap_bytes_u32x16(halves);
            m = _mm512_and_si512(x, _mm512_set1_epi32(static_cast<int>(f.hash_mask)));
            p = _mm512_and_si512(m, _mm512_set1_epi32(static_cast<int>(f.bit_mask)));
            _mm512_store_si512(word_number, _mm512_srli_epi32(p, 6));
            if (Segmented)
                _mm512_store_si512(segment_number,
                                   _mm512_srlv_epi32(m, _mm512_set1_epi32(static_cast<int>(f.segment_shift))));
        }
        [[gnu::always_inline]] const ub8 *word(const bloom_filter &f, unsigned i) const noexcept {
            return f.segment(segment_number[Segmented ? i : 0]) + word_number[i];
        }
        __m512i x, m, p;
        alignas(64) ub4 word_number[16];
        alignas(64) ub4 segment_number[Segmented ? 16 : 1] = {};
    };

    [[gnu::always_inline]] const ub8 *segment(ub4 number) const noexcept {
        return Segmented ? reinterpret_cast<const ub8 *>(bits[number]) : bits;
    }

    // Rows 0 to 7, or 8 to 15, as a mask.
    [[gnu::always_inline]] __mmask8 eight(const lanes &l, unsigned half) const noexcept {
        const auto widen = [half](__m512i v) __attribute__((always_inline)) {
            return _mm512_cvtepu32_epi64(half == 0 ? _mm512_castsi512_si256(v) : _mm512_extracti64x4_epi64(v, 1));
        };
        const auto at = [&](unsigned i) __attribute__((always_inline)) {
            return static_cast<long long>(*l.word(*this, 8 * half + i));
        };
        const __m512i words = _mm512_setr_epi64(at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7));
        const __m512i one = _mm512_set1_epi64(1);
        const __m512i place = _mm512_and_si512(widen(l.p), _mm512_set1_epi64(63));
        const __m512i wanted = _mm512_sllv_epi64(one, place);
        if (Bits == 1)
            return _mm512_test_epi64_mask(words, wanted);
        const __m512i second = _mm512_and_si512(widen(_mm512_srli_epi32(l.x, 26)),
                                                _mm512_set1_epi64(static_cast<long long>(hash_mask & bit_mask)));
        const __m512i missing = _mm512_andnot_si512(words, _mm512_or_si512(wanted, _mm512_sllv_epi64(one, second)));
        return _mm512_testn_epi64_mask(missing, missing);
    }

    const ub8 *bits;
    ub4 hash_mask, bit_mask, segment_shift;
};

// Rows do not wait for each other, so the processor runs far enough ahead by itself: fetching the words of later rows
// first only costs.
template <class Hash, class Filter>
[[gnu::always_inline]] inline void test_all_rows(ub8 *bits, const Hash *hashes, ub4 start_row, ub4 rows,
                                                 const Filter &filter) noexcept {
    using half = hash_half<Hash>;
    for (ub8 w = start_row / 64; w * 64 < rows; w++) {
        ub8 row = w * 64 < start_row ? start_row : w * 64;
        const ub8 end = w * 64 + 64 < rows ? w * 64 + 64 : rows;
        ub8 word = row % 64 == 0 ? 0 : _bzhi_u64(bits[w], row % 64);
        if (end - row == 64) [[likely]] {
#pragma GCC unroll 4
            for (unsigned i = 0; i < 64; i += 16)
                word |= static_cast<ub8>(filter.passing(half::sixteen(hashes + row + i))) << i;
        } else {
            while (row < end)
                if (row % 16 == 0 && end - row >= 16) {
                    word |= static_cast<ub8>(filter.passing(half::sixteen(hashes + row))) << row % 64;
                    row += 16;
                } else {
                    word |= static_cast<ub8>(filter.passes(half::of(hashes + row))) << row % 64;
                    row++;
                }
        }
        bits[w] = word;
    }
}

// Rows come in batches; the words of a whole batch are fetched before the first is tested.
constexpr ub4 batch_rows = 256;

template <class Hash, class Filter>
[[gnu::always_inline]] inline void test_selected_rows(ub8 *bits, const Hash *hashes, const ub8 *selection,
                                                      ub4 start_row, ub4 rows, const Filter &filter) noexcept {
    tavo_bit_iter it;
    tavo_lbiwv_ictx_ini2_dydi(&it, selection, rows, 0, start_row);
    alignas(64) ub4 row[batch_rows], halves[batch_rows];
    passing_row_marker passing(bits, start_row);
    for (ub8 n = batch_rows; n == batch_rows;) {
        n = tavo_lbiwvones_dydi(&it, row, batch_rows);
        if (n == 0)
            break;
        passing.reach(row[n - 1]);
        for (ub8 i = 0; i < n; i++)
            halves[i] = hash_half<Hash>::of(hashes + row[i]);
        const ub8 whole = (n + 15) / 16 * 16;
        for (ub8 i = n; i < whole; i++)
            halves[i] = halves[n - 1];
        for (ub8 i = 0; i < whole; i += 16)
            filter.prefetch(_mm512_load_si512(halves + i));
        for (ub8 i = 0; i < whole; i += 16) {
            unsigned hits = filter.passing(_mm512_load_si512(halves + i));
            if (n - i < 16)
                hits = _bzhi_u32(hits, static_cast<unsigned>(n - i));
            for (; hits != 0; hits = _blsr_u32(hits))
                passing.mark(row[i + _tzcnt_u32(hits)]);
        }
    }
    passing.finish(rows);
}

template <unsigned Bits, class Hash, bool Selective>
[[gnu::always_inline]] inline ub4 bloom(tavo_vec *res, const tavo_vec *hashes, const tavo_vec *filter,
                                        tavo_env *env) noexcept {
    if (!TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(hashes), TAVO_HASHES))
        return TAVO_UNSUPPORTED;
    const ub4 rows = TAVO_VEC_SIZE(hashes), start_row = env->start_row;
    const auto *data = static_cast<const Hash *>(hashes->data);
    const auto test = [&](const auto &f) __attribute__((always_inline)) {
        if (Selective)
            test_selected_rows(res->bits, data, env->sel_bits, start_row, rows, f);
        else
            test_all_rows(res->bits, data, start_row, rows, f);
    };
    if (start_row >= rows)
        ; // no row, no word
    else if (filter->enc->segmented != 0)
        test(bloom_filter<Bits, true>(filter));
    else
        test(bloom_filter<Bits, false>(filter));
    if (Selective)
        env->result_flags |= TAVO_RESULT_BLOOM_SELECTED;
    return report_passing(res, start_row, rows);
}

} // namespace tavo
