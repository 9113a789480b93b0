// The element types of vectors, and single elements: from a number to an element's bits and back.
//
// This is plain code on purpose: it is what the kernels' answers are checked against, and it shares nothing with them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tavo/tavo.h>

namespace host {

// Numbered as in tavo_enc_ctx.value_type.
enum class element_type : ub1 {
    float_ = TAVO_ELEM_FLOAT,
    double_ = TAVO_ELEM_DOUBLE,
    int8 = TAVO_ELEM_INT8,
    bits = TAVO_ELEM_BITMSB0,
    float16 = TAVO_ELEM_FLOAT16,
    bfloat16 = TAVO_ELEM_BFLOAT16
};

struct element_kind {
    element_type type;
    const char *name;        // as a user writes it
    const char *kernel_word; // as kernels' names spell it
    ub1 stored_type;         // as a vector image numbers it
    unsigned width;          // in bits
    bool has_comparable;     // its comparable form differs from its native one
    double largest;          // finite value
};
inline constexpr element_kind element_kinds[] = {
    {element_type::float_, "float", "float", LVECTOR_FLOAT, 32, true, 0x1.fffffep+127},
    {element_type::double_, "double", "double", LVECTOR_DOUBLE, 64, true, 0x1.fffffffffffffp+1023},
    {element_type::float16, "float16", "float16", LVECTOR_FLOAT16, 16, true, 65504},
    {element_type::bfloat16, "bfloat16", "bfloat16", LVECTOR_BFLOAT16, 16, true, 0x1.fep+127},
    {element_type::int8, "int8", "int8", LVECTOR_INT8, 8, false, 127},
    {element_type::bits, "bits", "bitmsb0", LVECTOR_BITMSB0, 1, false, 1},
};
const element_kind &kind_of(element_type);
const element_kind *kind_of_stored(ub1 stored_type); // null if there is none
const element_kind *kind_of_name(std::string_view);  // null if there is none
std::string element_names();                         // for messages: "float, double, ..."

// The element nearest to the value, of two equally near ones the even one, as bits in native form. Nothing where the
// type has no such value: beyond its largest one after rounding (an infinity or a NaN is one of the floating types'
// own), and for bits, whatever is neither 0 nor 1.
std::optional<ub8> element_bits(element_type, double value);

// The number that an element's native bits stand for.
double element_value(element_type, ub8 bits);

// Between native bits and the comparable form, whose unsigned order is that of the numbers: -0.0 counts as +0.0, a NaN
// of whatever sign and payload as one that stands above all numbers. Stored most significant byte first. Types without
// a comparable form are unchanged.
ub8 comparable_bits(element_type, ub8 native);
ub8 native_bits(element_type, ub8 comparable);

} // namespace host
