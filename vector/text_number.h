// The value of a number in a vector's text, and how a type stores it: the scalar reading, which defines both.
//
// There are two rules, and which one holds is part of the result. An element of fewer than 8 units between its
// separators, blanks and sign included, has the short rule: digit i of the mantissa (counting its units, the point too)
// times a weight, 1000000.0 down to 1.0 before the point and 0.1 down to 0.0000001 behind it, the eight products summed
// by halves. All others have the general rule: digits before the point by fused multiply-adds, then each digit behind
// it divided by its power of ten and added. So 0.3 is 3 * 0.1, which is not the double next to 0.3, and 0.30000000 is.
// An exponent multiplies by pow().
#pragma once

#include <cmath>

#include "frame/comparable.h"
#include "frame/tavo_status.h"
#include "frame/tavo_vector.h"
#include "vector/norm.h"

namespace tavo::vector {

// ---- Character sets ----

struct ascii {
    static constexpr unsigned bytes = 1;
    [[gnu::always_inline]] static ub4 unit(const ub1 *text, ub8 i) { return text[i]; }
};
struct utf16 {
    static constexpr unsigned bytes = 2;
    [[gnu::always_inline]] static ub4 unit(const ub1 *text, ub8 i) { return text[2 * i] << 8 | text[2 * i + 1]; }
};

// ---- An element's text ----

// Units, counted from the text's start.
struct number_text {
    ub8 mantissa; // first digit, or the point if there is none before it
    ub8 point;    // or the end of the mantissa
    ub8 end;      // of the mantissa
    bool negative, has_exponent;
    ub4 exponent; // wraps
};

constexpr bool is_digit(ub4 unit) { return unit - '0' < 10; }
constexpr bool is_exponent_letter(ub4 unit) { return (unit & ~0x20u) == 'E'; }

// Reads the element at unit `at` of a text of `units`, which moves on to the unit behind the blanks that follow it. The
// kind of unit found there is up to the caller. TAVO_BAD_NUMBER where a digit is missing.
template <class Charset>
[[gnu::always_inline]] inline ub4 scan_number(const ub1 *text, ub8 units, ub8 &at, number_text &out) {
    const auto unit = [=](ub8 i) { return i < units ? Charset::unit(text, i) : 0; };
    const auto skip = [&](auto kind) {
        while (at < units && kind(unit(at)))
            at++;
    };
    const auto blank = [](ub4 u) { return u == ' '; };
    const auto sign = [&] {
        const ub4 u = unit(at);
        at += u == '+' || u == '-';
        return u == '-';
    };
    skip(blank);
    out.negative = sign();
    out.mantissa = at;
    skip(is_digit);
    out.point = at;
    ub8 digits = at - out.mantissa;
    if (unit(at) == '.') {
        at++;
        skip(is_digit);
        digits += at - out.point - 1;
    }
    out.end = at;
    if (digits == 0)
        return TAVO_BAD_NUMBER;
    out.has_exponent = is_exponent_letter(unit(at));
    if (out.has_exponent) {
        at++;
        const bool negative = sign();
        const ub8 first = at;
        out.exponent = 0;
        for (; is_digit(unit(at)); at++)
            out.exponent = out.exponent * 10 + (unit(at) - '0');
        if (at == first)
            return TAVO_BAD_NUMBER;
        if (negative)
            out.exponent = 0 - out.exponent;
    }
    skip(blank);
    return TAVO_DONE;
}

// ---- Values ----

constexpr unsigned short_units = 8;           // an element of fewer has the short rule
constexpr unsigned weight_of_units_digit = 6; // the point's place is next, with weight 0

inline constexpr double short_weights[16] = {1000000.0, 100000.0, 10000.0, 1000.0, 100.0,   10.0,     1.0,      0.0,
                                             0.1,       0.01,     0.001,   0.0001, 0.00001, 0.000001, 0.0000001};

template <class Charset>
[[gnu::always_inline]] inline double short_mantissa(const ub1 *text, const number_text &number) {
    double term[8] = {};
    for (ub8 i = number.mantissa; i < number.end; i++)
        if (i != number.point)
            term[i - number.mantissa] =
                static_cast<double>(Charset::unit(text, i) - '0') *
                short_weights[weight_of_units_digit + 1 - (number.point - number.mantissa) + (i - number.mantissa)];
    return ((term[0] + term[4]) + (term[2] + term[6])) + ((term[1] + term[5]) + (term[3] + term[7]));
}
template <class Charset>
inline double general_mantissa(const ub1 *text, const number_text &number) {
    double value = 0.0, power = 10.0;
    for (ub8 i = number.mantissa; i < number.point; i++)
        value = __builtin_fma(value, 10.0, static_cast<double>(Charset::unit(text, i) - '0'));
    for (ub8 i = number.point + 1; i < number.end; i++, power *= 10.0)
        value += static_cast<double>(Charset::unit(text, i) - '0') / power;
    return value;
}
[[gnu::always_inline]] inline double power_of_ten(ub4 exponent) {
    return std::pow(10.0, static_cast<double>(static_cast<sb4>(exponent)));
}

// ---- How a type takes a value ----

struct text_float {
    static constexpr unsigned bytes = 4;
    // False if the value is beyond range. `kept` is what counts for the norm.
    [[gnu::always_inline]] static bool fits(double v, double &kept) {
        kept = v;
        return !beyond_range(static_cast<float>(v));
    }
    [[gnu::always_inline]] static void store(ub1 *out, double kept, bool native) {
        const auto bits = std::bit_cast<ub4>(static_cast<float>(kept));
        if (native)
            __builtin_memcpy(out, &bits, sizeof bits);
        else
            store_comparable<f32>(out, bits);
    }
};
struct text_double {
    static constexpr unsigned bytes = 8;
    [[gnu::always_inline]] static bool fits(double v, double &kept) {
        kept = v;
        return !beyond_range(v);
    }
    [[gnu::always_inline]] static void store(ub1 *out, double kept, bool native) {
        const auto bits = std::bit_cast<ub8>(kept);
        if (native)
            __builtin_memcpy(out, &bits, sizeof bits);
        else
            store_comparable<f64>(out, bits);
    }
};
struct text_int8 {
    static constexpr unsigned bytes = 1;
    // NaN fits, and is stored as 0.
    [[gnu::always_inline]] static bool fits(double v, double &kept) {
        kept = __builtin_round(v);
        const auto narrowed = static_cast<float>(v);
        return !(narrowed < -128.0f || narrowed > 127.0f);
    }
    [[gnu::always_inline]] static void store(ub1 *out, double kept, bool) {
        *out = kept != kept ? 0 : static_cast<ub1>(static_cast<sb4>(kept));
    }
};

} // namespace tavo::vector
