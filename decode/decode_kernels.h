// The family lists of the decode kernels: codes to symbol references, codes to integers, integers to symbol references.
#pragma once

#include "frame/dispatch_table.h"

// K(W) for each code width, in three bands: narrow output of decode_unpack is ub1, ub2, ub4.
#define TAVO_EACH_DECODE_WIDTH_TO_8(K) K(1) K(2) K(3) K(4) K(5) K(6) K(7) K(8)
#define TAVO_EACH_DECODE_WIDTH_TO_16(K) K(9) K(10) K(11) K(12) K(13) K(14) K(15) K(16)
#define TAVO_EACH_DECODE_WIDTH_TO_32(K) K(17) K(18) K(19) K(20) K(24) K(32)
#define TAVO_EACH_DECODE_WIDTH(K)                                                                                      \
    TAVO_EACH_DECODE_WIDTH_TO_8(K) TAVO_EACH_DECODE_WIDTH_TO_16(K) TAVO_EACH_DECODE_WIDTH_TO_32(K)

#define TAVO_EACH_DECODE_SYMBOL_WIDTH(K) K(8) K(16) K(32)

extern "C" {
#define TAVO_DECLARE(W) tavo_row_move_fn tavo_decode_dict_##W##bit, tavo_decode_unpack_dict_##W##bit;
TAVO_EACH_DECODE_WIDTH(TAVO_DECLARE)
#undef TAVO_DECLARE
#define TAVO_DECLARE(W) tavo_row_move_fn tavo_decode_symbol_dict_##W##bit;
TAVO_EACH_DECODE_SYMBOL_WIDTH(TAVO_DECLARE)
#undef TAVO_DECLARE
// What the kernel of 32-bit codes does with symbols of one length; has no slot of its own.
tavo_row_move_fn tavo_decode_symbol_dict_32bit_one_len;
}

namespace tavo {

consteval void put_decodes(dispatch_tables &t) {
#define TAVO_PUT(operation, name, W)                                                                                   \
    t.put(dispatch_index(operation, TAVO_CLASS_DICT, width_code(W), TAVO_VARIANT_PLAIN), name##_dict_##W##bit,         \
          #name "_dict_" #W "bit");
#define TAVO_PUT_WIDTH(W)                                                                                              \
    TAVO_PUT(TAVO_OP_DECODE, tavo_decode, W) TAVO_PUT(TAVO_OP_DECODE_UNPACK, tavo_decode_unpack, W)
#define TAVO_PUT_SYMBOL_WIDTH(W) TAVO_PUT(TAVO_OP_DECODE_SYMBOL, tavo_decode_symbol, W)
    TAVO_EACH_DECODE_WIDTH(TAVO_PUT_WIDTH)
    TAVO_EACH_DECODE_SYMBOL_WIDTH(TAVO_PUT_SYMBOL_WIDTH)
#undef TAVO_PUT_SYMBOL_WIDTH
#undef TAVO_PUT_WIDTH
#undef TAVO_PUT
}

} // namespace tavo
