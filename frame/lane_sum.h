// Sums over the lanes of a register of floating-point numbers. The upper half is added to the lower one until one lane
// is left: lane i plus lane i + 8, then i + 4, i + 2, i + 1. The order is part of every result that is made with it.
#pragma once

#include "portable/intrinsics.h"

namespace tavo {

[[gnu::always_inline]] inline float lane_sum(__m256 v) {
    const __m128 four = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    const __m128 two = _mm_add_ps(four, _mm_movehl_ps(four, four));
    return _mm_cvtss_f32(_mm_add_ss(two, _mm_shuffle_ps(two, two, 1)));
}
[[gnu::always_inline]] inline float lane_sum(__m512 v) {
    return lane_sum(_mm256_add_ps(_mm512_castps512_ps256(v), _mm512_extractf32x8_ps(v, 1)));
}
[[gnu::always_inline]] inline double lane_sum(__m256d v) {
    const __m128d two = _mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
    return _mm_cvtsd_f64(_mm_add_sd(two, _mm_unpackhi_pd(two, two)));
}
[[gnu::always_inline]] inline double lane_sum(__m512d v) {
    return lane_sum(_mm256_add_pd(_mm512_castpd512_pd256(v), _mm512_extractf64x4_pd(v, 1)));
}

} // namespace tavo
