// A block of 64 units of a vector's text as masks, one bit a unit.
//
// A block starts right behind a separator or the opening bracket and is looked at up to its last separator, so that
// elements lie in it whole. Runs of units are followed by addition: a bit added at the first unit of a run comes out
// behind its last one.
#pragma once

#include "vector/text_number.h"

namespace tavo::vector {

// ---- Units as bytes: what is beyond a byte becomes FF, which no class holds ----

constexpr unsigned block_units = 64;

// The first n units; zeros behind them.
template <class Charset>
[[gnu::always_inline]] inline __m512i load_units(const ub1 *text, ub8 n);
template <>
[[gnu::always_inline]] inline __m512i load_units<ascii>(const ub1 *text, ub8 n) {
    return n >= block_units ? _mm512_loadu_si512(text)
                            : _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, static_cast<unsigned>(n)), text);
}
template <>
[[gnu::always_inline]] inline __m512i load_units<utf16>(const ub1 *text, ub8 n) {
    const __mmask64 all = ~0ull;
    const auto units = static_cast<unsigned>(n < block_units ? n : block_units);
    const __m512i low = _mm512_maskz_loadu_epi8(units >= 32 ? all : _bzhi_u64(all, 2 * units), text);
    __m512i high = _mm512_setzero_si512();
    if (units > 32)
        high = _mm512_maskz_loadu_epi8(_bzhi_u64(all, 2 * units - 64), text + 64);
    // Signed saturation: units from 8000 on become 0, others above FF become FF.
    const __m512i bytes = _mm512_packus_epi16(reverse_bytes_in_lanes<2>(low), reverse_bytes_in_lanes<2>(high));
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), bytes);
}

// ---- The masks ----

// Of runs of set bits: the bits behind those runs that start with a bit of `first`.
[[gnu::always_inline]] inline ub8 behind_runs(ub8 runs, ub8 first) { return (runs + first) & ~runs; }

struct text_masks {
    ub8 separator, closing, blank; // of all units of the block
    ub8 digit, point, exponent_letter, sign, minus;
};
[[gnu::always_inline]] inline ub8 where(__m512i units, char c) {
    return _cvtmask64_u64(_mm512_cmpeq_epi8_mask(units, _mm512_set1_epi8(c)));
}
[[gnu::always_inline]] inline text_masks masks_of(__m512i units) {
    text_masks m;
    m.closing = where(units, ']');
    m.separator = where(units, ',') | m.closing;
    m.blank = where(units, ' ');
    m.digit =
        _cvtmask64_u64(_mm512_cmplt_epu8_mask(_mm512_sub_epi8(units, _mm512_set1_epi8('0')), _mm512_set1_epi8(10)));
    m.point = where(units, '.');
    m.exponent_letter = where(_mm512_and_si512(units, _mm512_set1_epi8(static_cast<char>(~0x20))), 'E');
    m.minus = where(units, '-');
    m.sign = where(units, '+') | m.minus;
    return m;
}

// Where the elements' parts stand: in each of these masks one bit an element.
struct element_masks {
    ub8 mantissa, point, end; // as in number_text
    ub8 exponent_letter;      // of those that have one
    bool good;                // all units up to the last separator are as the grammar has them
};
// The elements of a block up to its separator `last`, which `within` is the mask of.
[[gnu::always_inline]] inline element_masks elements_of(const text_masks &m, ub8 within) {
    const ub8 separator = m.separator & within, blank = m.blank & within, digit = m.digit & within,
              point = m.point & within, letter = m.exponent_letter & within, sign = m.sign & within;
    const ub8 number = digit | point | letter | sign, behind_separator = separator << 1 | 1,
              behind_letter = letter << 1;
    const ub8 first = number & ~(number << 1);
    // Around a unit.
    ub8 bad = within & ~(number | blank | separator);
    bad |= sign & ~(first | behind_letter);
    bad |= sign << 1 & ~(digit | point);
    bad |= (sign & behind_letter) << 1 & point;
    bad |= letter & ~((digit | point) << 1);
    bad |= letter & point << 1 & ~(digit << 2);
    bad |= behind_letter & ~(digit | sign);
    bad |= point & ~(digit << 1 | digit >> 1);
    // Along an element.
    element_masks out;
    out.mantissa = (first & (digit | point)) | (first & sign) << 1;
    const ub8 behind_integer = behind_runs(digit, out.mantissa & digit);
    out.point = behind_integer | (out.mantissa & point);
    const ub8 behind_point = (out.point & point) << 1;
    const ub8 behind_fraction = behind_runs(digit, behind_point & digit);
    out.end = behind_fraction | (behind_point & ~digit) | (out.point & ~point);
    out.exponent_letter = out.end & letter;
    bad |= (point & ~out.point) | (out.end & point) | (letter & ~out.end);
    const ub8 exponent = out.exponent_letter << 1;
    const ub8 behind_exponent = behind_runs(digit, (exponent | (exponent & sign) << 1) & digit);
    bad |= behind_exponent & ~(blank | separator);
    // One number between two separators.
    bad |= behind_runs(blank, blank & number << 1) & number;
    bad |= (behind_runs(blank, blank & behind_separator) | behind_separator) & separator;
    out.good = bad == 0;
    return out;
}

} // namespace tavo::vector
