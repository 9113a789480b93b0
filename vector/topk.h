// The nearest-neighbour operation. Its contract stands in frame/tavo_vector.h.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_vector_topk_dydi(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric, ub8 layout, tavo_env *env,
                          void *scratch) noexcept;

ub4 tavo_dbv_paired_unif_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel, ub4 metric,
                              tavo_env *env) noexcept;
ub4 tavo_dbv_single_unif_topk(tavo_vec *res, tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                              ub4 left_sparse, ub4 metric, tavo_env *env, void *scratch) noexcept;
}
