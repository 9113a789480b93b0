// Parsing one row of text in lanes: eight elements at a time, each in a lane of its own.
//
// Masks tell where the parts of an element stand; its digits are loaded as they lie in the text, eight to a lane, and
// one digit position of all eight elements is then taken at a time, from tables by its low four bits. The order of the
// additions is that of the scalar reading, so both give the same bits.
#pragma once

#include <cstring>

#include "vector/forms.h"
#include "vector/text_masks.h"

namespace tavo::vector {

// Where elements go, and the row that is being parsed.
struct text_output {
    ub1 *data;
    ub8 capacity, position; // in elements
    ub4 dims;               // that a row must have; 0: any number
    ub8 count;              // of the row so far
    double squares;
    bool native, norm;

    [[gnu::always_inline]] void begin_row(ub8 start) {
        position = start;
        count = 0;
        squares = 0.0;
    }
};

// ---- Tables ----

constexpr unsigned lane_fraction = 24; // units of a point and the digits behind it that lanes take
constexpr unsigned lane_integer = 8;

struct alignas(64) sixteen {
    double of[16];
};
// Digit d over the power of ten of its position, from the point on: position 0 is the point itself.
struct quotient_tables {
    sixteen at[lane_fraction];
};
inline constexpr quotient_tables quotients = [] {
    quotient_tables t{};
    double power = 10.0;
    for (unsigned position = 1; position < lane_fraction; position++, power *= 10.0)
        for (unsigned d = 0; d < 10; d++)
            t.at[position].of[d] = d / power;
    return t;
}();
// By the low four bits of a unit; those of the point and of no unit give 0.
inline constexpr sixteen digit_values{{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}};
inline constexpr sixteen weight_values = [] {
    sixteen t{};
    for (unsigned i = 0; i < 15; i++)
        t.of[i] = short_weights[i];
    return t;
}();

[[gnu::always_inline]] inline __m512d look_up(const sixteen &table, __m512i index) {
    return _mm512_permutex2var_pd(_mm512_loadu_pd(table.of), index, _mm512_loadu_pd(table.of + 8));
}

// ---- Eight elements ----

struct element_batch {
    alignas(64) ub8 integer[8], fraction[3][8]; // general rule: units, right-aligned; from the point on
    alignas(64) ub8 mantissa[8], weight[8];     // short rule: units; place of the first one's weight
    alignas(64) double given[8];                // values that are no matter for lanes
    ub4 exponent[8];
    unsigned n, longest; // elements; units of the longest fraction
    ub4 shorts, negatives, exponents, givens;

    [[gnu::always_inline]] void clear() { n = longest = shorts = negatives = exponents = givens = 0; }
};

[[gnu::always_inline]] inline __m512d general_mantissas(const element_batch &batch) {
    // 8 digits to one number: 2, 4, 8 at a time.
    const __m512i digits = _mm512_and_si512(_mm512_load_si512(batch.integer), _mm512_set1_epi8(15));
    const __m512i pairs = _mm512_maddubs_epi16(digits, _mm512_set1_epi16(1 << 8 | 10));
    const __m512i fours = _mm512_madd_epi16(pairs, _mm512_set1_epi32(1 << 16 | 100));
    const __m512i integers =
        _mm512_add_epi64(_mm512_mul_epu32(fours, _mm512_set1_epi64(10000)), _mm512_srli_epi64(fours, 32));
    __m512d value = _mm512_cvtepu64_pd(integers);
#pragma GCC unroll 1
    for (unsigned word = 0; 8 * word < batch.longest; word++) {
        __m512i units = _mm512_load_si512(batch.fraction[word]);
#pragma GCC unroll 8
        for (unsigned i = 0; i < 8; i++) {
            if (i != 0)
                units = _mm512_srli_epi64(units, 8);
            value = _mm512_add_pd(value, look_up(quotients.at[8 * word + i], units));
        }
    }
    return value;
}
[[gnu::always_inline]] inline __m512d short_mantissas(const element_batch &batch) {
    __m512i units = _mm512_load_si512(batch.mantissa), weight = _mm512_load_si512(batch.weight);
    __m512d term[7];
#pragma GCC unroll 7
    for (unsigned i = 0; i < 7; i++) {
        term[i] = _mm512_mul_pd(look_up(digit_values, units), look_up(weight_values, weight));
        units = _mm512_srli_epi64(units, 8);
        weight = _mm512_add_epi64(weight, _mm512_set1_epi64(1));
    }
    const __m512d even = _mm512_add_pd(_mm512_add_pd(term[0], term[4]), _mm512_add_pd(term[2], term[6]));
    return _mm512_add_pd(even, _mm512_add_pd(_mm512_add_pd(term[1], term[5]), term[3]));
}

// Stores eight values, or fewer. False if one is beyond range.
[[gnu::always_inline]] inline __m512 floats_of(__m512d v) { return _mm512_castps256_ps512(_mm512_cvtpd_ps(v)); }
[[gnu::always_inline]] inline bool store_values(text_float, ub1 *out, __m512d &v, __mmask8 all, bool native) {
    const __m512 narrowed = floats_of(v);
    if ((_mm512_fpclass_ps_mask(narrowed, 0x99) & all) != 0)
        return false;
    const __m512i bits = _mm512_castps_si512(narrowed);
    _mm512_mask_storeu_epi32(out, all, native ? bits : encode_comparable<f32>(bits));
    return true;
}
[[gnu::always_inline]] inline bool store_values(text_double, ub1 *out, __m512d &v, __mmask8 all, bool native) {
    if ((_mm512_fpclass_pd_mask(v, 0x99) & all) != 0)
        return false;
    const __m512i bits = _mm512_castpd_si512(v);
    _mm512_mask_storeu_epi64(out, all, native ? bits : encode_comparable<f64>(bits));
    return true;
}
// Also false for a NaN.
[[gnu::always_inline]] inline bool store_values(text_int8, ub1 *out, __m512d &v, __mmask8 all, bool) {
    const __m512 narrowed = floats_of(v);
    const ub4 good = _mm512_cmp_ps_mask(narrowed, _mm512_set1_ps(-128.0f), _CMP_GE_OQ) &
                     _mm512_cmp_ps_mask(narrowed, _mm512_set1_ps(127.0f), _CMP_LE_OQ);
    if ((~good & all) != 0)
        return false;
    // Halves away from zero: what is added is the largest number below a half.
    const __m512i almost_half = _mm512_set1_epi64(0x3fdfffffffffffff), sign = _mm512_set1_epi64(f64::sign);
    const __m512i offset = _mm512_ternarylogic_epi64(_mm512_castpd_si512(v), sign, almost_half, 0xea);
    const __m256i integers = _mm512_cvttpd_epi32(_mm512_add_pd(v, _mm512_castsi512_pd(offset)));
    _mm_mask_storeu_epi8(out, all, _mm512_cvtepi32_epi8(_mm512_castsi256_si512(integers)));
    v = _mm512_cvtepi32_pd(integers);
    return true;
}

// Computes and stores the elements of a batch. False if there is no room for them, or a value is beyond range.
template <class Type>
[[gnu::always_inline]] inline bool flush(element_batch &batch, text_output &out) {
    const unsigned n = batch.n;
    const auto all = f64_lanes::first(n);
    if (out.capacity - out.position < n)
        return false;
    __m512d v = _mm512_setzero_pd();
    if ((all & ~batch.shorts) != 0)
        v = general_mantissas(batch);
    if (batch.shorts != 0)
        v = _mm512_mask_mov_pd(v, static_cast<__mmask8>(batch.shorts), short_mantissas(batch));
    alignas(64) double value[8];
    if ((batch.givens | batch.exponents) != 0) {
        v = _mm512_mask_mov_pd(v, static_cast<__mmask8>(batch.givens), _mm512_loadu_pd(batch.given));
        _mm512_storeu_pd(value, v);
        for (ub4 left = batch.exponents; left != 0; left = _blsr_u32(left)) {
            const unsigned k = _tzcnt_u32(left);
            value[k] *= power_of_ten(batch.exponent[k]);
        }
        v = _mm512_loadu_pd(value);
    }
    const __m512i signs = _mm512_maskz_mov_epi64(static_cast<__mmask8>(batch.negatives),
                                                 _mm512_set1_epi64(static_cast<long long>(f64::sign)));
    v = _mm512_castsi512_pd(_mm512_xor_si512(_mm512_castpd_si512(v), signs));
    if (!store_values(Type{}, out.data + Type::bytes * out.position, v, all, out.native))
        return false;
    if (out.norm) {
        _mm512_storeu_pd(value, v);
        for (unsigned k = 0; k < n; k++)
            out.squares = __builtin_fma(value[k], value[k], out.squares);
    }
    out.position += n;
    batch.clear();
    return true;
}

// ---- One row ----

// A block's units as bytes, so that eight can be loaded wherever an element has some.
struct unit_window {
    static constexpr unsigned before = 64, behind = 64;
    alignas(64) ub1 byte[before + block_units + behind];
};

[[gnu::always_inline]] inline ub8 load8(const ub1 *p) {
    ub8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Digits at `at`, a sign before them or none. Wraps.
[[gnu::always_inline]] inline ub4 read_exponent(const ub1 *at) {
    const bool negative = *at == '-';
    at += negative || *at == '+';
    ub4 v = 0;
    for (; is_digit(*at); at++)
        v = v * 10 + (*at - '0');
    return negative ? 0 - v : v;
}

// Adds the elements of a block to the batch. `units` is the block's first unit as a byte.
template <class Type>
[[gnu::always_inline]] inline bool take_elements(const ub1 *units, element_masks m, ub8 separators, ub8 minus,
                                                 element_batch &batch, text_output &out) {
    for (unsigned start = 0; separators != 0;) {
        const auto next = [](ub8 &mask) {
            const auto at = static_cast<unsigned>(_tzcnt_u64(mask));
            mask = _blsr_u64(mask);
            return at;
        };
        const unsigned mantissa = next(m.mantissa), point = next(m.point), end = next(m.end),
                       separator = next(separators);
        const unsigned k = batch.n++;
        batch.negatives |= static_cast<ub4>(minus << 1 >> mantissa & 1) << k;
        if (separator - start < short_units) {
            batch.mantissa[k] = _bzhi_u64(load8(units + mantissa), 8 * (end - mantissa));
            batch.weight[k] = weight_of_units_digit + 1 - (point - mantissa);
            batch.shorts |= 1u << k;
        } else if (point - mantissa <= lane_integer && end - point <= lane_fraction) {
            const unsigned fraction = end - point;
            batch.integer[k] = load8(units + point - 8) & ~_bzhi_u64(~0ull, 64 - 8 * (point - mantissa));
            batch.fraction[0][k] = _bzhi_u64(load8(units + point), 8 * fraction);
            batch.fraction[1][k] = fraction > 8 ? _bzhi_u64(load8(units + point + 8), 8 * (fraction - 8)) : 0;
            batch.fraction[2][k] = fraction > 16 ? _bzhi_u64(load8(units + point + 16), 8 * (fraction - 16)) : 0;
            batch.longest = fraction > batch.longest ? fraction : batch.longest;
        } else {
            batch.given[k] = general_mantissa<ascii>(units, {mantissa, point, end, false, false, 0});
            batch.givens |= 1u << k;
        }
        if ((m.exponent_letter >> end & 1) != 0) {
            batch.exponent[k] = read_exponent(units + end + 1);
            batch.exponents |= 1u << k;
        }
        start = separator + 1;
        if (batch.n == 8 && !flush<Type>(batch, out))
            return false;
    }
    return true;
}

// Parses a row into out. False if the row is bad, has no room, or has an element too long for a block: out.position,
// count and squares are then of no meaning.
template <class Charset, class Type>
[[gnu::always_inline]] inline bool parse_in_lanes(const ub1 *text, ub8 units, text_output &out) {
    ub8 at = 0;
    // Blanks, a block at a time, then the bracket.
    for (;;) {
        if (at >= units)
            return false;
        const __m512i block = load_units<Charset>(text + Charset::bytes * at, units - at);
        const ub8 others = ~where(block, ' ');
        if (others == 0) {
            at += block_units;
            continue;
        }
        at += _tzcnt_u64(others);
        break;
    }
    if (at >= units || Charset::unit(text, at) != '[')
        return false;
    at++;

    unit_window window;
    element_batch batch;
    std::memset(&batch, 0, sizeof batch);
    std::memset(&window, 0, sizeof window);
    for (;;) {
        const ub8 left = units - at;
        const __m512i block = load_units<Charset>(text + Charset::bytes * at, left);
        const text_masks m = masks_of(block);
        if (m.separator == 0)
            return false;
        // Up to which separator: the row's last one, or the block's.
        unsigned last = 63 - static_cast<unsigned>(_lzcnt_u64(m.separator));
        bool ends = false;
        if (out.dims == 0) {
            ends = m.closing != 0;
            if (ends)
                last = static_cast<unsigned>(_tzcnt_u64(m.closing));
        } else if (static_cast<ub8>(_mm_popcnt_u64(m.separator)) >= out.dims - out.count) {
            const ub8 place = _pdep_u64(1ull << (out.dims - out.count - 1), m.separator);
            if ((place & m.closing) == 0)
                return false;
            ends = true;
            last = static_cast<unsigned>(_tzcnt_u64(place));
        }
        const ub8 within = ~0ull >> (63 - last), separators = m.separator & within;
        const element_masks elements = elements_of(m, within);
        if (!elements.good)
            return false;
        const ub1 *bytes;
        if (Charset::bytes == 1 && at >= unit_window::before && left >= block_units + unit_window::behind) {
            bytes = text + at;
        } else {
            _mm512_store_si512(window.byte + unit_window::before, block);
            bytes = window.byte + unit_window::before;
        }
        out.count += static_cast<ub8>(_mm_popcnt_u64(separators));
        if (!take_elements<Type>(bytes, elements, separators, m.minus & within, batch, out))
            return false;
        if (ends) {
            if (batch.n != 0 && !flush<Type>(batch, out))
                return false;
            // Blanks to the end.
            ub8 valid = left >= block_units ? ~0ull : _bzhi_u64(~0ull, static_cast<unsigned>(left));
            if ((valid & ~within & ~m.blank) != 0)
                return false;
            for (at += block_units; at < units; at += block_units) {
                const ub8 rest = units - at;
                valid = rest >= block_units ? ~0ull : _bzhi_u64(~0ull, static_cast<unsigned>(rest));
                if ((valid & ~where(load_units<Charset>(text + Charset::bytes * at, rest), ' ')) != 0)
                    return false;
            }
            return true;
        }
        at += last + 1;
        if (at >= units)
            return false;
    }
}

} // namespace tavo::vector
