// `tavo query --group-by ... --sum ...`: its options, and what it does.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/group/group_table.h"

namespace host {

struct group_options {
    std::string by, having, order;
    std::optional<std::string> threads, memory;
    std::vector<std::string> sums, averages;

    bool asked() const { return !by.empty() || !sums.empty() || !averages.empty(); }
};
void add_group_options(CLI::App &, group_options &);

// What a query asks of groups: parsed, with the columns that have to be encoded.
struct group_request {
    std::vector<group_column> by;
    std::vector<aggregate> aggregates;
};
group_request parse_groups(const group_options &, const std::vector<std::string> &smallest,
                           const std::vector<std::string> &largest, bool count, const csv_file &);
std::vector<std::size_t> columns_of(const group_request &);
// The columns that may be held as texts: rows are grouped by their values, and nothing else is asked of them.
std::vector<std::size_t> columns_grouped_by(const group_request &);
// --threads and --memory. Throws if they are none.
dense_options dense_options_of(const group_options &);

// Text of the answer, its rows held by --having, sorted by --order-by, the first `limit` of them. What differs from the
// text of the file goes to `difference`, if `expected` are the rows to recompute it from.
std::string group_lines(session &, const table &, const selection &, const group_options &, group_request &, ub4 limit,
                        const std::vector<ub4> *expected, const std::vector<std::string> &null_texts, step_list &steps,
                        std::string &difference);

} // namespace host
