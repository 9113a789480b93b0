// The operation that converts elements. Its contract stands in frame/tavo_vector.h.
#pragma once

#include "frame/tavo_avx512g.h"

extern "C" ub4 tavo_vector_convert_fp_dydi(tavo_vec *res, tavo_vec *norms, tavo_vec *src, ub8 *bad_rows,
                                           tavo_env *env) noexcept;
