// The operations on dense group keys; their contracts stand in frame/tavo_avx512g.h and frame/tavo_dense.h.
#pragma once

#include "frame/tavo_dense.h"
#include "frame/tavo_env.h"

extern "C" {
ub4 tavo_dgk_symbol2code_dydi(tavo_dgk_request *out, tavo_dgk_worker *worker, tavo_vec *codes, tavo_vec *column,
                              tavo_vec *hashes, tavo_env *env) noexcept;
ub4 tavo_dgk_code2symbol_dydi(ub8 ignored, const tavo_dgk *trie_holder, tavo_vec *out, tavo_vec *codes) noexcept;
ub4 tavo_dgk_concatenate_dydi(ub4 rows, ub8 cardinality, const ub4 *codes, ub8 *free_bits, ub4 *used_bits, ub8 *in_use,
                              ub8 *key, ub4 width_limit) noexcept;
ub4 tavo_extract_dgk_dydi(ub4 rows, const ub8 *key, ub4 ncols, const ub8 *in_use, ub4 *const *out) noexcept;
}
