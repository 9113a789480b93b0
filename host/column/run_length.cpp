#include "host/column/run_length.h"

#include <algorithm>

#include "host/column/packing.h"

namespace host {

namespace {

// Calls use(code, rows) for each run, cut where it is longer than entries of so many bits can say.
template <class Use>
void each_run(std::span<const ub4> codes, unsigned entry_bits, Use use) {
    const std::size_t longest = (1u << entry_bits) - 1;
    for (std::size_t row = 0, end; row < codes.size(); row = end) {
        for (end = row + 1; end < codes.size() && end - row < longest && codes[end] == codes[row];)
            end++;
        use(codes[row], end - row);
    }
}

struct best_entries {
    unsigned bits;
    ub8 bytes;
};

best_entries judge(std::span<const ub4> codes, unsigned width) {
    best_entries best{};
    for (const unsigned bits : {8u, 16u}) {
        ub8 runs = 0;
        each_run(codes, bits, [&](ub4, std::size_t) { runs++; });
        const ub8 bytes = packed_bytes(runs, width) + runs * bits / 8;
        if (best.bits == 0 || bytes < best.bytes)
            best = {bits, bytes};
    }
    return best;
}

} // namespace

ub8 run_bytes(std::span<const ub4> codes, unsigned width) { return judge(codes, width).bytes; }

run_lengths find_runs(std::span<const ub4> codes, unsigned width) {
    const best_entries entries = judge(codes, width);
    run_lengths runs;
    runs.entry_bits = entries.bits;
    runs.bytes = entries.bytes;
    each_run(codes, entries.bits, [&](ub4 code, std::size_t rows) {
        runs.codes.push_back(code);
        if (entries.bits == 16)
            runs.table.push_back(static_cast<ub1>(rows >> 8));
        runs.table.push_back(static_cast<ub1>(rows));
    });
    const std::size_t size = runs.table.size();
    runs.table.resize(size + readable_behind);
    std::fill(runs.table.begin() + size, runs.table.end(), ub1{0});
    return runs;
}

} // namespace host
