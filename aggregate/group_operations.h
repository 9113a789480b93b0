// The operations of the descriptor on groups of rows, and the steps that they are made of.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_groupkey_dydi(tavo_vec *keys, ub4 *key_space, tavo_vec *cols, ub4 ncols, tavo_vec *temp,
                       tavo_env *env) noexcept;
ub4 tavo_gby_sum_dydi(tavo_vec *acc, tavo_vec *src, tavo_vec *keys, tavo_env *env, const sb2 offsets[2]) noexcept;
ub4 tavo_sum_vec_dydi(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept;
ub4 tavo_prefix_sum_vec_dydi(tavo_vec *res, tavo_vec *src, tavo_env *env) noexcept;

// In place: n keys times the factor; n keys shifted left, by the shift modulo 32. Both wrap.
void tavo_mul_ub4_const(ub4 *keys, ub4 factor, ub4 n) noexcept;
void tavo_shl_ub4_const(ub4 *keys, ub4 shift, ub4 n) noexcept;
}
