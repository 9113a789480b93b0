// The arithmetic operation and its drivers. The operation's contract stands in frame/tavo_vector.h.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_vector_arith_dydi(tavo_vec *res, tavo_vec *norms, tavo_vec *a, tavo_vec *b, ub4 op, tavo_env *env,
                           void *scratch) noexcept;

// `first` has a row for each one visited. `second` has one too (paired), is one vector (single) or one number (scalar);
// swapped: it stands to the left of the operator.
ub4 tavo_vector_arith_vec_single_unif(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, bool swapped,
                                      ub4 op, tavo_env *env, void *scratch) noexcept;
ub4 tavo_vector_arith_vec_paired_flex(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, ub4 op,
                                      tavo_env *env) noexcept;
ub4 tavo_vector_arith_vec_single_flex(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, bool swapped,
                                      ub4 op, tavo_env *env, void *scratch) noexcept;
ub4 tavo_vector_arith_scalar_flex(tavo_vec *res, tavo_vec *norms, tavo_vec *first, tavo_vec *second, ub4 op,
                                  tavo_env *env) noexcept;
}
