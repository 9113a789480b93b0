// The forms of a stored vector's elements and how each is brought to lanes.
//
// A form is an element type in native or comparable form. Kernels of one element type on both sides work in lanes of
// that type: 16 of binary32 (float, float16, bfloat16; int8 as 32-bit integers) or 8 of binary64. The loaders below
// read exactly the elements asked for; masked ones fill with zeros, which a comparable form decodes to something else
// than 0: what is done with them is masked again.
#pragma once

#include "frame/comparable.h"
#include "frame/lane_sum.h"
#include "frame/tavo_vector.h"

namespace tavo::vector {

enum class base : ub1 { float32, float64, int8, float16, bfloat16 };

constexpr unsigned bytes_of(base b) {
    return b == base::float64 ? 8 : b == base::float32 ? 4 : b == base::int8 ? 1 : 2;
}

template <base Base, bool Comparable>
struct form {
    static constexpr base type = Base;
    static constexpr bool comparable = Comparable;
    static constexpr unsigned bytes = bytes_of(Base);
};

// The dense forms, in the order of their numbers.
#define TAVO_EACH_FORM(X)                                                                                              \
    X(float, float32, false)                                                                                           \
    X(Cfloat, float32, true)                                                                                           \
    X(double, float64, false)                                                                                          \
    X(Cdouble, float64, true)                                                                                          \
    X(int8, int8, false)                                                                                               \
    X(float16, float16, false)                                                                                         \
    X(Cfloat16, float16, true)                                                                                         \
    X(bfloat16, bfloat16, false)                                                                                       \
    X(Cbfloat16, bfloat16, true)

#define TAVO_FORM(name, type, comparable) using form_##name = form<base::type, comparable>;
TAVO_EACH_FORM(TAVO_FORM)
#undef TAVO_FORM

enum form_number : ub1 {
#define TAVO_FORM(name, type, comparable) number_##name,
    TAVO_EACH_FORM(TAVO_FORM)
#undef TAVO_FORM
        forms
};

// ---- Lanes ----

// 16 lanes of binary32.
struct f32_lanes {
    using value = __m512;
    using mask = __mmask16;
    static constexpr unsigned count = 16;

    [[gnu::always_inline]] static value zero() { return _mm512_setzero_ps(); }
    [[gnu::always_inline]] static value number(value a) { return a; }
    [[gnu::always_inline]] static value difference(value a, value b) { return _mm512_sub_ps(b, a); }
    [[gnu::always_inline]] static value add(value a, value b) { return _mm512_add_ps(a, b); }
    [[gnu::always_inline]] static value add(value a, value b, mask m) { return _mm512_mask_add_ps(a, m, a, b); }
    [[gnu::always_inline]] static value absolute(value a) { return _mm512_abs_ps(a); }
    [[gnu::always_inline]] static value multiply_add(value a, value b, value sum) { return _mm512_fmadd_ps(a, b, sum); }
    [[gnu::always_inline]] static value multiply_add(value a, value b, value sum, mask m) {
        return _mm512_mask3_fmadd_ps(a, b, sum, m);
    }
    // Adds 1 to the lanes of counts in which the threshold is reached; NaN never reaches it.
    [[gnu::always_inline]] static __m512i count_reached(__m512i counts, value threshold, value a, mask m) {
        const mask reached_m16 = _mm512_mask_cmp_ps_mask(m, threshold, a, _CMP_LE_OQ);
        return _mm512_mask_add_epi32(counts, reached_m16, counts, _mm512_set1_epi32(1));
    }
    [[gnu::always_inline]] static value broadcast(double v) { return _mm512_set1_ps(static_cast<float>(v)); }
    [[gnu::always_inline]] static mask first(unsigned n) { return static_cast<mask>(_bzhi_u32(0xffff, n)); }
    static constexpr mask all = 0xffff;

    [[gnu::always_inline]] static double sum(value v) { return static_cast<double>(lane_sum(v)); }
    // The same of eight registers, halves of several of them in one addition.
    [[gnu::always_inline]] static void sums(const value (&v)[8], double (&out)[8]) {
        value four[4], two[2];
#pragma GCC unroll 4
        for (int k = 0; k < 4; k++)
            four[k] = _mm512_add_ps(_mm512_shuffle_f32x4(v[2 * k], v[2 * k + 1], 0x44),
                                    _mm512_shuffle_f32x4(v[2 * k], v[2 * k + 1], 0xee));
#pragma GCC unroll 2
        for (int k = 0; k < 2; k++)
            two[k] = _mm512_add_ps(_mm512_shuffle_f32x4(four[2 * k], four[2 * k + 1], 0x88),
                                   _mm512_shuffle_f32x4(four[2 * k], four[2 * k + 1], 0xdd));
        const value pairs =
            _mm512_add_ps(_mm512_shuffle_ps(two[0], two[1], 0x44), _mm512_shuffle_ps(two[0], two[1], 0xee));
        const value all = _mm512_add_ps(pairs, _mm512_shuffle_ps(pairs, pairs, 0xb1));
        const __m512i place = _mm512_setr_epi32(0, 4, 8, 12, 2, 6, 10, 14, 0, 0, 0, 0, 0, 0, 0, 0);
        _mm512_storeu_pd(out, _mm512_cvtps_pd(_mm512_castps512_ps256(_mm512_permutexvar_ps(place, all))));
    }
};

// 8 lanes of binary64.
struct f64_lanes {
    using value = __m512d;
    using mask = __mmask8;
    static constexpr unsigned count = 8;

    [[gnu::always_inline]] static value zero() { return _mm512_setzero_pd(); }
    [[gnu::always_inline]] static value number(value a) { return a; }
    [[gnu::always_inline]] static value difference(value a, value b) { return _mm512_sub_pd(b, a); }
    [[gnu::always_inline]] static value add(value a, value b) { return _mm512_add_pd(a, b); }
    [[gnu::always_inline]] static value add(value a, value b, mask m) { return _mm512_mask_add_pd(a, m, a, b); }
    [[gnu::always_inline]] static value absolute(value a) { return _mm512_abs_pd(a); }
    [[gnu::always_inline]] static value multiply_add(value a, value b, value sum) { return _mm512_fmadd_pd(a, b, sum); }
    [[gnu::always_inline]] static value multiply_add(value a, value b, value sum, mask m) {
        return _mm512_mask3_fmadd_pd(a, b, sum, m);
    }
    [[gnu::always_inline]] static __m512i count_reached(__m512i counts, value threshold, value a, mask m) {
        const mask reached_m8 = _mm512_mask_cmp_pd_mask(m, threshold, a, _CMP_LE_OQ);
        return _mm512_mask_add_epi64(counts, reached_m8, counts, _mm512_set1_epi64(1));
    }
    [[gnu::always_inline]] static value broadcast(double v) { return _mm512_set1_pd(v); }
    [[gnu::always_inline]] static mask first(unsigned n) { return static_cast<mask>(_bzhi_u32(0xff, n)); }
    static constexpr mask all = 0xff;

    [[gnu::always_inline]] static double sum(value v) { return lane_sum(v); }
    [[gnu::always_inline]] static void sums(const value (&v)[8], double (&out)[8]) {
        value four[4], two[2];
#pragma GCC unroll 4
        for (int k = 0; k < 4; k++)
            four[k] = _mm512_add_pd(_mm512_shuffle_f64x2(v[2 * k], v[2 * k + 1], 0x44),
                                    _mm512_shuffle_f64x2(v[2 * k], v[2 * k + 1], 0xee));
#pragma GCC unroll 2
        for (int k = 0; k < 2; k++)
            two[k] = _mm512_add_pd(_mm512_shuffle_f64x2(four[2 * k], four[2 * k + 1], 0x88),
                                   _mm512_shuffle_f64x2(four[2 * k], four[2 * k + 1], 0xdd));
        const value all = _mm512_add_pd(_mm512_unpacklo_pd(two[0], two[1]), _mm512_unpackhi_pd(two[0], two[1]));
        const __m512i place = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
        _mm512_storeu_pd(out, _mm512_permutexvar_pd(place, all));
    }
};

// 16 lanes of 32-bit integers that are multiplied and summed in binary32.
struct int8_lanes : f32_lanes {
    using element = __m512i;
    [[gnu::always_inline]] static value number(element a) { return _mm512_cvtepi32_ps(a); }
    [[gnu::always_inline]] static value difference(element a, element b) {
        return _mm512_cvtepi32_ps(_mm512_sub_epi32(b, a));
    }
};

// Lanes to comparable elements as they lie in memory. The second form is for lanes without a NaN: adding zero is what
// makes -0.0 a +0.0.
[[gnu::always_inline]] inline __m512i comparable_of(__m512 v) { return encode_comparable<f32>(_mm512_castps_si512(v)); }
[[gnu::always_inline]] inline __m512i comparable_of(__m512d v) {
    return encode_comparable<f64>(_mm512_castpd_si512(v));
}
[[gnu::always_inline]] inline __m512i comparable_of_numbers(__m512 v) {
    return encode_comparable_number<f32>(_mm512_castps_si512(_mm512_add_ps(v, _mm512_setzero_ps())));
}
[[gnu::always_inline]] inline __m512i comparable_of_numbers(__m512d v) {
    return encode_comparable_number<f64>(_mm512_castpd_si512(_mm512_add_pd(v, _mm512_setzero_pd())));
}

// ---- Loaders: one register, one under a mask, two ----

template <class Form>
struct loader;

template <bool Comparable>
struct loader<form<base::float32, Comparable>> {
    using lanes = f32_lanes;
    [[gnu::always_inline]] static __m512 decoded(__m512i stored) {
        if constexpr (Comparable)
            return _mm512_castsi512_ps(decode_comparable<f32>(stored));
        else
            return _mm512_castsi512_ps(stored);
    }
    [[gnu::always_inline]] static __m512 one(const ub1 *p) { return decoded(_mm512_loadu_si512(p)); }
    [[gnu::always_inline]] static __m512 masked(const ub1 *p, __mmask16 m) {
        return decoded(_mm512_maskz_loadu_epi32(m, p));
    }
    [[gnu::always_inline]] static void two(const ub1 *p, __m512 (&v)[2]) {
        v[0] = one(p);
        v[1] = one(p + 64);
    }
};

template <bool Comparable>
struct loader<form<base::float64, Comparable>> {
    using lanes = f64_lanes;
    [[gnu::always_inline]] static __m512d decoded(__m512i stored) {
        if constexpr (Comparable)
            return _mm512_castsi512_pd(decode_comparable<f64>(stored));
        else
            return _mm512_castsi512_pd(stored);
    }
    [[gnu::always_inline]] static __m512d one(const ub1 *p) { return decoded(_mm512_loadu_si512(p)); }
    [[gnu::always_inline]] static __m512d masked(const ub1 *p, __mmask8 m) {
        return decoded(_mm512_maskz_loadu_epi64(m, p));
    }
    [[gnu::always_inline]] static void two(const ub1 *p, __m512d (&v)[2]) {
        v[0] = one(p);
        v[1] = one(p + 64);
    }
};

[[gnu::always_inline]] inline __m256i load_half(const ub1 *p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}

template <bool Comparable>
struct loader<form<base::float16, Comparable>> {
    using lanes = f32_lanes;
    [[gnu::always_inline]] static __m512 widened(__m256i stored) {
        if constexpr (Comparable)
            stored = decode_comparable<f16>(stored);
        return _mm512_cvtph_ps(stored);
    }
    [[gnu::always_inline]] static __m512 one(const ub1 *p) { return widened(load_half(p)); }
    [[gnu::always_inline]] static __m512 masked(const ub1 *p, __mmask16 m) {
        return widened(_mm256_maskz_loadu_epi16(m, p));
    }
    [[gnu::always_inline]] static void two(const ub1 *p, __m512 (&v)[2]) {
        if constexpr (Comparable) {
            const __m512i native = decode_comparable<f16>(_mm512_loadu_si512(p));
            v[0] = _mm512_cvtph_ps(_mm512_castsi512_si256(native));
            v[1] = _mm512_cvtph_ps(_mm512_extracti64x4_epi64(native, 1));
        } else {
            v[0] = one(p);
            v[1] = one(p + 32);
        }
    }
};

template <bool Comparable>
struct loader<form<base::bfloat16, Comparable>> {
    using lanes = f32_lanes;
    [[gnu::always_inline]] static __m512 widened(__m256i stored) {
        if constexpr (Comparable)
            stored = decode_comparable<bf16>(stored);
        return _mm512_castsi512_ps(_mm512_slli_epi32(_mm512_cvtepu16_epi32(stored), 16));
    }
    [[gnu::always_inline]] static __m512 one(const ub1 *p) { return widened(load_half(p)); }
    [[gnu::always_inline]] static __m512 masked(const ub1 *p, __mmask16 m) {
        return widened(_mm256_maskz_loadu_epi16(m, p));
    }
    [[gnu::always_inline]] static void two(const ub1 *p, __m512 (&v)[2]) {
        v[0] = one(p);
        v[1] = one(p + 32);
    }
    // Two registers for the price of a shift and an AND: the elements of even number, then those of odd number. Lanes
    // are accumulated each on its own, so it is enough to put their sums in order in the end.
    [[gnu::always_inline]] static void dealt(const ub1 *p, __m512 (&v)[2]) {
        __m512i pairs = _mm512_loadu_si512(p);
        if constexpr (Comparable)
            pairs = decode_comparable<bf16>(pairs);
        v[0] = _mm512_castsi512_ps(_mm512_slli_epi32(pairs, 16));
        v[1] = _mm512_castsi512_ps(_mm512_and_si512(pairs, _mm512_set1_epi32(static_cast<int>(0xffff0000))));
    }
};

template <>
struct loader<form_int8> {
    using lanes = int8_lanes;
    [[gnu::always_inline]] static __m512i one(const ub1 *p) {
        return _mm512_cvtepi8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
    }
    [[gnu::always_inline]] static __m512i masked(const ub1 *p, __mmask16 m) {
        return _mm512_cvtepi8_epi32(_mm_maskz_loadu_epi8(m, p));
    }
    [[gnu::always_inline]] static void two(const ub1 *p, __m512i (&v)[2]) {
        v[0] = one(p);
        v[1] = one(p + 16);
    }
};

} // namespace tavo::vector
