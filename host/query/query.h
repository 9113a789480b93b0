// Runs a plan: scans through the dispatch table, bit vectors combined by the descriptor's operations.
#pragma once

#include <string>
#include <vector>

#include "host/link/callbacks.h"
#include "host/query/code_plan.h"

namespace host {

// Rows of a table: bit r mod 64 of word r / 64, nothing set above the last row.
struct selection {
    std::vector<ub8> bits;
    ub4 count = 0;
};

// One thing done for a query, as --explain shows it.
struct query_step {
    std::string kernel; // or descriptor operation; empty where none was needed
    std::string column; // empty for what works on bit vectors
    unsigned width = 0; // of the codes, in bits
    std::string what;
    ub4 rows_in = 0, rows_out = 0;
    double seconds = 0;
};

class query {
public:
    // Selections thinner than this, one row in so many, are scanned row by row.
    static constexpr ub4 sparse_below = 200;

    query(session &s, ub4 rows) : session_(s), ctx_(s.kernels().ctx()), rows_(rows) {}

    selection run(const code_plan &plan) { return run(plan, nullptr); }
    const std::vector<query_step> &steps() const { return steps_; }

private:
    // The plan's rows among those of `among`, or among all if that is null.
    selection run(const code_plan &plan, const selection *among);
    selection scan(const code_plan &plan, const selection *among);
    selection known_rows(const code_plan &plan);
    void keep_among(selection &rows, const selection &among);
    bool is_thin(const selection *s) const { return s != nullptr && static_cast<ub8>(s->count) * sparse_below < rows_; }
    selection all_rows();
    selection no_rows() const { return {std::vector<ub8>(words()), 0}; }
    std::size_t words() const { return (static_cast<std::size_t>(rows_) + 63) / 64; }

    session &session_;
    const tavo_specialized_ctx &ctx_;
    ub4 rows_;
    std::vector<query_step> steps_;
};

// Row numbers of a selection, ascending, at most `limit` of them.
std::vector<ub4> row_numbers(const tavo_specialized_ctx &ctx, const selection &s, ub4 rows, ub4 limit);

// The step that shows that a column was decompressed before a kernel read it.
query_step decompression_step(const column &col, const session::decompression &done);

} // namespace host
