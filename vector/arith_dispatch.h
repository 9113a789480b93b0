// Choosing a kernel of vector arithmetic.
#pragma once

#include "vector/arith_kernels.h"

extern "C" {
// The kernel of an operation (TAVO_VECTOR_ADD and its siblings), two operands and a result, each by element type, form
// and layout; null where there is none. Only dense ones exist (layout 0). The form of int8 makes no difference.
tavo_arith_kernel *tavo_vector_arith_dispatch(ub4 op, ub4 a_type, ub4 a_comparable, ub4 a_layout, ub4 b_type,
                                              ub4 b_comparable, ub4 b_layout, ub4 is_scalar, ub4 r_type,
                                              ub4 r_comparable, ub4 r_layout, ub4 with_norm) noexcept;
}
