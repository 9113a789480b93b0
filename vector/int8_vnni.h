// int8 against int8 with multiply-add of bytes into 32-bit integers: whole blocks are exact, and rounded once each.
//
// Lane i of a group of 64 elements sums those of number 2i, 2i + 1, 2i + 32 and 2i + 33. Three groups make a block
// while more than 192 elements remain; its integers become binary32 and are added to a binary32 accumulator.
//
// The instruction multiplies an unsigned with a signed byte. What it sums in a lane are four neighbours, so the groups
// are permuted first; widening them to 16 bits would take two shuffles for either operand in place of one. A signed
// factor is made unsigned by adding 128, and 128 times the other one is subtracted again at the end of the block.
#pragma once

#include "vector/metrics.h"

namespace tavo::vector {

// 16-bit pieces i and i + 16 of a group to lane i.
[[gnu::always_inline]] inline __m512i lanes_of_group(__m512i group) {
    struct alignas(64) indices {
        ub2 piece[32];
    };
    static constexpr indices order = [] {
        indices t{};
        for (unsigned i = 0; i < 32; i++)
            t.piece[i] = static_cast<ub2>(i / 2 + i % 2 * 16);
        return t;
    }();
    return _mm512_permutexvar_epi16(_mm512_load_si512(order.piece), group);
}

[[gnu::always_inline]] inline __m512i flipped_tops(__m512i v) {
    return _mm512_xor_si512(v, _mm512_set1_epi8(static_cast<char>(0x80)));
}

// The exact sums of a block.
template <class Metric>
struct int8_block;

// The magnitude d of the difference is an unsigned byte. As a signed one it is d - 256 where its top bit is set, so
// twice the products with that bit alone, -128, are what is missing.
template <>
struct int8_block<euclid> {
    static constexpr int sums = 1;
    __m512i squares, with_top;

    [[gnu::always_inline]] void clear() { squares = with_top = _mm512_setzero_si512(); }
    [[gnu::always_inline]] void add(__m512i a, __m512i b) {
        const __m512i d = lanes_of_group(_mm512_sub_epi8(_mm512_max_epi8(a, b), _mm512_min_epi8(a, b)));
        squares = _mm512_dpbusd_epi32(squares, d, d);
        with_top = _mm512_dpbusd_epi32(with_top, d, _mm512_and_si512(d, _mm512_set1_epi8(static_cast<char>(0x80))));
    }
    [[gnu::always_inline]] void end(__m512i (&sum)[1]) const {
        sum[0] = _mm512_sub_epi32(squares, _mm512_slli_epi32(with_top, 1));
    }
};

template <>
struct int8_block<dotprod> {
    static constexpr int sums = 1;
    __m512i products, too_much;

    [[gnu::always_inline]] void clear() { products = too_much = _mm512_setzero_si512(); }
    [[gnu::always_inline]] void add(__m512i left, __m512i right) {
        const __m512i a = lanes_of_group(left), b = lanes_of_group(right);
        products = _mm512_dpbusd_epi32(products, flipped_tops(a), b);
        too_much = _mm512_dpbusd_epi32(too_much, _mm512_set1_epi8(static_cast<char>(0x80)), b);
    }
    [[gnu::always_inline]] void end(__m512i (&sum)[1]) const { sum[0] = _mm512_sub_epi32(products, too_much); }
};

template <>
struct int8_block<cosine> {
    static constexpr int sums = 3;
    __m512i products, left_squares, right_squares, left_too_much, right_too_much;

    [[gnu::always_inline]] void clear() {
        products = left_squares = right_squares = left_too_much = right_too_much = _mm512_setzero_si512();
    }
    [[gnu::always_inline]] void add(__m512i left, __m512i right) {
        const __m512i a = lanes_of_group(left), b = lanes_of_group(right);
        const __m512i a_u8 = flipped_tops(a), b_u8 = flipped_tops(b);
        const __m512i top = _mm512_set1_epi8(static_cast<char>(0x80));
        products = _mm512_dpbusd_epi32(products, a_u8, b);
        left_squares = _mm512_dpbusd_epi32(left_squares, a_u8, a);
        right_squares = _mm512_dpbusd_epi32(right_squares, b_u8, b);
        left_too_much = _mm512_dpbusd_epi32(left_too_much, top, a);
        right_too_much = _mm512_dpbusd_epi32(right_too_much, top, b);
    }
    [[gnu::always_inline]] void end(__m512i (&sum)[3]) const {
        sum[0] = _mm512_sub_epi32(products, right_too_much);
        sum[1] = _mm512_sub_epi32(left_squares, left_too_much);
        sum[2] = _mm512_sub_epi32(right_squares, right_too_much);
    }
};

template <class Metric>
[[gnu::always_inline]] inline typename Metric::totals dense_int8_vnni(ub4 dims, const void *left, const void *right) {
    using block_sums = int8_block<Metric>;
    constexpr int n = block_sums::sums;
    const auto *a = static_cast<const ub1 *>(left), *b = static_cast<const ub1 *>(right);
    __m512 rounded[n];
#pragma GCC unroll 3
    for (int k = 0; k < n; k++)
        rounded[k] = _mm512_setzero_ps();
    const auto end_block = [&](const block_sums &block) __attribute__((always_inline)) {
        __m512i sum[n];
        block.end(sum);
#pragma GCC unroll 3
        for (int k = 0; k < n; k++)
            rounded[k] = _mm512_add_ps(rounded[k], _mm512_cvtepi32_ps(sum[k]));
    };
    block_sums block;
    for (; dims > 192; dims -= 192, a += 192, b += 192) {
        block.clear();
#pragma GCC unroll 3
        for (int g = 0; g < 3; g++)
            block.add(_mm512_loadu_si512(a + 64 * g), _mm512_loadu_si512(b + 64 * g));
        end_block(block);
    }
#pragma GCC unroll 1
    for (; dims > 64; dims -= 64, a += 64, b += 64) {
        block.clear();
        block.add(_mm512_loadu_si512(a), _mm512_loadu_si512(b));
        end_block(block);
    }
    const __mmask64 m = _bzhi_u64(~0ull, dims);
    block.clear();
    block.add(_mm512_maskz_loadu_epi8(m, a), _mm512_maskz_loadu_epi8(m, b));
    end_block(block);

    if constexpr (n == 1)
        return {f32_lanes::sum(rounded[0])};
    else
        return {f32_lanes::sum(rounded[0]), f32_lanes::sum(rounded[1]), f32_lanes::sum(rounded[2])};
}

} // namespace tavo::vector
