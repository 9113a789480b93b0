// The operations of the descriptor on rows of one or two columns.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_selective_dydi(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept;
ub4 tavo_eq_stream_dydi(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_env *env) noexcept;
ub4 tavo_lookup_and_compare_dydi(tavo_vec *res, tavo_vec *left, tavo_vec *right, tavo_vec *left_table,
                                 tavo_vec *right_table, tavo_vec *op, tavo_env *env) noexcept;
}
