// The vector form of reading packed codes: sixteen consecutive codes of one width to sixteen 32-bit lanes.
//
//   group    16 codes of W bits, 2W bytes from a byte boundary on: rows r to r + 15 where r is a multiple of 8
//   lanes    lane j holds code j, zero-extended
//
// A group's own bytes are read and no others: a masked load costs no more than a whole one.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"
#include "tables/unpack_masks.h"

namespace tavo {

// Selectors of a byte swap in 32-bit lanes that hold elements of 2 (row 0) or 4 bytes (row 1), and in 16-bit lanes (row
// 2).
inline constexpr mask_rows_64<3> swap_selectors = [] {
    mask_rows_64<3> t{};
    t.clear_selectors();
    for (unsigned i = 0; i < 64; i++) {
        if (i % 4 < 2)
            t.row[0][i] = static_cast<ub1>(i % 16 ^ 1);
        t.row[1][i] = static_cast<ub1>(i % 16 ^ 3);
        t.row[2][i] = static_cast<ub1>(i % 16 ^ 1);
    }
    return t;
}();

// The first `bytes` bytes from p on, fewer than 64.
[[gnu::always_inline]] inline __m512i load_first(unsigned bytes, const ub1 *p) noexcept {
    return _mm512_maskz_loadu_epi8((1ull << bytes) - 1, p);
}

// The constants of a width in registers; made once before a loop.
template <unsigned W>
class code_group {
    static_assert((W >= 1 && W <= 20) || W == 24 || W == 32);

public:
    static constexpr unsigned rows = 16;
    static constexpr unsigned bytes = 2 * W;

    [[gnu::always_inline]] code_group() noexcept {
        if constexpr (W == 16 || W == 32) {
            selectors = load(swap_selectors.row[W / 32]);
        } else if constexpr (W != 8) {
            words = load(tavo_avx512_unpack_to_32bit_lane_shuffle_masks.row[W - 1]);
            selectors = load(tavo_avx512_unpack_to_32bit_shuffle_masks.row[W - 1]);
            shifts = load(tavo_avx512_unpack_to_32bit_shift_masks.row[W - 1]);
            code_bits = _mm512_set1_epi32((1 << W) - 1);
        }
    }

    [[gnu::always_inline]] __m512i operator()(const ub1 *group) const noexcept {
        if constexpr (W == 8)
            return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(group)));
        else if constexpr (W == 16)
            return _mm512_shuffle_epi8(
                _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(group))), selectors);
        else if constexpr (W == 32)
            return _mm512_shuffle_epi8(_mm512_loadu_si512(group), selectors);
        else if constexpr (W == 24)
            return spread(group);
        else
            return _mm512_and_si512(_mm512_srlv_epi32(spread(group), shifts), code_bits);
    }

private:
    // Each lane: the bytes that hold its code, the last one lowest.
    [[gnu::always_inline]] __m512i spread(const ub1 *group) const noexcept {
        return _mm512_shuffle_epi8(_mm512_permutexvar_epi16(words, load_first(bytes, group)), selectors);
    }
    [[gnu::always_inline]] static __m512i load(const ub1 *row) noexcept { return _mm512_load_si512(row); }

    __m512i words, selectors, shifts, code_bits;
};

// The same with thirty-two codes and 16-bit lanes, at half the cost a code, for the widths whose codes each lie within
// two bytes.
template <unsigned W>
constexpr bool has_short_code_group = W <= 7 || W == 9 || W == 10 || W == 12;

// Row W - 1: how far above bit 0 the codes lie in 16-bit lanes.
inline constexpr mask_rows_64<12> short_code_shifts = [] {
    mask_rows_64<12> t{};
    for (unsigned w = 1; w <= 12; w++)
        for (unsigned lane = 0; lane < 32; lane++)
            t.put(w - 1, 2 * lane, 2, code_shift(lane, w));
    return t;
}();

template <unsigned W>
class short_code_group {
    static_assert(has_short_code_group<W>);

public:
    static constexpr unsigned rows = 32;
    static constexpr unsigned bytes = 4 * W;

    [[gnu::always_inline]] short_code_group() noexcept
        : words(_mm512_load_si512(tavo_avx512_unpack_to_16bit_lane_shuffle_masks.row[W - 1])),
          selectors(_mm512_load_si512(tavo_avx512_unpack_to_16bit_shuffle_masks.row[W - 1])),
          shifts(_mm512_load_si512(short_code_shifts.row[W - 1])), code_bits(_mm512_set1_epi16((1 << W) - 1)) {}

    [[gnu::always_inline]] __m512i operator()(const ub1 *group) const noexcept {
        const __m512i spread =
            _mm512_shuffle_epi8(_mm512_permutexvar_epi16(words, load_first(bytes, group)), selectors);
        return _mm512_and_si512(_mm512_srlv_epi16(spread, shifts), code_bits);
    }

private:
    __m512i words, selectors, shifts, code_bits;
};

} // namespace tavo
