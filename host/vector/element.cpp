#include "host/vector/element.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace host {

namespace {

// A binary floating-point format narrower than double.
struct float_format {
    int exponent_bits, fraction_bits;
    int lowest_exponent() const { return 2 - (1 << (exponent_bits - 1)); } // of a normal number
    ub8 sign() const { return ub8{1} << (exponent_bits + fraction_bits); }
    ub8 infinity() const { return ((ub8{1} << exponent_bits) - 1) << fraction_bits; }
};
constexpr float_format binary16{5, 10}, brain16{8, 7};

double power_of_two(int exponent) { return std::bit_cast<double>(static_cast<ub8>(exponent + 1023) << 52); }

std::optional<ub8> narrowed(const float_format &f, double value) {
    const ub8 sign = std::signbit(value) ? f.sign() : 0;
    const double size = std::fabs(value);
    if (std::isnan(value))
        return sign | f.infinity() | ub8{1} << (f.fraction_bits - 1);
    if (std::isinf(value))
        return sign | f.infinity();
    if (size >= power_of_two(128)) // beyond both formats, and where the sum below would overflow
        return std::nullopt;
    // In the binade of the value, or among the subnormals, elements stand 2^step apart. Added to 2^(step + 52), the
    // value is rounded to a multiple of that by the processor, to nearest even, and the sum's fraction counts them.
    const int exponent = static_cast<int>(std::bit_cast<ub8>(size) >> 52) - 1023;
    const int step = std::max(exponent, f.lowest_exponent()) - f.fraction_bits;
    const ub8 steps = std::bit_cast<ub8>(size + power_of_two(step + 52)) & ((ub8{1} << 52) - 1);
    // A carry into the next binade moves the exponent on by itself.
    const ub8 bits = (static_cast<ub8>(step + f.fraction_bits - f.lowest_exponent()) << f.fraction_bits) + steps;
    return bits < f.infinity() ? std::optional(sign | bits) : std::nullopt;
}

double widened(const float_format &f, ub8 bits) {
    const ub8 fraction = bits & ((ub8{1} << f.fraction_bits) - 1);
    const int biased = static_cast<int>((bits & f.infinity()) >> f.fraction_bits);
    double size;
    if (biased == (1 << f.exponent_bits) - 1)
        size = fraction == 0 ? INFINITY : NAN;
    else if (biased == 0)
        size = static_cast<double>(fraction) * power_of_two(f.lowest_exponent() - f.fraction_bits);
    else
        size = static_cast<double>(fraction + (ub8{1} << f.fraction_bits)) *
               power_of_two(f.lowest_exponent() - f.fraction_bits + biased - 1);
    return (bits & f.sign()) != 0 ? -size : size;
}

} // namespace

const element_kind &kind_of(element_type type) {
    return *std::find_if(std::begin(element_kinds), std::end(element_kinds),
                         [&](const element_kind &k) { return k.type == type; });
}

const element_kind *kind_of_stored(ub1 stored_type) {
    for (const element_kind &k : element_kinds)
        if (k.stored_type == stored_type)
            return &k;
    return nullptr;
}

const element_kind *kind_of_name(std::string_view name) {
    for (const element_kind &k : element_kinds)
        if (k.name == name)
            return &k;
    return nullptr;
}

std::string element_names() {
    std::string names;
    for (const element_kind &k : element_kinds)
        names += std::string(names.empty() ? "" : ", ") + k.name;
    return names;
}

std::optional<ub8> element_bits(element_type type, double value) {
    switch (type) {
    case element_type::float_: {
        const float narrow = static_cast<float>(value);
        if (std::isinf(narrow) && !std::isinf(value))
            return std::nullopt;
        return std::bit_cast<ub4>(narrow);
    }
    case element_type::double_: return std::bit_cast<ub8>(value);
    case element_type::float16: return narrowed(binary16, value);
    case element_type::bfloat16: return narrowed(brain16, value);
    case element_type::int8: {
        const double whole = std::nearbyint(value);
        if (!(whole >= -128 && whole <= 127)) // a NaN is neither
            return std::nullopt;
        return static_cast<ub1>(static_cast<int>(whole));
    }
    case element_type::bits: break;
    }
    return value == 0 || value == 1 ? std::optional<ub8>(value == 1) : std::nullopt;
}

double element_value(element_type type, ub8 bits) {
    switch (type) {
    case element_type::float_: return std::bit_cast<float>(static_cast<ub4>(bits));
    case element_type::double_: return std::bit_cast<double>(bits);
    case element_type::float16: return widened(binary16, bits);
    case element_type::bfloat16: return widened(brain16, bits);
    case element_type::int8: return static_cast<std::int8_t>(bits);
    case element_type::bits: break;
    }
    return static_cast<double>(bits);
}

ub8 comparable_bits(element_type type, ub8 native) {
    const element_kind &kind = kind_of(type);
    if (!kind.has_comparable)
        return native;
    const ub8 top = ub8{1} << (kind.width - 1);
    const double value = element_value(type, native);
    if (std::isnan(value))
        return top | *element_bits(type, std::copysign(NAN, 1.0));
    if (value == 0 || (native & top) == 0)
        return top | native;
    return ~native & (top | (top - 1));
}

ub8 native_bits(element_type type, ub8 comparable) {
    const element_kind &kind = kind_of(type);
    if (!kind.has_comparable)
        return comparable;
    const ub8 top = ub8{1} << (kind.width - 1);
    return (comparable & top) != 0 ? comparable ^ top : ~comparable & (top | (top - 1));
}

} // namespace host
