// Parsing the rows of a text column. Every row is tried in lanes; one that those don't take, because it is bad or has
// no room, is read from its start again unit by unit, which tells why.
#pragma once

#include "vector/operands.h"
#include "vector/parse_lanes.h"

namespace tavo::vector {

// One row, unit by unit. The status of the first fault in the order of the text.
template <class Charset, class Type>
[[gnu::noinline]] ub4 parse_plainly(const ub1 *text, ub8 units, text_output &out) noexcept {
    ub8 at = 0;
    while (at < units && Charset::unit(text, at) == ' ')
        at++;
    if (at == units || Charset::unit(text, at) != '[')
        return TAVO_BAD_SHAPE;
    at++;
    for (bool inside = true; inside; at++) {
        const ub8 start = at;
        number_text number;
        if (const ub4 status = scan_number<Charset>(text, units, at, number))
            return status;
        if (at == units)
            return TAVO_BAD_SHAPE;
        const ub4 ending = Charset::unit(text, at);
        if (ending != ',' && ending != ']')
            return TAVO_BAD_NUMBER;
        double value =
            at - start < short_units ? short_mantissa<Charset>(text, number) : general_mantissa<Charset>(text, number);
        if (number.has_exponent)
            value *= power_of_ten(number.exponent);
        double kept;
        if (!Type::fits(number.negative ? -value : value, kept))
            return TAVO_BAD_NUMBER;
        if (out.position == out.capacity)
            return TAVO_TEXT_FULL;
        Type::store(out.data + Type::bytes * out.position++, kept, out.native);
        out.squares = __builtin_fma(kept, kept, out.squares);
        out.count++;
        // Before a row of fixed length is complete, ] separates as a comma does.
        if (out.dims == 0)
            inside = ending != ']';
        else if (out.count == out.dims) {
            if (ending != ']')
                return TAVO_BAD_SHAPE;
            inside = false;
        }
    }
    while (at < units && Charset::unit(text, at) == ' ')
        at++;
    return at == units ? TAVO_DONE : TAVO_BAD_SHAPE;
}

template <class Charset, class Type>
[[gnu::always_inline]] inline ub4 parse(tavo_vec *res, tavo_vec *norms, tavo_vec *text, ub8 *bad_rows, tavo_env *env) {
    const bool by_pointer = has_flag(text, TAVO_LP_SEP);
    const ub4 rows = by_pointer ? TAVO_VEC_SIZE(text) : 1;
    text_output out{static_cast<ub1 *>(res->data), TAVO_VEC_SIZE(res), 0, res->enc->vec_dims, 0, 0.0,
                    has_flag(res, TAVO_NATIVE),    norms != nullptr};
    ub4 good = 0, stopped = TAVO_DONE;
    for (ub4 row = 0; row < rows; row++) {
        const auto *const data =
            static_cast<const ub1 *>(by_pointer ? static_cast<void *const *>(text->data)[row] : text->data);
        const ub8 units = (by_pointer ? text->lengths[row] : text->byte_size) / Charset::bytes;
        const ub8 start = out.position;
        out.begin_row(start);
        ub4 status = TAVO_DONE;
        if (!parse_in_lanes<Charset, Type>(data, units, out)) {
            out.begin_row(start);
            status = parse_plainly<Charset, Type>(data, units, out);
        }
        if (status == TAVO_DONE) {
            if (norms != nullptr && (status = store_norm(out.squares, static_cast<double *>(norms->data) + row)))
                return status;
            if (out.dims == 0)
                res->lengths[row] = static_cast<ub2>(out.count);
            good++;
        } else if (bad_rows == nullptr || status == TAVO_TEXT_FULL) {
            stopped = status;
            break;
        } else {
            bad_rows[row / 64] |= 1ull << row % 64;
            out.position = start;
        }
    }
    env->parsed_rows = good;
    return stopped;
}

} // namespace tavo::vector

#define TAVO_PARSE_MEMBER(charset, type)                                                                               \
    TAVO_PARSER(charset, type) {                                                                                       \
        return tavo::vector::parse<tavo::vector::charset, tavo::vector::text_##type>(res, norms, text, bad_rows, env); \
    }
#define TAVO_PARSE_MEMBERS(charset)                                                                                    \
    extern "C" {                                                                                                       \
    TAVO_EACH_TEXT_TYPE(TAVO_PARSE_MEMBER, charset)                                                                    \
    }
