// Lanes moved about: shuffles, permutations, compression, expansion.
#pragma once

#include <cstdint>
#include <cstring>

#include "portable/lanes.h"

#ifndef _MM_SHUFFLE
#define _MM_SHUFFLE(d, c, b, a) ((d) << 6 | (c) << 4 | (b) << 2 | (a))
#endif
// Of the 256 names of a selection of four lanes, those that repeat one lane.
#ifndef _MM_PERM_AAAA
#define _MM_PERM_AAAA 0x00
#define _MM_PERM_BBBB 0x55
#define _MM_PERM_CCCC 0xaa
#define _MM_PERM_DDDD 0xff
#endif

namespace tavo::portable {

// The chosen lanes, next to each other from lane 0 on; `behind` keeps its lanes above them.
template <class Lane, class Vector>
inline Vector compress(Vector behind, std::uint64_t mask, Vector v) {
    const auto from = lanes<Lane>(v);
    auto to = lanes<Lane>(behind);
    unsigned n = 0;
    for (unsigned i = 0; i < from.size(); i++)
        if (bit(mask, i))
            to[n++] = from[i];
    return whole<Vector>(to);
}
// The low lanes of v to the chosen lanes of `otherwise`.
template <class Lane, class Vector>
inline Vector expand(Vector otherwise, std::uint64_t mask, Vector v) {
    const auto from = lanes<Lane>(v);
    auto to = lanes<Lane>(otherwise);
    unsigned n = 0;
    for (unsigned i = 0; i < to.size(); i++)
        if (bit(mask, i))
            to[i] = from[n++];
    return whole<Vector>(to);
}
template <class Lane, class Vector>
inline void compress_store(void *to, std::uint64_t mask, Vector v) {
    const auto from = lanes<Lane>(v);
    auto *next = static_cast<char *>(to);
    for (unsigned i = 0; i < from.size(); i++)
        if (bit(mask, i)) {
            std::memcpy(next, &from[i], sizeof(Lane));
            next += sizeof(Lane);
        }
}
// Four of a's lanes of 128 or 64 bits ... two of a, then two of b, by the selectors of two bits.
template <class Lane, class Vector>
inline Vector two_and_two(Vector a, Vector b, int selectors) {
    constexpr unsigned part = sizeof(Vector) / 4 / sizeof(Lane);
    const auto x = lanes<Lane>(a), y = lanes<Lane>(b);
    return from_lanes<Vector, Lane>([&](unsigned i) {
        const unsigned place = i / part, from = static_cast<unsigned>(selectors) >> 2 * place & 3;
        return (place < 2 ? x : y)[from * part + i % part];
    });
}

} // namespace tavo::portable

#define TAVO_COMPRESS(prefix, V, Lane, type)                                                                           \
    inline V prefix##_maskz_compress_##type(std::uint64_t mask, V v) {                                                 \
        return tavo::portable::compress<Lane>(tavo::portable::zero<V>(), mask, v);                                     \
    }                                                                                                                  \
    inline V prefix##_mask_compress_##type(V behind, std::uint64_t mask, V v) {                                        \
        return tavo::portable::compress<Lane>(behind, mask, v);                                                        \
    }                                                                                                                  \
    inline void prefix##_mask_compressstoreu_##type(void *to, std::uint64_t mask, V v) {                               \
        tavo::portable::compress_store<Lane>(to, mask, v);                                                             \
    }                                                                                                                  \
    inline V prefix##_maskz_expand_##type(std::uint64_t mask, V v) {                                                   \
        return tavo::portable::expand<Lane>(tavo::portable::zero<V>(), mask, v);                                       \
    }                                                                                                                  \
    inline V prefix##_mask_expand_##type(V otherwise, std::uint64_t mask, V v) {                                       \
        return tavo::portable::expand<Lane>(otherwise, mask, v);                                                       \
    }
TAVO_COMPRESS(_mm512, __m512i, std::uint32_t, epi32)
TAVO_COMPRESS(_mm512, __m512i, std::uint64_t, epi64)
TAVO_COMPRESS(_mm512, __m512, float, ps)
TAVO_COMPRESS(_mm512, __m512d, double, pd)
TAVO_COMPRESS(_mm256, __m256i, std::uint32_t, epi32)
TAVO_COMPRESS(_mm256, __m256i, std::uint64_t, epi64)
#undef TAVO_COMPRESS

inline __m512i _mm512_shuffle_epi32(__m512i v, int selectors) {
    const auto from = tavo::portable::lanes<std::uint32_t>(v);
    return tavo::portable::from_lanes<__m512i, std::uint32_t>(
        [&](unsigned i) { return from[i / 4 * 4 + (static_cast<unsigned>(selectors) >> 2 * (i % 4) & 3)]; });
}
// Bytes of each 128-bit part, moved up by `count` with zeros below; nothing is left from 16 on.
inline __m512i _mm512_bslli_epi128(__m512i v, int count) {
    const auto from = tavo::portable::lanes<std::uint8_t>(v);
    const unsigned by = static_cast<unsigned>(count) & 0xff;
    return tavo::portable::from_lanes<__m512i, std::uint8_t>(
        [&](unsigned i) { return i % 16 >= by ? from[i - by] : std::uint8_t{0}; });
}
inline __m512i _mm512_bsrli_epi128(__m512i v, int count) {
    const auto from = tavo::portable::lanes<std::uint8_t>(v);
    const unsigned by = static_cast<unsigned>(count) & 0xff;
    return tavo::portable::from_lanes<__m512i, std::uint8_t>(
        [&](unsigned i) { return i % 16 + by < 16 ? from[i + by] : std::uint8_t{0}; });
}
inline __m512i _mm512_shuffle_i32x4(__m512i a, __m512i b, int selectors) {
    return tavo::portable::two_and_two<std::uint32_t>(a, b, selectors);
}
inline __m512i _mm512_shuffle_i64x2(__m512i a, __m512i b, int selectors) {
    return tavo::portable::two_and_two<std::uint64_t>(a, b, selectors);
}
inline __m512i _mm512_maskz_shuffle_i32x4(std::uint64_t mask, __m512i a, __m512i b, int selectors) {
    return tavo::portable::choose<std::uint32_t>(mask, _mm512_shuffle_i32x4(a, b, selectors),
                                                 tavo::portable::zero<__m512i>());
}

// One part of a register: of 128 bits in four, or of 256 bits in two.
#define TAVO_EXTRACT(name, Part, V512)                                                                                 \
    inline Part name(V512 v, int part) {                                                                               \
        const auto from = tavo::portable::lanes<std::uint64_t>(v);                                                     \
        constexpr unsigned n = tavo::portable::lanes_in<std::uint64_t, Part>;                                          \
        return tavo::portable::from_lanes<Part, std::uint64_t>(                                                        \
            [&](unsigned i) { return from[static_cast<unsigned>(part) % (8 / n) * n + i]; });                          \
    }
TAVO_EXTRACT(_mm512_extracti64x2_epi64, __m128i, __m512i)
TAVO_EXTRACT(_mm512_extracti32x8_epi32, __m256i, __m512i)
TAVO_EXTRACT(_mm512_extractf64x2_pd, __m128d, __m512d)
TAVO_EXTRACT(_mm512_extractf32x8_ps, __m256, __m512)
#undef TAVO_EXTRACT
