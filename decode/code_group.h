// The vector form of reading packed codes: sixteen consecutive codes of one width to sixteen 32-bit lanes.
//
//   group    16 codes of W bits, 2W bytes from a byte boundary on: rows r to r + 15 where r is a multiple of 8
//   lanes    lane j holds code j, zero-extended
//
// A load reads, from the group's first byte on, 16 bytes for W = 8, 32 for W = 16 and 64 for every other width: up to
// 64 - 2W bytes past the group.
#pragma once

#include <immintrin.h>

#include "frame/tavo_types.h"
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

// The constants of a width in registers; made once before a loop.
template <unsigned W>
class code_group {
    static_assert((W >= 1 && W <= 20) || W == 24 || W == 32);

public:
    static constexpr unsigned rows = 16;
    static constexpr unsigned bytes = 2 * W;
    static constexpr unsigned bytes_read = W == 8 ? 16 : W == 16 ? 32 : 64;

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
        return _mm512_shuffle_epi8(_mm512_permutexvar_epi16(words, _mm512_loadu_si512(group)), selectors);
    }
    [[gnu::always_inline]] static __m512i load(const ub1 *row) noexcept { return _mm512_load_si512(row); }

    __m512i words, selectors, shifts, code_bits;
};

} // namespace tavo
