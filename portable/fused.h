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
