// The family list of the burst kernels: from a bit per run to a bit per row.
#pragma once

#include "frame/dispatch_table.h"

// K(name, width code): run tables of 8 and 16 bits, and their forms by cumulative row numbers.
#define TAVO_EACH_BURST_RLE(K)                                                                                         \
    K(tavo_burst_rle_8bit, 6)                                                                                          \
    K(tavo_burst_rle_8bit_cla, 7)                                                                                      \
    K(tavo_burst_rle_16bit, 14)                                                                                        \
    K(tavo_burst_rle_16bit_cla, 15)

// env->sel_bits has a bit per run, of which env->sel_count are set. Written are res->bits, a bit per row in
// (res->size + 63) / 64 words, and res->count, the rows set. Rows that no run covers are clear if at most half of the
// runs are selected, else set. Where few runs are selected (fewer than 2%), or few are not, a run table is not read
// behind the last of these. Runs of more rows than res->size are the caller's fault: all of their rows are counted, and
// those beyond the last word are written there.
extern "C" {
#define TAVO_DECLARE(name, code) tavo_row_move_fn name;
TAVO_EACH_BURST_RLE(TAVO_DECLARE)
#undef TAVO_DECLARE
}

namespace tavo {

consteval void put_burst_rle(dispatch_tables &t) {
#define TAVO_PUT(name, code) t.put(dispatch_index(TAVO_OP_BURST_RLE, TAVO_CLASS_OTHER, code, 0), name, #name);
    TAVO_EACH_BURST_RLE(TAVO_PUT)
#undef TAVO_PUT
}

} // namespace tavo
