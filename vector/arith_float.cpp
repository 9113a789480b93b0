// Vector arithmetic with a result of binary32 or binary64, in the lanes of the result.
//
// Operands are converted to the type of the result (exactly), then there is one rounding. Three stages: main blocks of
// four registers, single registers, a rest below one register, one element after the other. A block's results are
// tested before any of them is stored.
//
// The norm sums the squares of the results in binary64. binary32 squares are rounded as binary32 and then widened;
// binary64 squares are fused with the sum. Lane i of register k of a main block adds to lane i modulo 8 of accumulator
// k, that of a single register to accumulator 0, elements of the rest to a sum of their own. In the end the
// accumulators are reduced by halves and added up in their order, and the sum of the rest last.
#include <type_traits>

#include "vector/arith_bodies.h"
#include "vector/norm.h"

namespace tavo::vector {

namespace {

// ---- Operations ----

[[gnu::always_inline]] inline __m512 of(op_add, __m512 a, __m512 b) { return _mm512_add_ps(a, b); }
[[gnu::always_inline]] inline __m512d of(op_add, __m512d a, __m512d b) { return _mm512_add_pd(a, b); }
[[gnu::always_inline]] inline __m512 of(op_sub, __m512 a, __m512 b) { return _mm512_sub_ps(a, b); }
[[gnu::always_inline]] inline __m512d of(op_sub, __m512d a, __m512d b) { return _mm512_sub_pd(a, b); }
[[gnu::always_inline]] inline __m512 of(op_mul, __m512 a, __m512 b) { return _mm512_mul_ps(a, b); }
[[gnu::always_inline]] inline __m512d of(op_mul, __m512d a, __m512d b) { return _mm512_mul_pd(a, b); }
[[gnu::always_inline]] inline __m512 of(op_div, __m512 a, __m512 b) { return _mm512_div_ps(a, b); }
[[gnu::always_inline]] inline __m512d of(op_div, __m512d a, __m512d b) { return _mm512_div_pd(a, b); }
template <class Op>
constexpr bool divides = std::is_same_v<Op, op_div>;

[[gnu::always_inline]] inline unsigned bytes_of_number(ub1 form) {
    return form == number_int8 ? 1 : form < number_double ? 4 : 8;
}
// Both operands of a division are int8: the rest of a vector is divided as integers are.
[[gnu::always_inline]] inline bool integers(arith_shape shape) {
    return shape.a == number_int8 && shape.b == number_int8;
}

// ---- Lanes of the result ----

struct f32_arith : f32_lanes {
    using element = float;
    template <unsigned N>
    [[gnu::always_inline]] static void load(ub1 form, const ub1 *p, value (&v)[N]) {
        switch (form) {
        case number_float:
#pragma GCC unroll 4
            for (unsigned k = 0; k < N; k++)
                v[k] = loader<form_float>::one(p + 64 * k);
            break;
        case number_Cfloat:
#pragma GCC unroll 4
            for (unsigned k = 0; k < N; k++)
                v[k] = loader<form_Cfloat>::one(p + 64 * k);
            break;
        default:
#pragma GCC unroll 4
            for (unsigned k = 0; k < N; k++)
                v[k] = int8_lanes::number(loader<form_int8>::one(p + 16 * k));
        }
    }
    [[gnu::always_inline]] static value masked(ub1 form, const ub1 *p, mask m) {
        switch (form) {
        case number_float: return loader<form_float>::masked(p, m);
        case number_Cfloat: return loader<form_Cfloat>::masked(p, m);
        default: return int8_lanes::number(loader<form_int8>::masked(p, m));
        }
    }
    [[gnu::always_inline]] static value first_everywhere(value v) {
        return _mm512_permutexvar_ps(_mm512_setzero_si512(), v);
    }
    [[gnu::always_inline]] static value truncated(value v) { return _mm512_cvtepi32_ps(_mm512_cvttps_epi32(v)); }
    [[gnu::always_inline]] static mask zeros(value v) { return _mm512_cmp_ps_mask(v, zero(), _CMP_EQ_OQ); }
    // NaN or infinite.
    [[gnu::always_inline]] static mask out_of_range(value v) { return _mm512_fpclass_ps_mask(v, 0x99); }
    [[gnu::always_inline]] static __m512i bits(value v) { return _mm512_castps_si512(v); }
    [[gnu::always_inline]] static void store(ub1 *out, mask m, __m512i v) { _mm512_mask_storeu_epi32(out, m, v); }
    [[gnu::always_inline]] static __m512d add_squares(value v, __m512d sum) {
        const value squares = _mm512_mul_ps(v, v);
        sum = _mm512_add_pd(sum, _mm512_cvtps_pd(_mm512_castps512_ps256(squares)));
        return _mm512_add_pd(sum, _mm512_cvtps_pd(_mm512_extractf32x8_ps(squares, 1)));
    }
    [[gnu::always_inline]] static void add_square(element v, double &sum) { sum += static_cast<double>(v * v); }
};

struct f64_arith : f64_lanes {
    using element = double;
    [[gnu::always_inline]] static value low(__m512 v) { return _mm512_cvtps_pd(_mm512_castps512_ps256(v)); }
    [[gnu::always_inline]] static value high(__m512 v) { return _mm512_cvtps_pd(_mm512_extractf32x8_ps(v, 1)); }
    template <class Form, unsigned N>
    [[gnu::always_inline]] static void widen(const ub1 *p, value (&v)[N]) {
        using L = typename loader<Form>::lanes;
        if constexpr (N == 1) {
            v[0] = low(L::number(loader<Form>::masked(p, 0xff)));
        } else {
#pragma GCC unroll 4
            for (unsigned k = 0; k < N; k += 2) {
                const auto sixteen = L::number(loader<Form>::one(p + 8 * Form::bytes * k));
                v[k] = low(sixteen);
                v[k + 1] = high(sixteen);
            }
        }
    }
    template <unsigned N>
    [[gnu::always_inline]] static void load(ub1 form, const ub1 *p, value (&v)[N]) {
        switch (form) {
        case number_double:
#pragma GCC unroll 4
            for (unsigned k = 0; k < N; k++)
                v[k] = loader<form_double>::one(p + 64 * k);
            break;
        case number_Cdouble:
#pragma GCC unroll 4
            for (unsigned k = 0; k < N; k++)
                v[k] = loader<form_Cdouble>::one(p + 64 * k);
            break;
        case number_float: widen<form_float>(p, v); break;
        case number_Cfloat: widen<form_Cfloat>(p, v); break;
        default: widen<form_int8>(p, v);
        }
    }
    [[gnu::always_inline]] static value masked(ub1 form, const ub1 *p, mask m) {
        switch (form) {
        case number_double: return loader<form_double>::masked(p, m);
        case number_Cdouble: return loader<form_Cdouble>::masked(p, m);
        case number_float: return low(loader<form_float>::masked(p, m));
        case number_Cfloat: return low(loader<form_Cfloat>::masked(p, m));
        default: return low(int8_lanes::number(loader<form_int8>::masked(p, m)));
        }
    }
    [[gnu::always_inline]] static value first_everywhere(value v) {
        return _mm512_permutexvar_pd(_mm512_setzero_si512(), v);
    }
    [[gnu::always_inline]] static value truncated(value v) { return _mm512_cvtepi32_pd(_mm512_cvttpd_epi32(v)); }
    [[gnu::always_inline]] static mask zeros(value v) { return _mm512_cmp_pd_mask(v, zero(), _CMP_EQ_OQ); }
    [[gnu::always_inline]] static mask out_of_range(value v) { return _mm512_fpclass_pd_mask(v, 0x99); }
    [[gnu::always_inline]] static __m512i bits(value v) { return _mm512_castpd_si512(v); }
    [[gnu::always_inline]] static void store(ub1 *out, mask m, __m512i v) { _mm512_mask_storeu_epi64(out, m, v); }
    [[gnu::always_inline]] static __m512d add_squares(value v, __m512d sum) { return _mm512_fmadd_pd(v, v, sum); }
    [[gnu::always_inline]] static void add_square(element v, double &sum) { sum = __builtin_fma(v, v, sum); }
};

// ---- The body ----

template <class Op, class L>
[[gnu::always_inline]] inline ub4 arith_lanes(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm,
                                              arith_shape shape) {
    using value = typename L::value;
    constexpr unsigned registers = 4, count = L::count;
    // The quotients of int8 vectors are not tested in lanes: an infinity or NaN is stored as it comes.
    const bool tested = !(divides<Op> && integers(shape));

    value number = L::zero();
    if (shape.scalar) {
        if (!tested && *b == 0)
            return TAVO_DIVISION_BY_ZERO;
        number = L::first_everywhere(L::masked(shape.b, b, 1));
    }
    __m512d sums[registers];
#pragma GCC unroll 4
    for (unsigned k = 0; k < registers; k++)
        sums[k] = _mm512_setzero_pd();

    const unsigned a_bytes = bytes_of_number(shape.a), b_bytes = shape.scalar ? 0 : bytes_of_number(shape.b);
    const auto step = [&](auto block) __attribute__((always_inline)) {
        constexpr unsigned n = decltype(block)::value;
        value x[n], y[n];
        L::load(shape.a, a, x);
        if (shape.scalar) {
#pragma GCC unroll 4
            for (unsigned k = 0; k < n; k++)
                y[k] = number;
        } else {
            L::load(shape.b, b, y);
        }
        unsigned wrong = 0;
#pragma GCC unroll 4
        for (unsigned k = 0; k < n; k++) {
            x[k] = of(Op{}, x[k], y[k]);
            wrong |= L::out_of_range(x[k]);
        }
        if (wrong != 0 && tested) [[unlikely]]
            return false;
        if (shape.norm)
#pragma GCC unroll 4
            for (unsigned k = 0; k < n; k++)
                sums[k] = L::add_squares(x[k], sums[k]);
        __m512i stored[n];
        if (shape.comparable && tested) {
#pragma GCC unroll 4
            for (unsigned k = 0; k < n; k++)
                stored[k] = comparable_of_numbers(x[k]);
        } else if (shape.comparable) {
#pragma GCC unroll 4
            for (unsigned k = 0; k < n; k++)
                stored[k] = comparable_of(x[k]);
        } else {
#pragma GCC unroll 4
            for (unsigned k = 0; k < n; k++)
                stored[k] = L::bits(x[k]);
        }
#pragma GCC unroll 4
        for (unsigned k = 0; k < n; k++)
            _mm512_storeu_si512(out + 64 * k, stored[k]);
        a += a_bytes * count * n;
        b += b_bytes * count * n;
        out += 64 * n;
        return true;
    };
    for (; dims >= registers * count; dims -= registers * count)
        if (!step(std::integral_constant<unsigned, registers>{}))
            return TAVO_OUT_OF_RANGE;
#pragma GCC unroll 1
    for (; dims >= count; dims -= count)
        if (!step(std::integral_constant<unsigned, 1>{}))
            return TAVO_OUT_OF_RANGE;

    double rest = 0.0;
    if (dims != 0) {
        using mask = typename L::mask;
        const mask all = L::first(dims);
        const value x = L::masked(shape.a, a, all), y = shape.scalar ? number : L::masked(shape.b, b, all);
        value r = of(Op{}, x, y);
        mask wrong;
        ub4 status = TAVO_OUT_OF_RANGE;
        if (divides<Op> && integers(shape) && !shape.scalar) {
            r = L::truncated(r); // as integers divide: a quotient of int8 is never so near the next integer as to round
            wrong = L::zeros(y) & all;
            status = TAVO_DIVISION_BY_ZERO;
        } else {
            wrong = L::out_of_range(r) & all;
        }
        const __m512i stored = shape.comparable ? comparable_of(r) : L::bits(r);
        // Elements before the first wrong one stand written.
        L::store(out, wrong != 0 ? static_cast<mask>(wrong - 1) & static_cast<mask>(~wrong) & all : all, stored);
        if (wrong != 0)
            return status;
        if (shape.norm) {
            alignas(64) typename L::element results[count];
            _mm512_store_si512(results, L::bits(r));
#pragma GCC unroll 1
            for (unsigned i = 0; i < dims; i++)
                L::add_square(results[i], rest);
        }
    }
    if (!shape.norm)
        return TAVO_DONE;
    double sum = 0.0;
#pragma GCC unroll 4
    for (unsigned k = 0; k < registers; k++)
        sum += f64_lanes::sum(sums[k]);
    return store_norm(sum + rest, norm);
}

} // namespace

template <class Op>
ub4 arith_f32(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm, arith_shape shape) noexcept {
    return arith_lanes<Op, f32_arith>(dims, a, b, out, norm, shape);
}
template <class Op>
ub4 arith_f64(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm, arith_shape shape) noexcept {
    return arith_lanes<Op, f64_arith>(dims, a, b, out, norm, shape);
}
#define TAVO_ARITH_BODIES(op)                                                                                          \
    template ub4 arith_f32<op_##op>(ub4, const ub1 *, const ub1 *, ub1 *, double *, arith_shape) noexcept;             \
    template ub4 arith_f64<op_##op>(ub4, const ub1 *, const ub1 *, ub1 *, double *, arith_shape) noexcept;
TAVO_EACH_ARITH_OP(TAVO_ARITH_BODIES)

} // namespace tavo::vector
