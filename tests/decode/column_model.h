// A column of codes as plain vectors, one code a row or one a run, and the rows of it that are asked for.
#pragma once

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "frame/tavo.h"
#include "tests/kit/codes.h"

namespace tavo::test {

struct column_model {
    unsigned width = 0;
    std::vector<ub8> codes; // one a row, or one a run
    bool by_runs = false;
    std::vector<ub4> run_lengths;
    std::vector<bool> selected; // empty: no bit vector
    bool has_list = false;
    std::vector<ub4> list;
    mutable std::vector<ub4> ends; // of the runs

    ub4 rows() const {
        return by_runs ? std::accumulate(run_lengths.begin(), run_lengths.end(), 0u) : static_cast<ub4>(codes.size());
    }
    // The run of a row and the first row behind it.
    std::pair<ub4, ub4> run_of(ub4 row) const {
        if (ends.empty()) {
            ends.resize(run_lengths.size());
            std::partial_sum(run_lengths.begin(), run_lengths.end(), ends.begin());
        }
        const auto end = std::upper_bound(ends.begin(), ends.end(), row);
        return {static_cast<ub4>(end - ends.begin()), *end};
    }
    ub4 code(ub4 row) const { return static_cast<ub4>(codes[by_runs ? run_of(row).first : row]); }
};

inline std::vector<bool> random_selection(ub4 rows, unsigned one_in, std::mt19937_64 &rng) {
    std::vector<bool> selected(rows);
    for (ub4 row = 0; row < rows; row++)
        // Stretches without a row and stretches of nothing else are in there.
        selected[row] = row / 700 % 3 == 1 ? row / 1400 % 2 : rng() % one_in == 0;
    return selected;
}

inline std::vector<ub4> random_list(ub4 rows, std::mt19937_64 &rng) {
    std::vector<ub4> list;
    for (ub4 row = 0; row < rows; row++)
        if (rng() % 3 == 0)
            list.push_back(row);
    return list;
}

inline column_model plain_model(unsigned width, ub4 rows, std::mt19937_64 &rng) {
    column_model m;
    m.width = width;
    m.codes = random_codes(rows, width, rng);
    return m;
}

inline column_model run_model(unsigned width, ub4 runs, ub4 longest, ub4 shortest, std::mt19937_64 &rng) {
    column_model m = plain_model(width, runs, rng);
    m.by_runs = true;
    for (ub4 run = 0; run < runs; run++)
        m.run_lengths.push_back(shortest + static_cast<ub4>(rng() % (longest - shortest + 1)));
    if (runs != 0)
        m.run_lengths.back() = longest;
    return m;
}

} // namespace tavo::test
