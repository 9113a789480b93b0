// Operations under a mask: a lane that the mask lacks keeps what it was, or is zero.
#pragma once

#include <cstdint>

#include "portable/lanes.h"

#define TAVO_MASKED_2(prefix, V, Lane, name)                                                                           \
    inline V prefix##_mask_##name(V otherwise, std::uint64_t mask, V a, V b) {                                         \
        return tavo::portable::choose<Lane>(mask, prefix##_##name(a, b), otherwise);                                   \
    }                                                                                                                  \
    inline V prefix##_maskz_##name(std::uint64_t mask, V a, V b) {                                                     \
        return tavo::portable::choose<Lane>(mask, prefix##_##name(a, b), tavo::portable::zero<V>());                   \
    }
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, add_epi32)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, add_epi64)
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, sub_epi32)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, sub_epi64)
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, and_epi32)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, and_epi64)
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, or_epi32)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, or_epi64)
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, xor_epi32)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, xor_epi64)
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, min_epu32)
TAVO_MASKED_2(_mm512, __m512i, std::uint32_t, max_epu32)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, min_epu64)
TAVO_MASKED_2(_mm512, __m512i, std::uint64_t, max_epu64)
TAVO_MASKED_2(_mm512, __m512i, std::uint8_t, shuffle_epi8)
TAVO_MASKED_2(_mm512, __m512, float, add_ps)
TAVO_MASKED_2(_mm512, __m512d, double, add_pd)
TAVO_MASKED_2(_mm512, __m512, float, sub_ps)
TAVO_MASKED_2(_mm512, __m512d, double, sub_pd)
TAVO_MASKED_2(_mm512, __m512, float, mul_ps)
TAVO_MASKED_2(_mm512, __m512d, double, mul_pd)
TAVO_MASKED_2(_mm512, __m512d, double, div_pd)
#undef TAVO_MASKED_2

// A move, a blend (b where the mask is set), and one value for the chosen lanes.
#define TAVO_MASKED_MOVES(prefix, V, Lane, type)                                                                       \
    inline V prefix##_mask_mov_##type(V otherwise, std::uint64_t mask, V v) {                                          \
        return tavo::portable::choose<Lane>(mask, v, otherwise);                                                       \
    }                                                                                                                  \
    inline V prefix##_maskz_mov_##type(std::uint64_t mask, V v) {                                                      \
        return tavo::portable::choose<Lane>(mask, v, tavo::portable::zero<V>());                                       \
    }                                                                                                                  \
    inline V prefix##_mask_blend_##type(std::uint64_t mask, V a, V b) {                                                \
        return tavo::portable::choose<Lane>(mask, b, a);                                                               \
    }
#define TAVO_MASKED_SET1(prefix, V, Lane, type)                                                                        \
    inline V prefix##_mask_set1_##type(V otherwise, std::uint64_t mask, Lane value) {                                  \
        return tavo::portable::choose<Lane>(                                                                           \
            mask, tavo::portable::from_lanes<V, Lane>([&](unsigned) { return value; }), otherwise);                    \
    }                                                                                                                  \
    inline V prefix##_maskz_set1_##type(std::uint64_t mask, Lane value) {                                              \
        return prefix##_mask_set1_##type(tavo::portable::zero<V>(), mask, value);                                      \
    }
#define TAVO_MASKED(prefix, V, F, D)                                                                                   \
    TAVO_MASKED_MOVES(prefix, V, std::uint8_t, epi8)                                                                   \
    TAVO_MASKED_MOVES(prefix, V, std::uint16_t, epi16)                                                                 \
    TAVO_MASKED_MOVES(prefix, V, std::uint32_t, epi32)                                                                 \
    TAVO_MASKED_MOVES(prefix, V, std::uint64_t, epi64)                                                                 \
    TAVO_MASKED_MOVES(prefix, F, float, ps)                                                                            \
    TAVO_MASKED_MOVES(prefix, D, double, pd)                                                                           \
    TAVO_MASKED_SET1(prefix, V, std::int8_t, epi8)                                                                     \
    TAVO_MASKED_SET1(prefix, V, std::int16_t, epi16)                                                                   \
    TAVO_MASKED_SET1(prefix, V, std::int32_t, epi32)                                                                   \
    TAVO_MASKED_SET1(prefix, V, std::int64_t, epi64)
TAVO_MASKED(_mm512, __m512i, __m512, __m512d)
TAVO_MASKED(_mm256, __m256i, __m256, __m256d)
TAVO_MASKED(_mm, __m128i, __m128, __m128d)
#undef TAVO_MASKED_MOVES
#undef TAVO_MASKED_SET1
#undef TAVO_MASKED

// The second operand where either is NaN, and of two zeros.
inline __m512d _mm512_min_pd(__m512d a, __m512d b) {
    const auto x = tavo::portable::lanes<double>(a), y = tavo::portable::lanes<double>(b);
    return tavo::portable::from_lanes<__m512d, double>([&](unsigned i) { return x[i] < y[i] ? x[i] : y[i]; });
}
inline __m512d _mm512_max_pd(__m512d a, __m512d b) {
    const auto x = tavo::portable::lanes<double>(a), y = tavo::portable::lanes<double>(b);
    return tavo::portable::from_lanes<__m512d, double>([&](unsigned i) { return x[i] > y[i] ? x[i] : y[i]; });
}
// All bits of the chosen lanes.
inline __m128i _mm_movm_epi8(std::uint64_t mask) {
    return tavo::portable::from_lanes<__m128i, std::uint8_t>(
        [&](unsigned i) { return static_cast<std::uint8_t>(tavo::portable::bit(mask, i) ? 0xff : 0); });
}
// The sign cleared, of a NaN too.
inline __m512 _mm512_abs_ps(__m512 v) {
    const auto of = tavo::portable::lanes<std::uint32_t>(v);
    return tavo::portable::from_lanes<__m512, std::uint32_t>([&](unsigned i) { return of[i] & 0x7fffffff; });
}
inline __m512d _mm512_abs_pd(__m512d v) {
    const auto of = tavo::portable::lanes<std::uint64_t>(v);
    return tavo::portable::from_lanes<__m512d, std::uint64_t>([&](unsigned i) { return of[i] & ~0ull >> 1; });
}
