// The kernels of vector arithmetic: the list of all 1,104.
//
// Names are tavo_vector_arith_<op>_<a>_<b>_<result>_<mode>[_wnorm]. Mode vec takes two vectors, scalar a vector and one
// number. _wnorm also hands back the result's Euclidean norm.
#pragma once

#include "frame/tavo_avx512g.h"

#define TAVO_EACH_ARITH_OP(X) X(add) X(sub) X(mul) X(div)

// The pairs of operands whose result can be a float, and all pairs. `K` gets op, both operands and the result.
#define TAVO_EACH_FLOAT_PAIR(K, op, result)                                                                            \
    K(op, float, float, result)                                                                                        \
    K(op, float, Cfloat, result)                                                                                       \
    K(op, float, int8, result)                                                                                         \
    K(op, Cfloat, float, result)                                                                                       \
    K(op, Cfloat, Cfloat, result)                                                                                      \
    K(op, Cfloat, int8, result)                                                                                        \
    K(op, int8, float, result)                                                                                         \
    K(op, int8, Cfloat, result)                                                                                        \
    K(op, int8, int8, result)
#define TAVO_EACH_DOUBLE_PAIR(K, op, result)                                                                           \
    TAVO_EACH_FLOAT_PAIR(K, op, result)                                                                                \
    K(op, float, double, result)                                                                                       \
    K(op, float, Cdouble, result)                                                                                      \
    K(op, Cfloat, double, result)                                                                                      \
    K(op, Cfloat, Cdouble, result)                                                                                     \
    K(op, int8, double, result)                                                                                        \
    K(op, int8, Cdouble, result)                                                                                       \
    K(op, double, float, result)                                                                                       \
    K(op, double, Cfloat, result)                                                                                      \
    K(op, double, int8, result)                                                                                        \
    K(op, double, double, result)                                                                                      \
    K(op, double, Cdouble, result)                                                                                     \
    K(op, Cdouble, float, result)                                                                                      \
    K(op, Cdouble, Cfloat, result)                                                                                     \
    K(op, Cdouble, int8, result)                                                                                       \
    K(op, Cdouble, double, result)                                                                                     \
    K(op, Cdouble, Cdouble, result)
#define TAVO_EACH_ARITH_TRIPLE(K, op)                                                                                  \
    TAVO_EACH_FLOAT_PAIR(K, op, float)                                                                                 \
    TAVO_EACH_FLOAT_PAIR(K, op, Cfloat)                                                                                \
    TAVO_EACH_DOUBLE_PAIR(K, op, double)                                                                               \
    TAVO_EACH_DOUBLE_PAIR(K, op, Cdouble)                                                                              \
    K(op, int8, int8, int8)

// A kernel computes dims elements. TAVO_DONE, TAVO_OUT_OF_RANGE or TAVO_DIVISION_BY_ZERO; with another status than the
// first, blocks before the one that holds the culprit stand written. norm is touched by _wnorm members alone.
typedef ub4 tavo_arith_kernel(ub4 dims, const void *a, const void *b, void *out, double *norm) TAVO_NOEXCEPT;

#define TAVO_ARITH_KERNEL(name) ub4 name(ub4 dims, const void *a, const void *b, void *out, double *norm) noexcept

extern "C" {
#define TAVO_DECLARE_TRIPLE(op, a, b, result)                                                                          \
    TAVO_ARITH_KERNEL(tavo_vector_arith_##op##_##a##_##b##_##result##_vec);                                            \
    TAVO_ARITH_KERNEL(tavo_vector_arith_##op##_##a##_##b##_##result##_vec_wnorm);                                      \
    TAVO_ARITH_KERNEL(tavo_vector_arith_##op##_##a##_##b##_##result##_scalar);                                         \
    TAVO_ARITH_KERNEL(tavo_vector_arith_##op##_##a##_##b##_##result##_scalar_wnorm);
#define TAVO_DECLARE_OP(op) TAVO_EACH_ARITH_TRIPLE(TAVO_DECLARE_TRIPLE, op)
TAVO_EACH_ARITH_OP(TAVO_DECLARE_OP)
#undef TAVO_DECLARE_OP
#undef TAVO_DECLARE_TRIPLE
}
