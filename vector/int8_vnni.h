// int8 against int8 with multiply-add into 32-bit integers: whole blocks are exact, and rounded once each.
//
// Lane i of a group of 64 elements sums elements 2i, 2i + 1, 2i + 32, 2i + 33: those of the two 16-bit registers that a
// group is widened to. Three groups make a block while more than 192 elements remain; its integers become binary32 and
// are added to a binary32 accumulator.
#pragma once

#include "vector/metrics.h"

namespace tavo::vector {

// 64 elements as 16-bit integers.
struct int8_group {
    __m512i half[2];
};
[[gnu::always_inline]] inline int8_group int8_group_at(const ub1 *p) {
    return {{_mm512_cvtepi8_epi16(load_half(p)), _mm512_cvtepi8_epi16(load_half(p + 32))}};
}
[[gnu::always_inline]] inline int8_group int8_group_at(const ub1 *p, __mmask64 m) {
    const __m512i bytes = _mm512_maskz_loadu_epi8(m, p);
    return {{_mm512_cvtepi8_epi16(_mm512_castsi512_si256(bytes)),
             _mm512_cvtepi8_epi16(_mm512_extracti64x4_epi64(bytes, 1))}};
}

// Adds the products of a group to the integers in `sums`.
[[gnu::always_inline]] inline __m512i multiply_add(__m512i sums, const int8_group &a, const int8_group &b) {
    return _mm512_dpwssd_epi32(_mm512_dpwssd_epi32(sums, a.half[0], b.half[0]), a.half[1], b.half[1]);
}

template <class Metric>
struct int8_sums;

template <>
struct int8_sums<euclid> {
    static constexpr int sums = 1;
    [[gnu::always_inline]] static void add(__m512i (&s)[sums], const int8_group &a, const int8_group &b) {
        const int8_group d = {{_mm512_sub_epi16(b.half[0], a.half[0]), _mm512_sub_epi16(b.half[1], a.half[1])}};
        s[0] = multiply_add(s[0], d, d);
    }
};
template <>
struct int8_sums<dotprod> {
    static constexpr int sums = 1;
    [[gnu::always_inline]] static void add(__m512i (&s)[sums], const int8_group &a, const int8_group &b) {
        s[0] = multiply_add(s[0], a, b);
    }
};
template <>
struct int8_sums<cosine> {
    static constexpr int sums = 3;
    [[gnu::always_inline]] static void add(__m512i (&s)[sums], const int8_group &a, const int8_group &b) {
        s[0] = multiply_add(s[0], a, b);
        s[1] = multiply_add(s[1], a, a);
        s[2] = multiply_add(s[2], b, b);
    }
};

template <class Metric>
[[gnu::always_inline]] inline typename Metric::totals dense_int8_vnni(ub4 dims, const void *left, const void *right) {
    using metric = int8_sums<Metric>;
    constexpr int n = metric::sums;
    const auto *a = static_cast<const ub1 *>(left), *b = static_cast<const ub1 *>(right);
    __m512 rounded[n];
#pragma GCC unroll 3
    for (int k = 0; k < n; k++)
        rounded[k] = _mm512_setzero_ps();
    const auto end_block = [&](const __m512i(&block)[n]) __attribute__((always_inline)) {
#pragma GCC unroll 3
        for (int k = 0; k < n; k++)
            rounded[k] = _mm512_add_ps(rounded[k], _mm512_cvtepi32_ps(block[k]));
    };
    for (; dims > 192; dims -= 192, a += 192, b += 192) {
        __m512i block[n]{};
#pragma GCC unroll 3
        for (int g = 0; g < 3; g++)
            metric::add(block, int8_group_at(a + 64 * g), int8_group_at(b + 64 * g));
        end_block(block);
    }
#pragma GCC unroll 1
    for (; dims > 64; dims -= 64, a += 64, b += 64) {
        __m512i block[n]{};
        metric::add(block, int8_group_at(a), int8_group_at(b));
        end_block(block);
    }
    const __mmask64 m = _bzhi_u64(~0ull, dims);
    __m512i block[n]{};
    metric::add(block, int8_group_at(a, m), int8_group_at(b, m));
    end_block(block);

    if constexpr (n == 1)
        return {f32_lanes::sum(rounded[0])};
    else
        return {f32_lanes::sum(rounded[0]), f32_lanes::sum(rounded[1]), f32_lanes::sum(rounded[2])};
}

} // namespace tavo::vector
