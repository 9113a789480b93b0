// The distance operation and its drivers. The operation's contract stands in frame/tavo_vector.h.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_vector_distance_dydi(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric, ub8 layout, tavo_env *env,
                              void *scratch) noexcept;

// single: one query against every row; paired: row by row. unif: one kernel for the call; flex: images, one for each
// row.
ub4 tavo_dbv_paired_unif_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                  ub4 metric, tavo_env *env) noexcept;
ub4 tavo_dbv_single_unif_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                  ub4 left_sparse, ub4 metric, tavo_env *env, void *scratch) noexcept;
ub4 tavo_dbv_paired_flex_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                  void *scratch) noexcept;
ub4 tavo_dbv_single_flex_distance(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                  void *scratch) noexcept;
}
