// The bodies of vector arithmetic: one for an operation and a result type, which serves all its members. What the forms
// of the operands are, whether the second is a number, whether the result is comparable and whether its norm is wanted
// are constants of the member that the body branches on once a block: the branches are foreseen, and a block is long
// enough to hide them.
//
// Bodies stand in sources of their own, where no compiler makes a copy for every member.
#pragma once

#include "vector/arith_kernels.h"
#include "vector/forms.h"

namespace tavo::vector {

struct arith_shape {
    ub1 a, b;        // form numbers
    bool comparable; // result
    bool scalar;     // b is one number
    bool norm;
};

struct op_add {};
struct op_sub {};
struct op_mul {};
struct op_div {};

template <class Op>
ub4 arith_int8(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm, arith_shape shape) noexcept;
template <class Op>
ub4 arith_f32(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm, arith_shape shape) noexcept;
template <class Op>
ub4 arith_f64(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm, arith_shape shape) noexcept;

#define TAVO_ARITH_BODIES(op)                                                                                          \
    extern template ub4 arith_int8<op_##op>(ub4, const ub1 *, const ub1 *, ub1 *, double *, arith_shape) noexcept;     \
    extern template ub4 arith_f32<op_##op>(ub4, const ub1 *, const ub1 *, ub1 *, double *, arith_shape) noexcept;      \
    extern template ub4 arith_f64<op_##op>(ub4, const ub1 *, const ub1 *, ub1 *, double *, arith_shape) noexcept;
TAVO_EACH_ARITH_OP(TAVO_ARITH_BODIES)
#undef TAVO_ARITH_BODIES

template <class Op, class Result>
[[gnu::always_inline]] inline ub4 arith(ub4 dims, const ub1 *a, const ub1 *b, ub1 *out, double *norm,
                                        arith_shape shape) {
    if constexpr (Result::type == base::int8)
        return arith_int8<Op>(dims, a, b, out, norm, shape);
    else if constexpr (Result::type == base::float32)
        return arith_f32<Op>(dims, a, b, out, norm, shape);
    else
        return arith_f64<Op>(dims, a, b, out, norm, shape);
}

} // namespace tavo::vector
