// Loads and stores. A masked one touches no byte of a lane that its mask lacks.
#pragma once

#include <cstdint>
#include <cstring>

#include "portable/lanes.h"

#ifndef __SSE__ // where SIMDe has no header of the processor to bring these
enum _mm_hint { _MM_HINT_T0 = 3 };
#define _mm_prefetch(address, hint) __builtin_prefetch(address, 0, hint)
#endif

namespace tavo::portable {

template <class Vector>
inline Vector load(const void *from) {
    Vector v;
    std::memcpy(&v, from, sizeof v);
    return v;
}
template <class Lane, class Vector>
inline Vector masked_load(Vector otherwise, std::uint64_t mask, const void *from) {
    auto result = lanes<Lane>(otherwise);
    for (unsigned i = 0; i < result.size(); i++)
        if (bit(mask, i))
            std::memcpy(&result[i], static_cast<const char *>(from) + i * sizeof(Lane), sizeof(Lane));
    return whole<Vector>(result);
}
template <class Lane, class Vector>
inline void masked_store(void *to, std::uint64_t mask, Vector v) {
    const auto of = lanes<Lane>(v);
    for (unsigned i = 0; i < of.size(); i++)
        if (bit(mask, i))
            std::memcpy(static_cast<char *>(to) + i * sizeof(Lane), &of[i], sizeof(Lane));
}
// Lane i from address base + index[i] * scale, for as many lanes as both vectors have.
template <class Lane, class Index, class Vector, class Indices>
inline Vector gather(Vector otherwise, std::uint64_t mask, Indices indices, const void *base, int scale) {
    auto result = lanes<Lane>(otherwise);
    const auto index = lanes<Index>(indices);
    for (unsigned i = 0; i < result.size() && i < index.size(); i++)
        if (bit(mask, i))
            std::memcpy(&result[i], static_cast<const char *>(base) + static_cast<std::int64_t>(index[i]) * scale,
                        sizeof(Lane));
    return whole<Vector>(result);
}
// In lane order, so of two lanes with one address the higher stays.
template <class Lane, class Index, class Vector, class Indices>
inline void scatter(void *base, std::uint64_t mask, Indices indices, Vector v, int scale) {
    const auto of = lanes<Lane>(v);
    const auto index = lanes<Index>(indices);
    for (unsigned i = 0; i < of.size() && i < index.size(); i++)
        if (bit(mask, i))
            std::memcpy(static_cast<char *>(base) + static_cast<std::int64_t>(index[i]) * scale, &of[i], sizeof(Lane));
}

} // namespace tavo::portable

#define TAVO_MASKED_MEMORY(prefix, V, Lane, type)                                                                      \
    inline V prefix##_mask_loadu_##type(V otherwise, std::uint64_t mask, const void *from) {                           \
        return tavo::portable::masked_load<Lane>(otherwise, mask, from);                                               \
    }                                                                                                                  \
    inline V prefix##_maskz_loadu_##type(std::uint64_t mask, const void *from) {                                       \
        return tavo::portable::masked_load<Lane>(tavo::portable::zero<V>(), mask, from);                               \
    }                                                                                                                  \
    inline void prefix##_mask_storeu_##type(void *to, std::uint64_t mask, V v) {                                       \
        tavo::portable::masked_store<Lane>(to, mask, v);                                                               \
    }
#define TAVO_MEMORY(prefix, V, F, D)                                                                                   \
    TAVO_MASKED_MEMORY(prefix, V, std::uint8_t, epi8)                                                                  \
    TAVO_MASKED_MEMORY(prefix, V, std::uint16_t, epi16)                                                                \
    TAVO_MASKED_MEMORY(prefix, V, std::uint32_t, epi32)                                                                \
    TAVO_MASKED_MEMORY(prefix, V, std::uint64_t, epi64)                                                                \
    TAVO_MASKED_MEMORY(prefix, F, float, ps)                                                                           \
    TAVO_MASKED_MEMORY(prefix, D, double, pd)
TAVO_MEMORY(_mm512, __m512i, __m512, __m512d)
TAVO_MEMORY(_mm256, __m256i, __m256, __m256d)
TAVO_MEMORY(_mm, __m128i, __m128, __m128d)
#undef TAVO_MASKED_MEMORY
#undef TAVO_MEMORY

#define TAVO_GATHER(name, V, Lane, I, Index)                                                                           \
    inline V _mm512_##name(I indices, const void *base, int scale) {                                                   \
        return tavo::portable::gather<Lane, Index>(tavo::portable::zero<V>(), ~0ull, indices, base, scale);            \
    }                                                                                                                  \
    inline V _mm512_mask_##name(V otherwise, std::uint64_t mask, I indices, const void *base, int scale) {             \
        return tavo::portable::gather<Lane, Index>(otherwise, mask, indices, base, scale);                             \
    }
TAVO_GATHER(i32gather_epi32, __m512i, std::uint32_t, __m512i, std::int32_t)
TAVO_GATHER(i32gather_epi64, __m512i, std::uint64_t, __m256i, std::int32_t)
TAVO_GATHER(i64gather_epi32, __m256i, std::uint32_t, __m512i, std::int64_t)
TAVO_GATHER(i64gather_epi64, __m512i, std::uint64_t, __m512i, std::int64_t)
TAVO_GATHER(i32gather_ps, __m512, float, __m512i, std::int32_t)
TAVO_GATHER(i32gather_pd, __m512d, double, __m256i, std::int32_t)
#undef TAVO_GATHER
inline __m256i _mm256_i32gather_epi32(const int *base, __m256i indices, int scale) {
    return tavo::portable::gather<std::uint32_t, std::int32_t>(tavo::portable::zero<__m256i>(), ~0ull, indices, base,
                                                               scale);
}

#define TAVO_SCATTER(name, V, Lane, I, Index)                                                                          \
    inline void _mm512_##name(void *base, I indices, V v, int scale) {                                                 \
        tavo::portable::scatter<Lane, Index>(base, ~0ull, indices, v, scale);                                          \
    }                                                                                                                  \
    inline void _mm512_mask_##name(void *base, std::uint64_t mask, I indices, V v, int scale) {                        \
        tavo::portable::scatter<Lane, Index>(base, mask, indices, v, scale);                                           \
    }
TAVO_SCATTER(i32scatter_epi32, __m512i, std::uint32_t, __m512i, std::int32_t)
TAVO_SCATTER(i32scatter_epi64, __m512i, std::uint64_t, __m256i, std::int32_t)
TAVO_SCATTER(i64scatter_epi32, __m256i, std::uint32_t, __m512i, std::int64_t)
TAVO_SCATTER(i64scatter_epi64, __m512i, std::uint64_t, __m512i, std::int64_t)
#undef TAVO_SCATTER
