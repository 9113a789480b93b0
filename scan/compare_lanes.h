// Compares of 512-bit registers by lane width, and their masks as numbers.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"
#include "portable/mask_number.h"

namespace tavo {

// The compares by lane width: one mask bit a lane.
template <unsigned LaneBits, int Predicate>
[[gnu::always_inline]] inline auto compare_lanes(__m512i a, __m512i b) noexcept {
    if constexpr (LaneBits == 8)
        return _mm512_cmp_epu8_mask(a, b, Predicate);
    else if constexpr (LaneBits == 16)
        return _mm512_cmp_epu16_mask(a, b, Predicate);
    else if constexpr (LaneBits == 32)
        return _mm512_cmp_epu32_mask(a, b, Predicate);
    else
        return _mm512_cmp_epu64_mask(a, b, Predicate);
}

template <unsigned LaneBits, int Predicate, class Mask>
[[gnu::always_inline]] inline Mask compare_lanes(Mask among, __m512i a, __m512i b) noexcept {
    if constexpr (LaneBits == 8)
        return _mm512_mask_cmp_epu8_mask(among, a, b, Predicate);
    else if constexpr (LaneBits == 16)
        return _mm512_mask_cmp_epu16_mask(among, a, b, Predicate);
    else if constexpr (LaneBits == 32)
        return _mm512_mask_cmp_epu32_mask(among, a, b, Predicate);
    else
        return _mm512_mask_cmp_epu64_mask(among, a, b, Predicate);
}

// Those lanes among the given ones that are not zero.
template <unsigned LaneBits, class Mask>
[[gnu::always_inline]] inline Mask nonzero_lanes(Mask among, __m512i a) noexcept {
    if constexpr (LaneBits == 8)
        return _mm512_mask_test_epi8_mask(among, a, a);
    else if constexpr (LaneBits == 16)
        return _mm512_mask_test_epi16_mask(among, a, a);
    else if constexpr (LaneBits == 32)
        return _mm512_mask_test_epi32_mask(among, a, a);
    else
        return _mm512_mask_test_epi64_mask(among, a, a);
}

// The same value in every lane.
template <unsigned LaneBits>
[[gnu::always_inline]] inline __m512i broadcast_lanes(ub8 value) noexcept {
    if constexpr (LaneBits == 8)
        return _mm512_set1_epi8(static_cast<char>(value));
    else if constexpr (LaneBits == 16)
        return _mm512_set1_epi16(static_cast<short>(value));
    else if constexpr (LaneBits == 32)
        return _mm512_set1_epi32(static_cast<int>(value));
    else
        return _mm512_set1_epi64(static_cast<long long>(value));
}

} // namespace tavo
