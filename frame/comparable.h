// Comparable form: the encoding of floating-point numbers in which unsigned comparison of the bytes orders the numbers.
//
// Of an element's bits a clear sign bit is set and bits with a set sign bit are complemented; the result is stored most
// significant byte first. The encoder stores -0.0 as +0.0 and all NaNs as one pattern, which stands above every number.
// The decoder knows no special cases: it takes that pattern back to a positive NaN.
//
//     sign  exponent, mantissa            1  exponent, mantissa            0  complement of exponent, mantissa
//      0    e...  m...            ->      1  e...  m...           1 ->     0  ~e...  ~m...
//
// For lanes and for single numbers, in both directions. Numbers are handled as their bits: lanes of a whole register,
// an unsigned integer for one. tavo::f32 and its siblings name the type.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

// first_nan is the smallest magnitude that the encoder takes for a NaN. For f16 it leaves the patterns 7C01 to 7E00
// alone: they keep their bits through both directions.
struct f32 {
    using bits = ub4;
    static constexpr bits sign = 0x80000000, first_nan = 0x7f800001, comparable_nan = 0xffc00000;
};
struct f64 {
    using bits = ub8;
    static constexpr bits sign = 0x8000000000000000, first_nan = 0x7ff0000000000001,
                          comparable_nan = 0xfff8000000000000;
};
struct f16 {
    using bits = ub2;
    static constexpr bits sign = 0x8000, first_nan = 0x7e01, comparable_nan = 0xfe00;
};
struct bf16 {
    using bits = ub2;
    static constexpr bits sign = 0x8000, first_nan = 0x7f81, comparable_nan = 0xffc0;
};

// ---- One number ----

template <class Bits>
constexpr Bits reversed_bytes(Bits v) {
    if constexpr (sizeof(Bits) == 2)
        return __builtin_bswap16(v);
    else if constexpr (sizeof(Bits) == 4)
        return __builtin_bswap32(v);
    else
        return __builtin_bswap64(v);
}

// Native bits to comparable bits, both in the processor's byte order.
template <class Number>
constexpr typename Number::bits comparable_bits(typename Number::bits native) {
    using bits = typename Number::bits;
    if (static_cast<bits>(native & ~Number::sign) >= Number::first_nan)
        return Number::comparable_nan;
    if (native <= Number::sign) // not negative, or -0.0
        return static_cast<bits>(native | Number::sign);
    return static_cast<bits>(~native);
}
template <class Number>
constexpr typename Number::bits native_bits(typename Number::bits comparable) {
    return static_cast<typename Number::bits>(comparable ^ (comparable & Number::sign ? Number::sign : ~0ull));
}

// Native bits of the comparable number at p, and the other way; p need not be aligned.
template <class Number>
[[gnu::always_inline]] inline typename Number::bits load_comparable(const void *p) {
    typename Number::bits stored;
    __builtin_memcpy(&stored, p, sizeof stored);
    return native_bits<Number>(reversed_bytes(stored));
}
template <class Number>
[[gnu::always_inline]] inline void store_comparable(void *p, typename Number::bits native) {
    const typename Number::bits stored = reversed_bytes(comparable_bits<Number>(native));
    __builtin_memcpy(p, &stored, sizeof stored);
}

static_assert(comparable_bits<f32>(0x3f800000) == 0xbf800000 && comparable_bits<f32>(0xbf800000) == 0x407fffff);
static_assert(comparable_bits<f32>(0x80000000) == 0x80000000 && comparable_bits<f32>(0xff800001) == 0xffc00000);
static_assert(native_bits<f32>(0xffc00000) == 0x7fc00000 && native_bits<f32>(0x407fffff) == 0xbf800000);
static_assert(native_bits<f64>(0xfff8000000000000) == 0x7ff8000000000000);
static_assert(comparable_bits<f16>(0x7e00) == 0xfe00 && comparable_bits<f16>(0xfe01) == 0xfe00 &&
              comparable_bits<f16>(0xfe00) == 0x01ff);

// ---- Lanes ----

namespace comparable {

struct alignas(64) shuffle {
    ub1 byte[64];
};
// Selectors of a byte shuffle that reverses the bytes of each element.
template <unsigned Bytes>
inline constexpr shuffle reversal = [] {
    shuffle t{};
    for (unsigned i = 0; i < 64; i++)
        t.byte[i] = static_cast<ub1>(i % 16 / Bytes * Bytes + Bytes - 1 - i % Bytes);
    return t;
}();

template <unsigned Bytes>
[[gnu::always_inline]] inline __m512i broadcast(ub8 v) {
    if constexpr (Bytes == 2)
        return _mm512_set1_epi16(static_cast<short>(v));
    else if constexpr (Bytes == 4)
        return _mm512_set1_epi32(static_cast<int>(v));
    else
        return _mm512_set1_epi64(static_cast<long long>(v));
}

// All ones in the elements whose top bit is set, zero in the others.
template <unsigned Bytes>
[[gnu::always_inline]] inline __m512i sign_spread(__m512i v) {
    if constexpr (Bytes == 2)
        return _mm512_srai_epi16(v, 15);
    else if constexpr (Bytes == 4)
        return _mm512_srai_epi32(v, 31);
    else
        return _mm512_srai_epi64(v, 63);
}

// Puts `value` into the elements that hold `key`, or a magnitude of at least `key` if AtLeast.
template <unsigned Bytes, bool AtLeast>
[[gnu::always_inline]] inline __m512i replace(__m512i into, __m512i tested, ub8 key, ub8 value) {
    const __m512i k = broadcast<Bytes>(key), v = broadcast<Bytes>(value);
    constexpr int how = AtLeast ? _MM_CMPINT_NLT : _MM_CMPINT_EQ;
    if constexpr (Bytes == 2)
        return _mm512_mask_mov_epi16(into, _mm512_cmp_epu16_mask(tested, k, how), v);
    else if constexpr (Bytes == 4)
        return _mm512_mask_mov_epi32(into, _mm512_cmp_epu32_mask(tested, k, how), v);
    else
        return _mm512_mask_mov_epi64(into, _mm512_cmp_epu64_mask(tested, k, how), v);
}

} // namespace comparable

template <unsigned Bytes>
[[gnu::always_inline]] inline __m512i reverse_bytes_in_lanes(__m512i v) {
    return _mm512_shuffle_epi8(v, _mm512_load_si512(comparable::reversal<Bytes>.byte));
}

// A register of comparable elements as they lie in memory to native bits: one shuffle, one shift, one logic operation.
// The truth table, without a branch, does what value XOR (spread ? top bit : all ones) does. As a function of three
// free bits it is not the same one: they differ where the constant's bit is set and the bits of value and spread are
// not equal. That never occurs, for the constant is set at the top bit alone, and there spread is the value's own bit.
template <class Number>
[[gnu::always_inline]] inline __m512i decode_comparable(__m512i stored) {
    constexpr unsigned bytes = sizeof(typename Number::bits);
    const __m512i value = reverse_bytes_in_lanes<bytes>(stored);
    return _mm512_ternarylogic_epi32(value, comparable::sign_spread<bytes>(value),
                                     comparable::broadcast<bytes>(Number::sign), 99);
}
// The same for half a register of 16-bit elements.
template <class Number>
[[gnu::always_inline]] inline __m256i decode_comparable(__m256i stored) {
    static_assert(sizeof(typename Number::bits) == 2);
    const __m256i value =
        _mm256_shuffle_epi8(stored, _mm256_load_si256(reinterpret_cast<const __m256i *>(comparable::reversal<2>.byte)));
    return _mm256_ternarylogic_epi32(value, _mm256_srai_epi16(value, 15),
                                     _mm256_set1_epi16(static_cast<short>(Number::sign)), 99);
}

// A register of native bits to comparable elements as they lie in memory. The first form is for numbers that are
// neither NaN nor -0.0.
template <class Number>
[[gnu::always_inline]] inline __m512i encode_comparable_number(__m512i native) {
    using namespace comparable;
    constexpr unsigned bytes = sizeof(typename Number::bits);
    return reverse_bytes_in_lanes<bytes>(_mm512_ternarylogic_epi32(
        native, sign_spread<bytes>(native), broadcast<bytes>(Number::sign), 0x1e)); // a XOR (b OR c)
}
template <class Number>
[[gnu::always_inline]] inline __m512i encode_comparable(__m512i native) {
    using namespace comparable;
    constexpr unsigned bytes = sizeof(typename Number::bits);
    const __m512i sign = broadcast<bytes>(Number::sign);
    __m512i value = _mm512_ternarylogic_epi32(native, sign_spread<bytes>(native), sign, 0x1e); // a XOR (b OR c)
    value = replace<bytes, false>(value, native, Number::sign, Number::sign);                  // -0.0 as +0.0
    value = replace<bytes, true>(value, _mm512_andnot_si512(sign, native), Number::first_nan, Number::comparable_nan);
    return reverse_bytes_in_lanes<bytes>(value);
}

} // namespace tavo
