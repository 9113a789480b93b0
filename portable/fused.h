// Fused multiplication and addition: one rounding, as the instruction has it.
#pragma once

#include <cmath>

#include "portable/lanes.h"

#define TAVO_FUSED(prefix, V, Lane, type)                                                                              \
    inline V prefix##_fmadd_##type(V a, V b, V c) {                                                                    \
        const auto x = tavo::portable::lanes<Lane>(a), y = tavo::portable::lanes<Lane>(b),                             \
                   z = tavo::portable::lanes<Lane>(c);                                                                 \
        return tavo::portable::from_lanes<V, Lane>([&](unsigned i) { return std::fma(x[i], y[i], z[i]); });            \
    }                                                                                                                  \
    inline V prefix##_fmsub_##type(V a, V b, V c) {                                                                    \
        const auto x = tavo::portable::lanes<Lane>(a), y = tavo::portable::lanes<Lane>(b),                             \
                   z = tavo::portable::lanes<Lane>(c);                                                                 \
        return tavo::portable::from_lanes<V, Lane>([&](unsigned i) { return std::fma(x[i], y[i], -z[i]); });           \
    }                                                                                                                  \
    inline V prefix##_fnmadd_##type(V a, V b, V c) {                                                                   \
        const auto x = tavo::portable::lanes<Lane>(a), y = tavo::portable::lanes<Lane>(b),                             \
                   z = tavo::portable::lanes<Lane>(c);                                                                 \
        return tavo::portable::from_lanes<V, Lane>([&](unsigned i) { return std::fma(-x[i], y[i], z[i]); });           \
    }
TAVO_FUSED(_mm512, __m512, float, ps)
TAVO_FUSED(_mm512, __m512d, double, pd)
TAVO_FUSED(_mm256, __m256, float, ps)
TAVO_FUSED(_mm256, __m256d, double, pd)
TAVO_FUSED(_mm, __m128, float, ps)
TAVO_FUSED(_mm, __m128d, double, pd)
#undef TAVO_FUSED

// Lanes without their bit keep the addend.
inline __m512 _mm512_mask3_fmadd_ps(__m512 a, __m512 b, __m512 c, __mmask16 mask) {
    return tavo::portable::choose<float>(mask, _mm512_fmadd_ps(a, b, c), c);
}
inline __m512d _mm512_mask3_fmadd_pd(__m512d a, __m512d b, __m512d c, __mmask8 mask) {
    return tavo::portable::choose<double>(mask, _mm512_fmadd_pd(a, b, c), c);
}
