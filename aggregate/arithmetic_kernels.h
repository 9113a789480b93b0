// The family list of arithmetic on columns of float and double: every (operator, type, form of either operand) once,
// each with a result for every row and with a sum.
#pragma once

#include "frame/dispatch_table.h"
#include "frame/tavo_group.h"

// K(operator, type, form of a, form of b)
#define TAVO_EACH_ARITH_FORM(K, op, type) K(op, type, n, n) K(op, type, n, c) K(op, type, c, n) K(op, type, c, c)
#define TAVO_EACH_ARITH_OPERATOR(K, type)                                                                              \
    TAVO_EACH_ARITH_FORM(K, add, type) TAVO_EACH_ARITH_FORM(K, sub, type) TAVO_EACH_ARITH_FORM(K, mul, type)

extern "C" {
#define TAVO_DECLARE(op, type, a, b) tavo_arith_fn tavo_##op##_##type##_##a##_##b, tavo_##op##_##type##_##a##_##b##_sum;
TAVO_EACH_ARITH_OPERATOR(TAVO_DECLARE, float)
TAVO_EACH_ARITH_OPERATOR(TAVO_DECLARE, double)
#undef TAVO_DECLARE
}

namespace tavo {

namespace arith {
// The list's words as numbers.
constexpr unsigned op_add = TAVO_OP_ADD, op_sub = TAVO_OP_SUB, op_mul = TAVO_OP_MUL;
constexpr unsigned type_float = TAVO_VALUE_FLOAT, type_double = TAVO_VALUE_DOUBLE;
constexpr unsigned form_n = 0, form_c = 1;
} // namespace arith

consteval void put_arithmetic(dispatch_tables &t) {
#define TAVO_PUT(op, type, a, b, suffix, variant)                                                                      \
    t.put(dispatch_index(arith::op_##op, TAVO_CLASS_FIXED,                                                             \
                         TAVO_ARITH_WIDTH_CODE(arith::type_##type, arith::form_##a, arith::form_##b), variant),        \
          tavo_##op##_##type##_##a##_##b##suffix, "tavo_" #op "_" #type "_" #a "_" #b #suffix);
#define TAVO_PUT_BOTH(op, type, a, b)                                                                                  \
    TAVO_PUT(op, type, a, b, , TAVO_VARIANT_PLAIN) TAVO_PUT(op, type, a, b, _sum, TAVO_VARIANT_SECOND)
    TAVO_EACH_ARITH_OPERATOR(TAVO_PUT_BOTH, float)
    TAVO_EACH_ARITH_OPERATOR(TAVO_PUT_BOTH, double)
#undef TAVO_PUT_BOTH
#undef TAVO_PUT
}

} // namespace tavo
