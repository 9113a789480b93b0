// The family list of the smallest and largest codes: every (code width, null rule) once.
#pragma once

#include "decode/decode_kernels.h"
#include "frame/dispatch_table.h"

extern "C" {
#define TAVO_DECLARE(W) tavo_minmax_fn tavo_minmax_dict_##W##bit, tavo_minmax_dict_##W##bit_null;
TAVO_EACH_DECODE_WIDTH(TAVO_DECLARE)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_minmax(dispatch_tables &t) {
#define TAVO_PUT(W, null_tag, variant)                                                                                 \
    t.put(dispatch_index(TAVO_OP_MINMAX, TAVO_CLASS_DICT, width_code(W), variant),                                     \
          tavo_minmax_dict_##W##bit##null_tag, "tavo_minmax_dict_" #W "bit" #null_tag);
#define TAVO_PUT_WIDTH(W) TAVO_PUT(W, , TAVO_VARIANT_PLAIN) TAVO_PUT(W, _null, TAVO_VARIANT_SECOND)
    TAVO_EACH_DECODE_WIDTH(TAVO_PUT_WIDTH)
#undef TAVO_PUT_WIDTH
#undef TAVO_PUT
}

} // namespace tavo
