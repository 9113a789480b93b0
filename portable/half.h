// Half floats: 1 sign bit, 5 of exponent, 10 of fraction.
#pragma once

#include <bit>
#include <cstdint>

#include "portable/lanes.h"

namespace tavo::portable {

// A NaN keeps the upper bits of its payload and becomes quiet.
inline float float_of_half(std::uint16_t half) {
    const std::uint32_t sign = static_cast<std::uint32_t>(half & 0x8000) << 16;
    std::uint32_t exponent = half >> 10 & 31, fraction = half & 0x3ff;
    if (exponent == 31)
        return std::bit_cast<float>(sign | 0x7f800000 | (fraction == 0 ? 0 : 0x400000 | fraction << 13));
    if (exponent == 0) {
        if (fraction == 0)
            return std::bit_cast<float>(sign);
        for (exponent = 1; (fraction & 0x400) == 0; exponent--) // a denormal: its first set bit becomes the hidden one
            fraction <<= 1;
    }
    return std::bit_cast<float>(sign | (exponent + 112) << 23 | (fraction & 0x3ff) << 13);
}
// Rounding: 0 to nearest with ties to even, 1 down, 2 up, 3 towards zero; 4 as the process has it, which is to nearest.
inline std::uint16_t half_of_float(float number, int rounding) {
    const std::uint32_t bits = std::bit_cast<std::uint32_t>(number), magnitude = bits & 0x7fffffff;
    const std::uint32_t sign = bits >> 16 & 0x8000;
    if (magnitude > 0x7f800000)
        return static_cast<std::uint16_t>(sign | 0x7e00 | (magnitude >> 13 & 0x3ff));
    if (magnitude == 0x7f800000)
        return static_cast<std::uint16_t>(sign | 0x7c00);
    // What a half keeps, as a number of its last places, and what is cut off below.
    const std::uint32_t exponent = magnitude >> 23;
    const std::uint64_t fraction = (exponent == 0 ? 0 : 0x800000u) | (magnitude & 0x7fffff);
    const unsigned cut = exponent >= 113 ? 13 : exponent >= 90 ? 126 - exponent : 37;
    const std::uint64_t kept = fraction >> cut, rest = fraction & ((1ull << cut) - 1), tie = 1ull << (cut - 1);
    const bool up = (rounding & 4) != 0 || (rounding & 3) == 0 ? rest > tie || (rest == tie && (kept & 1) != 0)
                    : (rounding & 3) == 1                      ? sign != 0 && rest != 0
                    : (rounding & 3) == 2                      ? sign == 0 && rest != 0
                                                               : false;
    // A carry out of the fraction raises the exponent, as it should.
    const std::uint64_t half =
        (exponent >= 113 ? (static_cast<std::uint64_t>(exponent - 113) << 10) + kept : kept) + up;
    if (half < 0x7c00)
        return static_cast<std::uint16_t>(sign | half);
    // Too large: infinity, or the largest number where rounding is towards zero from here.
    const bool towards_zero = (rounding & 4) == 0 && ((rounding & 3) == 3 || ((rounding & 3) == 1 && sign == 0) ||
                                                      ((rounding & 3) == 2 && sign != 0));
    return static_cast<std::uint16_t>(sign | (towards_zero ? 0x7bff : 0x7c00));
}

template <class Floats, class Halves>
inline Floats floats_of_halves(Halves v) {
    const auto half = lanes<std::uint16_t>(v);
    return from_lanes<Floats, float>([&](unsigned i) { return float_of_half(half[i]); });
}
template <class Halves, class Floats>
inline Halves halves_of_floats(Floats v, int rounding) {
    const auto number = lanes<float>(v);
    return from_lanes<Halves, std::uint16_t>(
        [&](unsigned i) { return i < number.size() ? half_of_float(number[i], rounding) : std::uint16_t{0}; });
}

} // namespace tavo::portable

inline __m512 _mm512_cvtph_ps(__m256i v) { return tavo::portable::floats_of_halves<__m512>(v); }
inline __m256 _mm256_cvtph_ps(__m128i v) { return tavo::portable::floats_of_halves<__m256>(v); }
inline __m128 _mm_cvtph_ps(__m128i v) { return tavo::portable::floats_of_halves<__m128>(v); }
inline __m256i _mm512_cvtps_ph(__m512 v, int rounding) {
    return tavo::portable::halves_of_floats<__m256i>(v, rounding);
}
inline __m128i _mm256_cvtps_ph(__m256 v, int rounding) {
    return tavo::portable::halves_of_floats<__m128i>(v, rounding);
}
inline __m128i _mm_cvtps_ph(__m128 v, int rounding) { return tavo::portable::halves_of_floats<__m128i>(v, rounding); }
