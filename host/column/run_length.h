// Run-length form of a column's codes: one code a run of equal rows, and the rows of each run.
#pragma once

#include <span>

#include <tavo/tavo.h>

#include "host/column/block.h"

namespace host {

struct run_lengths {
    block<ub4> codes;        // one a run
    block<ub1> table;        // rows of each run: bytes, or two bytes with the upper one first; readable_behind behind
    unsigned entry_bits = 8; // 8 or 16
    ub8 bytes = 0;           // that the packed codes and the table take
};

// With the entry width that takes fewer bytes in all, codes having this width: a run that is longer than an entry can
// say is cut. Every run has at least one row.
run_lengths find_runs(std::span<const ub4> codes, unsigned width);

// What the bytes of these runs would be.
ub8 run_bytes(std::span<const ub4> codes, unsigned width);

} // namespace host
