// Run-length form of a column's codes: one code a run of equal rows, and the rows of each run.
#pragma once

#include <vector>

#include <tavo/tavo.h>

namespace host {

struct run_lengths {
    std::vector<ub4> codes;          // one a run
    std::vector<ub1> table;          // rows of each run: bytes, or two bytes with the upper one first
    unsigned entry_bits = 8;         // 8 or 16
    ub8 bytes(unsigned width) const; // that codes of this width and the table take
};

// With the entry width that takes fewer bytes in all, codes having this width: a run that is longer than an entry can
// say is cut. Every run has at least one row.
run_lengths find_runs(const std::vector<ub4> &codes, unsigned width);

} // namespace host
