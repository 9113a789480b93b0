// The family list of the operations sum and distinct, which do nothing: a host that dispatches to them by number gets
// TAVO_DONE and finds its records unchanged, instead of an empty slot. Sums over columns are operations of the
// descriptor and the arithmetic kernels' _sum forms.
#pragma once

#include "decode/decode_kernels.h"
#include "frame/dispatch_table.h"

#define TAVO_EACH_SUM_FIXED_WIDTH(K) K(8) K(16) K(32) K(64)

extern "C" {
#define TAVO_DECLARE(W) tavo_minmax_fn tavo_sum_dict_##W##bit, tavo_distinct_dict_##W##bit;
TAVO_EACH_DECODE_WIDTH(TAVO_DECLARE)
#undef TAVO_DECLARE
#define TAVO_DECLARE(W) tavo_minmax_fn tavo_sum_fixed_##W##bit;
TAVO_EACH_SUM_FIXED_WIDTH(TAVO_DECLARE)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_sum_distinct(dispatch_tables &t) {
#define TAVO_PUT(operation, encoding_class, name, W)                                                                   \
    t.put(dispatch_index(operation, encoding_class, width_code(W), TAVO_VARIANT_PLAIN), name##_##W##bit,               \
          #name "_" #W "bit");
#define TAVO_PUT_DICT_WIDTH(W)                                                                                         \
    TAVO_PUT(TAVO_OP_SUM, TAVO_CLASS_DICT, tavo_sum_dict, W)                                                           \
    TAVO_PUT(TAVO_OP_DISTINCT, TAVO_CLASS_DICT, tavo_distinct_dict, W)
#define TAVO_PUT_FIXED_WIDTH(W) TAVO_PUT(TAVO_OP_SUM, TAVO_CLASS_FIXED, tavo_sum_fixed, W)
    TAVO_EACH_DECODE_WIDTH(TAVO_PUT_DICT_WIDTH)
    TAVO_EACH_SUM_FIXED_WIDTH(TAVO_PUT_FIXED_WIDTH)
#undef TAVO_PUT_FIXED_WIDTH
#undef TAVO_PUT_DICT_WIDTH
#undef TAVO_PUT
}

} // namespace tavo
