// Conversion of numbers, and of lengths to cumulative lengths.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" {
ub4 tavo_convert_dydi(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept;

// res[0] = 0, res[i + 1] = res[i] + lengths[i], big-endian: the cla array of n symbols. Returns the entries written,
// n + 1; asserts that res_len has room for them.
ub4 tavo_build_cla_1_ub1(ub4 *res, ub4 res_len, const ub1 *lengths, ub4 src_len) noexcept;
ub4 tavo_build_cla_1_ub2(ub4 *res, ub4 res_len, const ub2 *lengths, ub4 src_len) noexcept;
}
