// Arithmetic shifts, and the high halves of products.
#pragma once

#include <cstdint>

#include "portable/lanes.h"

// A count of the lane's width and more leaves the sign in every bit.
#define TAVO_SHIFT_RIGHT(Lane, Count, type)                                                                            \
    inline __m512i _mm512_srai_##type(__m512i v, unsigned count) {                                                     \
        const auto from = tavo::portable::lanes<Lane>(v);                                                              \
        const unsigned by = count < 8 * sizeof(Lane) ? count : 8 * sizeof(Lane) - 1;                                   \
        return tavo::portable::from_lanes<__m512i, Lane>([&](unsigned i) { return from[i] >> by; });                   \
    }                                                                                                                  \
    inline __m512i _mm512_srav_##type(__m512i v, __m512i counts) {                                                     \
        const auto from = tavo::portable::lanes<Lane>(v);                                                              \
        const auto by = tavo::portable::lanes<Count>(counts);                                                          \
        return tavo::portable::from_lanes<__m512i, Lane>(                                                              \
            [&](unsigned i) { return from[i] >> (by[i] < 8 * sizeof(Lane) ? by[i] : 8 * sizeof(Lane) - 1); });         \
    }
TAVO_SHIFT_RIGHT(std::int32_t, std::uint32_t, epi32)
TAVO_SHIFT_RIGHT(std::int64_t, std::uint64_t, epi64)
#undef TAVO_SHIFT_RIGHT

inline __m512i _mm512_mulhi_epu16(__m512i a, __m512i b) {
    const auto x = tavo::portable::lanes<std::uint16_t>(a), y = tavo::portable::lanes<std::uint16_t>(b);
    return tavo::portable::from_lanes<__m512i, std::uint16_t>(
        [&](unsigned i) { return static_cast<std::uint16_t>(std::uint32_t{x[i]} * y[i] >> 16); });
}
inline __m512i _mm512_mullo_epi64(__m512i a, __m512i b) {
    const auto x = tavo::portable::lanes<std::uint64_t>(a), y = tavo::portable::lanes<std::uint64_t>(b);
    return tavo::portable::from_lanes<__m512i, std::uint64_t>([&](unsigned i) { return x[i] * y[i]; });
}
