// Converting dense vectors from one element type to another, 16 elements at a time.
//
// All conversions go by way of binary32, which is exact for those that widen and the first step of those that narrow.
// The sum of squares of a row is fixed to the last bit. Sums of integers are exact in any order. The others are added
// up one element after the other, but for those of a plain copy: eight at a time by halves, then the rest one by one.
#include "vector/convert.h"

#include <cstring>

#include "vector/forms.h"
#include "vector/int8_squares.h"
#include "vector/norm.h"

namespace tavo::vector {
namespace {

// ---- 16 elements as binary32, and how they are written ----

template <class From, bool Whole>
[[gnu::always_inline]] inline __m512 as_floats(const ub1 *p, __mmask16 m) {
    using L = loader<From>;
    if constexpr (From::type == base::float64) {
        const __m256 low = _mm512_cvtpd_ps(Whole ? L::one(p) : L::masked(p, static_cast<__mmask8>(m)));
        const __m256 high = _mm512_cvtpd_ps(Whole ? L::one(p + 64) : L::masked(p + 64, static_cast<__mmask8>(m >> 8)));
        return _mm512_insertf32x8(_mm512_castps256_ps512(low), high, 1);
    } else {
        return L::lanes::number(Whole ? L::one(p) : L::masked(p, m));
    }
}
template <bool Whole>
[[gnu::always_inline]] inline void store_lanes(ub1 *out, __mmask16 m, __m512i v) {
    if constexpr (Whole)
        _mm512_storeu_si512(out, v);
    else
        _mm512_mask_storeu_epi32(out, m, v);
}
[[gnu::always_inline]] inline __m512d low_half(__m512 v) { return _mm512_cvtps_pd(_mm512_castps512_ps256(v)); }
[[gnu::always_inline]] inline __m512d high_half(__m512 v) { return _mm512_cvtps_pd(_mm512_extractf32x8_ps(v, 1)); }

// Halves away from zero. What is added is the largest number below a half: a half itself would take its lower neighbour
// to 1. Of a NaN comes 80000000.
[[gnu::always_inline]] inline __m512i rounded(__m512 v) {
    const __m512i almost_half = _mm512_set1_epi32(0x3effffff), sign = _mm512_set1_epi32(static_cast<int>(0x80000000));
    const __m512i offset = _mm512_ternarylogic_epi32(_mm512_castps_si512(v), sign, almost_half, 0xea); // a and b, or c
    return _mm512_cvttps_epi32(_mm512_add_ps(v, _mm512_castsi512_ps(offset)));
}

// One row's checks and sum of squares.
template <class From, class To>
struct row_state {
    static constexpr bool narrows = To::bytes < From::bytes;
    static constexpr bool integers = From::type == base::int8 || To::type == base::int8;
    unsigned wrong = 0; // lanes that are beyond To; NaN is not beyond int8
    bool norm, nan = false;
    __m512i exact; // sum of squares of integers
    double sum = 0.0;

    [[gnu::always_inline]] explicit row_state(bool norm) : norm(norm), exact(_mm512_setzero_si512()) {}

    // 16 elements, or the n of a rest under a mask.
    template <bool Whole>
    [[gnu::always_inline]] void step(const ub1 *in, ub1 *out, __mmask16 m, unsigned n) {
        const __m512 v = as_floats<From, Whole>(in, m);
        if constexpr (To::type == base::int8) {
            wrong |= (_mm512_cmp_ps_mask(v, _mm512_set1_ps(127.0f), _CMP_GT_OQ) |
                      _mm512_cmp_ps_mask(v, _mm512_set1_ps(-128.0f), _CMP_LT_OQ)) &
                     m;
            const __m512i integer = rounded(v);
            if constexpr (Whole)
                _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm512_cvtepi32_epi8(integer));
            else
                _mm_mask_storeu_epi8(out, m, _mm512_cvtepi32_epi8(integer));
            if (norm) {
                nan |= _mm512_mask_cmp_ps_mask(m, v, v, _CMP_UNORD_Q) != 0;
                exact = widened_sum(exact, squares_u32x16(_mm512_maskz_mov_epi32(m, integer)));
            }
        } else if constexpr (To::type == base::float32) {
            if constexpr (narrows)
                wrong |= _mm512_fpclass_ps_mask(v, 0x99) & m;
            store_lanes<Whole>(out, m, comparable_of_numbers(v)); // a row with a NaN is bad
            if (norm)
                add_squares(v, m, n);
        } else {
            const __m512d low = low_half(v), high = high_half(v);
            const __m512 none = _mm512_setzero_ps();
            const bool numbers = From::type == base::int8 || _mm512_mask_cmp_ps_mask(m, v, none, _CMP_UNORD_Q) == 0;
            // Lanes of 32 bits: two to an element.
            store_lanes<Whole>(out, static_cast<__mmask16>(_pdep_u32(m & 0xff, 0x5555) * 3),
                               numbers ? comparable_of_numbers(low) : comparable_of(low));
            store_lanes<Whole>(out + 64, static_cast<__mmask16>(_pdep_u32(static_cast<unsigned>(m) >> 8, 0x5555) * 3),
                               numbers ? comparable_of_numbers(high) : comparable_of(high));
            if (norm)
                add_squares(v, m, n);
        }
    }
    [[gnu::always_inline]] void add_squares(__m512 v, __mmask16 m, unsigned n) {
        if constexpr (integers) {
            exact = widened_sum(exact, squares_u32x16(_mm512_cvttps_epi32(_mm512_maskz_mov_ps(m, v))));
        } else {
            alignas(64) float value[16];
            _mm512_store_si512(value, _mm512_castps_si512(v));
            if constexpr (To::type == base::float32)
                for (unsigned i = 0; i < n; i++)
                    sum += static_cast<double>(value[i] * value[i]);
            else
                for (unsigned i = 0; i < n; i++)
                    sum = __builtin_fma(static_cast<double>(value[i]), static_cast<double>(value[i]), sum);
        }
    }
    [[gnu::always_inline]] ub4 store(double *at) const {
        return store_norm(nan ? __builtin_nan("") : integers ? total(exact) : sum, at);
    }
};

struct arguments {
    const ub1 *in;
    ub1 *out;
    ub8 dims, rows;
    double *norms; // or null
    ub8 *bad_rows;
};

template <class From, class To>
ub4 convert(arguments a) {
    for (ub8 row = 0; row < a.rows; row++, a.in += From::bytes * a.dims) {
        row_state<From, To> state(a.norms != nullptr);
        const ub1 *in = a.in;
        ub1 *out = a.out;
        ub8 left = a.dims;
        for (; left >= 16; left -= 16, in += 16 * From::bytes, out += 16 * To::bytes)
            state.template step<true>(in, out, 0xffff, 16);
        if (left != 0)
            state.template step<false>(in, out, f32_lanes::first(static_cast<unsigned>(left)),
                                       static_cast<unsigned>(left));
        if (state.wrong != 0) {
            if (a.bad_rows == nullptr)
                return TAVO_BAD_SHAPE;
            a.bad_rows[row / 64] |= 1ull << row % 64;
            continue;
        }
        a.out += To::bytes * a.dims;
        if (a.norms != nullptr)
            if (const ub4 status = state.store(a.norms++))
                return status;
    }
    return TAVO_DONE;
}

// ---- Plain copies ----

// 8 elements, or fewer, as binary64.
template <class Form>
[[gnu::always_inline]] inline __m512d as_doubles(const ub1 *p, unsigned n) {
    if constexpr (Form::type == base::float64)
        return loader<Form>::masked(p, f64_lanes::first(n));
    else
        return low_half(loader<Form>::lanes::number(loader<Form>::masked(p, f64_lanes::first(n))));
}

template <class Form>
ub4 copy(arguments a) {
    std::memmove(a.out, a.in, Form::bytes * a.dims * a.rows);
    if (a.norms == nullptr)
        return TAVO_DONE;
    const ub1 *in = a.in;
    for (ub8 row = 0; row < a.rows; row++) {
        double sum = 0.0;
        ub8 left = a.dims;
        for (; left >= 8; left -= 8, in += 8 * Form::bytes) {
            const __m512d v = as_doubles<Form>(in, 8);
            sum += f64_lanes::sum(_mm512_mul_pd(v, v));
        }
        alignas(64) double rest[8];
        _mm512_store_si512(rest, _mm512_castpd_si512(as_doubles<Form>(in, static_cast<unsigned>(left))));
        for (unsigned i = 0; i < left; i++)
            sum += rest[i] * rest[i];
        in += left * Form::bytes;
        if (const ub4 status = store_norm(sum, a.norms + row))
            return status;
    }
    return TAVO_DONE;
}

using converter = ub4(arguments);
constexpr converter *converters[3][3] = { // from, to: float, double, int8
    {copy<form_Cfloat>, convert<form_Cfloat, form_Cdouble>, convert<form_Cfloat, form_int8>},
    {convert<form_Cdouble, form_Cfloat>, copy<form_Cdouble>, convert<form_Cdouble, form_int8>},
    {convert<form_int8, form_Cfloat>, convert<form_int8, form_Cdouble>, copy<form_int8>}};

constexpr ub4 place_of(ub4 type) {
    return type == TAVO_ELEM_FLOAT ? 0 : type == TAVO_ELEM_DOUBLE ? 1 : type == TAVO_ELEM_INT8 ? 2 : 3;
}

} // namespace
} // namespace tavo::vector

extern "C" ub4 tavo_vector_convert_fp_dydi(tavo_vec *res, tavo_vec *norms, tavo_vec *src, ub8 *bad_rows,
                                           tavo_env *) noexcept {
    using namespace tavo::vector;
    const ub4 from = place_of(src->enc->value_type), to = place_of(res->enc->value_type);
    if (from == 3 || to == 3)
        return TAVO_UNSUPPORTED;
    return converters[from][to]({static_cast<const ub1 *>(src->data), static_cast<ub1 *>(res->data), src->enc->vec_dims,
                                 TAVO_VEC_SIZE(src), norms != nullptr ? static_cast<double *>(norms->data) : nullptr,
                                 bad_rows});
}
