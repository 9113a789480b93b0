#include "host/column/run_length.h"

#include <algorithm>

#include "host/column/packing.h"

namespace host {

ub8 run_lengths::bytes(unsigned width) const { return packed_bytes(codes.size(), width) + table.size(); }

namespace {

run_lengths cut_runs(const std::vector<ub4> &codes, unsigned entry_bits) {
    run_lengths runs;
    runs.entry_bits = entry_bits;
    const std::size_t longest = (1u << entry_bits) - 1;
    for (std::size_t row = 0; row < codes.size();) {
        std::size_t end = row + 1;
        while (end < codes.size() && end - row < longest && codes[end] == codes[row])
            end++;
        runs.codes.push_back(codes[row]);
        if (entry_bits == 16)
            runs.table.push_back(static_cast<ub1>((end - row) >> 8));
        runs.table.push_back(static_cast<ub1>(end - row));
        row = end;
    }
    return runs;
}

} // namespace

run_lengths find_runs(const std::vector<ub4> &codes, unsigned width) {
    run_lengths narrow = cut_runs(codes, 8), wide = cut_runs(codes, 16);
    return wide.bytes(width) < narrow.bytes(width) ? std::move(wide) : std::move(narrow);
}

} // namespace host
