// The kernels behind tavo_dgk_symbol2code_dydi: one walk over the rows for each form of column, with hashes that the
// host gives (ex) or without (in: every symbol has hash 0).
#pragma once

#include "frame/tavo_dense.h"
#include "frame/tavo_env.h"

// K(form)
#define TAVO_SYM2CODE_FORMS(K) K(one_len) K(cla_stride_one) K(lp_sep) K(lv_sep) K(fixed)

// From rows_done on to the column's end: code[row] is row's code. `data` is the column's plain data; hash is null for
// the in kernels. Counts rows in rows_done and new_rows, symbols in new_symbols. TAVO_DONE, or what stopped it at
// rows_done.
typedef ub4 tavo_sym2code_fn(tavo_dgk_worker *worker, ub4 *code, const tavo_vec *column, const ub1 *data,
                             const ub8 *hash) TAVO_NOEXCEPT;

extern "C" {
#define TAVO_DECLARE(form) tavo_sym2code_fn tavo_dgk_sym2code_ex_##form, tavo_dgk_sym2code_in_##form;
TAVO_SYM2CODE_FORMS(TAVO_DECLARE)
#undef TAVO_DECLARE
}
