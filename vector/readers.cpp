// Readers of every form.
#include "vector/readers.h"

#include <bit>

namespace tavo::vector {
namespace {

[[gnu::always_inline]] inline void store(float *out, __m512 v) { _mm512_storeu_ps(out, v); }
[[gnu::always_inline]] inline void store(double *out, __m512d v) { _mm512_storeu_pd(out, v); }
[[gnu::always_inline]] inline void store(double *out, __m512 v) {
    _mm512_storeu_pd(out, _mm512_cvtps_pd(_mm512_castps512_ps256(v)));
    _mm512_storeu_pd(out + 8, _mm512_cvtps_pd(_mm512_extractf32x8_ps(v, 1)));
}

template <class Form, class T>
void read_run(const ub1 *elements, ub4 n, T *out) noexcept {
    using L = typename loader<Form>::lanes;
    constexpr unsigned step = L::count * Form::bytes;
    for (; n >= L::count; n -= L::count, elements += step, out += L::count)
        store(out, L::number(loader<Form>::one(elements)));
    if (n != 0)
        store(out, L::number(loader<Form>::masked(elements, L::first(n))));
}

template <class Bits>
[[gnu::always_inline]] inline Bits load(const ub1 *p) {
    Bits v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
template <class Number, bool Comparable>
[[gnu::always_inline]] inline typename Number::bits native(const ub1 *p) {
    if constexpr (Comparable)
        return load_comparable<Number>(p);
    else
        return load<typename Number::bits>(p);
}

template <class Form>
[[gnu::always_inline]] inline auto element(const ub1 *p) {
    if constexpr (Form::type == base::float64)
        return std::bit_cast<double>(native<f64, Form::comparable>(p));
    else if constexpr (Form::type == base::float32)
        return std::bit_cast<float>(native<f32, Form::comparable>(p));
    else if constexpr (Form::type == base::bfloat16)
        return std::bit_cast<float>(static_cast<ub4>(native<bf16, Form::comparable>(p)) << 16);
    else if constexpr (Form::type == base::float16)
        return _mm_cvtss_f32(_mm_cvtph_ps(_mm_cvtsi32_si128(native<f16, Form::comparable>(p))));
    else
        return static_cast<float>(static_cast<signed char>(*p));
}

template <class Form, class T>
void pick(const ub1 *elements, const match *matches, unsigned shift, ub4 n, T *out) noexcept {
#pragma GCC unroll 2
    for (ub4 k = 0; k < n; k++)
        out[k] = static_cast<T>(element<Form>(elements + Form::bytes * (matches[k] >> shift & 0xffff)));
}

template <class Form, class T>
consteval reader<T> make_reader() {
    if constexpr (Form::type == base::float64 && sizeof(T) == 4)
        return {nullptr, nullptr};
    else
        return {&read_run<Form, T>, &pick<Form, T>};
}

} // namespace

constinit const reader<float> float_readers[forms] = {
#define TAVO_FORM(name, type, comparable) make_reader<form_##name, float>(),
    TAVO_EACH_FORM(TAVO_FORM)
#undef TAVO_FORM
};
constinit const reader<double> double_readers[forms] = {
#define TAVO_FORM(name, type, comparable) make_reader<form_##name, double>(),
    TAVO_EACH_FORM(TAVO_FORM)
#undef TAVO_FORM
};

} // namespace tavo::vector
