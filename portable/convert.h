// Lanes of one type from those of another.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "portable/lanes.h"

namespace tavo::portable {

// Lane i of the wider or narrower type, for as many as the result has; what is left of it is zero.
template <class To, class From, class Result, class Vector>
inline Result convert(Vector v) {
    const auto from = lanes<From>(v);
    return from_lanes<Result, To>([&](unsigned i) { return i < from.size() ? static_cast<To>(from[i]) : To{0}; });
}
template <class To, class From, class Result, class Vector>
inline Result saturate(Vector v) {
    constexpr auto low = std::numeric_limits<To>::min();
    constexpr auto high = std::numeric_limits<To>::max();
    const auto from = lanes<From>(v);
    return from_lanes<Result, To>([&](unsigned i) {
        if (i >= from.size())
            return To{0};
        return from[i] > static_cast<From>(high)                            ? high
               : std::is_signed_v<From> && from[i] < static_cast<From>(low) ? low
                                                                            : static_cast<To>(from[i]);
    });
}

// To the nearest integer, ties to even; what no 32-bit integer is, NaN among it, gives the smallest.
template <class From>
inline std::int32_t to_int32(From rounded) {
    constexpr auto indefinite = std::numeric_limits<std::int32_t>::min();
    return rounded >= From{-2147483648.0} && rounded < From{2147483648.0} ? static_cast<std::int32_t>(rounded)
                                                                          : indefinite;
}

} // namespace tavo::portable

#define TAVO_CONVERT(name, Result, To, V, From)                                                                        \
    inline Result name(V v) { return tavo::portable::convert<To, From, Result>(v); }
// Wider.
TAVO_CONVERT(_mm512_cvtepu8_epi16, __m512i, std::uint16_t, __m256i, std::uint8_t)
TAVO_CONVERT(_mm512_cvtepu8_epi32, __m512i, std::uint32_t, __m128i, std::uint8_t)
TAVO_CONVERT(_mm512_cvtepu8_epi64, __m512i, std::uint64_t, __m128i, std::uint8_t)
TAVO_CONVERT(_mm512_cvtepu16_epi32, __m512i, std::uint32_t, __m256i, std::uint16_t)
TAVO_CONVERT(_mm512_cvtepu16_epi64, __m512i, std::uint64_t, __m128i, std::uint16_t)
TAVO_CONVERT(_mm512_cvtepu32_epi64, __m512i, std::uint64_t, __m256i, std::uint32_t)
TAVO_CONVERT(_mm512_cvtepi8_epi16, __m512i, std::int16_t, __m256i, std::int8_t)
TAVO_CONVERT(_mm512_cvtepi8_epi32, __m512i, std::int32_t, __m128i, std::int8_t)
TAVO_CONVERT(_mm512_cvtepi8_epi64, __m512i, std::int64_t, __m128i, std::int8_t)
TAVO_CONVERT(_mm512_cvtepi16_epi32, __m512i, std::int32_t, __m256i, std::int16_t)
TAVO_CONVERT(_mm512_cvtepi16_epi64, __m512i, std::int64_t, __m128i, std::int16_t)
TAVO_CONVERT(_mm512_cvtepi32_epi64, __m512i, std::int64_t, __m256i, std::int32_t)
// Narrower, the low bits.
TAVO_CONVERT(_mm512_cvtepi16_epi8, __m256i, std::uint8_t, __m512i, std::uint16_t)
TAVO_CONVERT(_mm512_cvtepi32_epi8, __m128i, std::uint8_t, __m512i, std::uint32_t)
TAVO_CONVERT(_mm512_cvtepi32_epi16, __m256i, std::uint16_t, __m512i, std::uint32_t)
TAVO_CONVERT(_mm512_cvtepi64_epi8, __m128i, std::uint8_t, __m512i, std::uint64_t)
TAVO_CONVERT(_mm512_cvtepi64_epi16, __m128i, std::uint16_t, __m512i, std::uint64_t)
TAVO_CONVERT(_mm512_cvtepi64_epi32, __m256i, std::uint32_t, __m512i, std::uint64_t)
TAVO_CONVERT(_mm256_cvtepi16_epi8, __m128i, std::uint8_t, __m256i, std::uint16_t)
TAVO_CONVERT(_mm256_cvtepi32_epi16, __m128i, std::uint16_t, __m256i, std::uint32_t)
TAVO_CONVERT(_mm256_cvtepi64_epi32, __m128i, std::uint32_t, __m256i, std::uint64_t)
// Floats. Rounding is to nearest, ties to even, as a process starts with.
TAVO_CONVERT(_mm512_cvtps_pd, __m512d, double, __m256, float)
TAVO_CONVERT(_mm512_cvtpd_ps, __m256, float, __m512d, double)
TAVO_CONVERT(_mm512_cvtepi32_ps, __m512, float, __m512i, std::int32_t)
TAVO_CONVERT(_mm512_cvtepi32_pd, __m512d, double, __m256i, std::int32_t)
TAVO_CONVERT(_mm512_cvtepu32_pd, __m512d, double, __m256i, std::uint32_t)
TAVO_CONVERT(_mm512_cvtepi64_pd, __m512d, double, __m512i, std::int64_t)
TAVO_CONVERT(_mm512_cvtepu64_pd, __m512d, double, __m512i, std::uint64_t)
#undef TAVO_CONVERT

inline __m512i _mm512_cvtps_epi32(__m512 v) {
    const auto from = tavo::portable::lanes<float>(v);
    return tavo::portable::from_lanes<__m512i, std::int32_t>(
        [&](unsigned i) { return tavo::portable::to_int32(std::nearbyint(from[i])); });
}
inline __m512i _mm512_cvttps_epi32(__m512 v) {
    const auto from = tavo::portable::lanes<float>(v);
    return tavo::portable::from_lanes<__m512i, std::int32_t>(
        [&](unsigned i) { return tavo::portable::to_int32(std::trunc(from[i])); });
}
inline __m256i _mm512_cvtpd_epi32(__m512d v) {
    const auto from = tavo::portable::lanes<double>(v);
    return tavo::portable::from_lanes<__m256i, std::int32_t>(
        [&](unsigned i) { return tavo::portable::to_int32(std::nearbyint(from[i])); });
}
inline __m256i _mm512_cvttpd_epi32(__m512d v) {
    const auto from = tavo::portable::lanes<double>(v);
    return tavo::portable::from_lanes<__m256i, std::int32_t>(
        [&](unsigned i) { return tavo::portable::to_int32(std::trunc(from[i])); });
}

#define TAVO_SATURATE(name, Result, To, V, From)                                                                       \
    inline Result name(V v) { return tavo::portable::saturate<To, From, Result>(v); }
TAVO_SATURATE(_mm512_cvtusepi16_epi8, __m256i, std::uint8_t, __m512i, std::uint16_t)
TAVO_SATURATE(_mm512_cvtusepi32_epi8, __m128i, std::uint8_t, __m512i, std::uint32_t)
TAVO_SATURATE(_mm512_cvtusepi32_epi16, __m256i, std::uint16_t, __m512i, std::uint32_t)
TAVO_SATURATE(_mm512_cvtusepi64_epi32, __m256i, std::uint32_t, __m512i, std::uint64_t)
TAVO_SATURATE(_mm512_cvtsepi32_epi8, __m128i, std::int8_t, __m512i, std::int32_t)
TAVO_SATURATE(_mm512_cvtsepi32_epi16, __m256i, std::int16_t, __m512i, std::int32_t)
#undef TAVO_SATURATE
