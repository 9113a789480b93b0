// Expansion of a run-length column's decoded codes: from one element per run to one element per row.
#pragma once

#include "frame/tavo_vec.h"

extern "C" {
// dst.data receives, from its start, for each of the src.size runs (at least one) as many copies of the run's element
// in src.data as the run has rows. runs points at the run table's entry of the first run; that entry itself isn't read:
// the first run has first_count rows left to emit. last_excess rows of the final run are not emitted (with a single
// run, first_count - last_excess are).
//
// The elements may lie inside dst.data, as in a decode in place where they fill the end of the output: each is read
// before its rows are written, and a run writes exactly its rows, never a byte more. So an element is intact when its
// turn comes as long as the rows before it end at or before it.
typedef void tavo_expand_runs_fn(tavo_vec *dst, const tavo_vec *src, const void *runs, ub4 first_count,
                                 ub4 last_excess) TAVO_NOEXCEPT;

tavo_expand_runs_fn tavo_rle8_expand_ub1; // ub1 run table, ub1 elements
tavo_expand_runs_fn tavo_rle8_expand_ub2;
tavo_expand_runs_fn tavo_rle8_expand_ub4;
tavo_expand_runs_fn tavo_rle16_expand_ub1; // big-endian ub2 run table
tavo_expand_runs_fn tavo_rle16_expand_ub2;
tavo_expand_runs_fn tavo_rle16_expand_ub4;
}
