// Exact sums of the squares of small integers.
#pragma once

#include "portable/intrinsics.h"

namespace tavo::vector {

// The squares of 16 integers of at most 15 bits in their 32-bit lanes.
[[gnu::always_inline]] inline __m512i squares_u32x16(__m512i v_i32x16) {
    const __m512i low = _mm512_and_si512(v_i32x16, _mm512_set1_epi32(0xffff)); // the high half may be a sign
    return _mm512_madd_epi16(low, low);
}

// 64-bit sums with the 32-bit lanes of v added.
[[gnu::always_inline]] inline __m512i widened_sum(__m512i sum_u64x8, __m512i v_u32x16) {
    const __m512i low = _mm512_and_si512(v_u32x16, _mm512_set1_epi64(0xffffffff));
    return _mm512_add_epi64(sum_u64x8, _mm512_add_epi64(low, _mm512_srli_epi64(v_u32x16, 32)));
}
[[gnu::always_inline]] inline double total(__m512i sum_u64x8) {
    return static_cast<double>(_mm512_reduce_add_epi64(sum_u64x8));
}

} // namespace tavo::vector
