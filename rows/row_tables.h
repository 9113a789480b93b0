// The operations on row-major tables, as the descriptor names them. Contracts: frame/tavo_rows.h.
#pragma once

#include "frame/tavo_rows.h"
#include "portable/intrinsics.h"

extern "C" {
ub4 tavo_gather_dydi(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env) noexcept;
ub4 tavo_gather_one_col_dydi(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env,
                             ub4 col) noexcept;
ub4 tavo_gather_cols_dydi(tavo_vec *dst, tavo_vec *src, const ub4 *cols, ub4 ncols, const tavo_gather_spec *shape,
                          tavo_env *env) noexcept;
ub4 tavo_transpose_reference_dydi(tavo_gather_spec *shape, tavo_vec *src, ub2 col, sb4 part) noexcept;
ub4 tavo_transpose_convert_dydi(tavo_gather_spec *shape, const tavo_gather_spec *from, sb4 to_part, sb4 from_part,
                                ub4 first_row, ub4 last_row, tavo_env *env) noexcept;
ub4 tavo_transpose_fixed_dydi(tavo_gather_spec *shape, tavo_vec *src, ub2 col, sb4 part) noexcept;

// Eight numbers from memory: lane k from base + offset + k * stride, in bytes, if the low byte of mask is not zero;
// else `otherwise`. The mask's single bits mean nothing.
__m256i tavo_mm256_mmask_gather_strided_epi32(const void *base, sb8 offset, sb8 stride, ub4 mask,
                                              __m256i otherwise) noexcept;
}
