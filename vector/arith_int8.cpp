// Vector arithmetic of int8 with an int8 result, 64 bytes a register.
//
// Main blocks of 256 elements, then 32 at a time, then one after the other; a block's results are tested before any of
// them is stored. Sums of squares are exact: integers throughout.
#include <type_traits>

#include "vector/arith_bodies.h"
#include "vector/int8_squares.h"
#include "vector/norm.h"

namespace tavo::vector {

namespace {

// Results of 64 elements, low 8 bits; bytes of `over` that are not zero stand where the result is beyond int8.
struct int8_results {
    __m512i bytes, over;
};
[[gnu::always_inline]] inline __m512i even_bytes(__m512i v) { return _mm512_srai_epi16(_mm512_slli_epi16(v, 8), 8); }
[[gnu::always_inline]] inline __m512i odd_bytes(__m512i v) { return _mm512_srai_epi16(v, 8); }

// A sum is beyond int8 where saturating it makes a difference.
[[gnu::always_inline]] inline int8_results of_int8(op_add, __m512i a, __m512i b) {
    const __m512i sum = _mm512_add_epi8(a, b);
    return {sum, _mm512_xor_si512(sum, _mm512_adds_epi8(a, b))};
}
[[gnu::always_inline]] inline int8_results of_int8(op_sub, __m512i a, __m512i b) {
    const __m512i difference = _mm512_sub_epi8(a, b);
    return {difference, _mm512_xor_si512(difference, _mm512_subs_epi8(a, b))};
}
[[gnu::always_inline]] inline int8_results of_int8(op_mul, __m512i a, __m512i b) {
    const __m512i low_m8x64 = _mm512_set1_epi16(0xff), offset = _mm512_set1_epi16(128);
    const __m512i even = _mm512_mullo_epi16(even_bytes(a), even_bytes(b));
    const __m512i odd = _mm512_mullo_epi16(odd_bytes(a), odd_bytes(b));
    // (low and even) or (not low and odd): 0xca
    const __m512i bytes = _mm512_ternarylogic_epi32(low_m8x64, even, _mm512_slli_epi16(odd, 8), 0xca);
    const __m512i over = _mm512_ternarylogic_epi32(low_m8x64, _mm512_srli_epi16(_mm512_add_epi16(even, offset), 8),
                                                   _mm512_add_epi16(odd, offset), 0xca);
    return {bytes, over};
}

// Squares of 64 elements in 32-bit lanes, four to a lane.
[[gnu::always_inline]] inline __m512i int8_squares(__m512i v) {
    const __m512i even = even_bytes(v), odd = odd_bytes(v);
    return _mm512_add_epi32(_mm512_madd_epi16(even, even), _mm512_madd_epi16(odd, odd));
}
// Elements before the first wrong one of a rest stand written.
[[gnu::always_inline]] inline __mmask64 before_first(__mmask64 wrong, __mmask64 all) {
    return wrong != 0 ? (wrong - 1) & ~wrong & all : all;
}

template <class Op>
[[gnu::always_inline]] inline ub4 in_bytes(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm,
                                           arith_shape shape) noexcept {
    constexpr unsigned registers = 4, middle = 32;
    __m512i number = _mm512_setzero_si512(), squares = _mm512_setzero_si512();
    if (shape.scalar)
        number = _mm512_set1_epi8(static_cast<char>(*b));
    const auto second = [&](unsigned at, __mmask64 m) __attribute__((always_inline)) {
        return shape.scalar ? number : _mm512_maskz_loadu_epi8(m, b + at);
    };
    const auto advance = [&](unsigned n) __attribute__((always_inline)) {
        dims -= n;
        a += n;
        b += shape.scalar ? 0 : n;
        out += n;
    };
    while (dims >= 64 * registers) {
        int8_results r[registers];
        __m512i over = _mm512_setzero_si512();
#pragma GCC unroll 4
        for (unsigned k = 0; k < registers; k++) {
            r[k] =
                of_int8(Op{}, _mm512_loadu_si512(a + 64 * k), shape.scalar ? number : _mm512_loadu_si512(b + 64 * k));
            over = _mm512_or_si512(over, r[k].over);
        }
        if (_mm512_test_epi32_mask(over, over) != 0) [[unlikely]]
            return TAVO_OUT_OF_RANGE;
        if (shape.norm) {
            __m512i block = int8_squares(r[0].bytes);
#pragma GCC unroll 4
            for (unsigned k = 1; k < registers; k++)
                block = _mm512_add_epi32(block, int8_squares(r[k].bytes));
            squares = widened_sum(squares, block);
        }
#pragma GCC unroll 4
        for (unsigned k = 0; k < registers; k++)
            _mm512_storeu_si512(out + 64 * k, r[k].bytes);
        advance(64 * registers);
    }
#pragma GCC unroll 1
    while (dims != 0) {
        const unsigned n = dims < middle ? dims : middle;
        const __mmask64 all = _bzhi_u64(~0ull, n);
        const int8_results r = of_int8(Op{}, _mm512_maskz_loadu_epi8(all, a), second(0, all));
        const __mmask64 wrong = _mm512_test_epi8_mask(r.over, r.over) & all;
        if (wrong == 0 || n < middle)
            _mm512_mask_storeu_epi8(out, before_first(wrong, all), r.bytes);
        if (wrong != 0)
            return TAVO_OUT_OF_RANGE;
        if (shape.norm)
            squares = widened_sum(squares, int8_squares(_mm512_maskz_mov_epi8(all, r.bytes)));
        advance(n);
    }
    if (!shape.norm)
        return TAVO_DONE;
    return store_norm(total(squares), norm);
}

// Quotients are truncated. 16 at a time in binary32, where a quotient of int8 is never so near the next integer as to
// round to it.
[[gnu::always_inline]] inline ub4 quotients(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm,
                                            arith_shape shape) noexcept {
    if (shape.scalar && *b == 0)
        return TAVO_DIVISION_BY_ZERO;
    using L = loader<form_int8>;
    const __m512i number = _mm512_set1_epi32(shape.scalar ? static_cast<signed char>(*b) : 0);
    __m512i squares = _mm512_setzero_si512();
    while (dims != 0) {
        const unsigned n = dims < 16 ? dims : 16;
        const auto all = f32_lanes::first(n);
        const __m512i x = L::masked(a, all), y = shape.scalar ? number : L::masked(b, all);
        const __m512i quotient = _mm512_cvttps_epi32(_mm512_div_ps(_mm512_cvtepi32_ps(x), _mm512_cvtepi32_ps(y)));
        const __mmask16 zeros = _mm512_mask_testn_epi32_mask(all, y, y);
        const __mmask16 wrong = zeros | _mm512_mask_cmpgt_epi32_mask(all, quotient, _mm512_set1_epi32(127));
        const auto good = static_cast<__mmask16>(before_first(wrong, all));
        _mm_mask_storeu_epi8(out, good, _mm512_cvtepi32_epi8(quotient));
        if (wrong != 0)
            return (wrong & (0u - wrong) & zeros) != 0 ? +TAVO_DIVISION_BY_ZERO : +TAVO_OUT_OF_RANGE;
        if (shape.norm) // lanes behind the end hold 0, or 80000000 of 0 / 0
            squares = widened_sum(squares, squares_u32x16(quotient));
        dims -= n;
        a += n;
        b += shape.scalar ? 0 : n;
        out += n;
    }
    if (!shape.norm)
        return TAVO_DONE;
    return store_norm(total(squares), norm);
}

} // namespace

template <class Op>
ub4 arith_int8(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm, arith_shape shape) noexcept {
    if constexpr (std::is_same_v<Op, op_div>)
        return quotients(dims, a, b, out, norm, shape);
    else
        return in_bytes<Op>(dims, a, b, out, norm, shape);
}
#define TAVO_ARITH_BODY(op)                                                                                            \
    template ub4 arith_int8<op_##op>(ub4, const ub1 *, const ub1 *, ub1 *, double *, arith_shape) noexcept;
TAVO_EACH_ARITH_OP(TAVO_ARITH_BODY)

} // namespace tavo::vector
