// Expansion of a front-coded dictionary of symbols of one length; its contract stands in frame/tavo_avx512g.h.
//
//   stream   src.size blocks without alignment, 16 symbols each, the last one those that remain:
//            k (1 byte, 0 to w), the k bytes that all of the block's symbols begin with, w - k further bytes a symbol
//   output   dst.data: prefix_count symbols of w = prefix_len bytes (1 to 8), back to back. Not a byte more is written
//   refs     env.symbol_refs, if neither is null: a record of 16 bytes a symbol: ub8 address in dst.data, ub2 length,
//            zeros; any alignment
//   result   TAVO_DONE, or TAVO_BAD_INPUT if prefix_block isn't 16 or w is out of range
//
// TAVO_SPAK in src.enc says that the stream itself is compressed; it then takes an env with a host. A block's k is not
// checked. Nothing outside the stream is read.
#pragma once

#include "frame/tavo_env.h"

extern "C" ub4 tavo_prefix_decode_dydi(tavo_vec *dst, tavo_vec *src, tavo_env *env) noexcept;
