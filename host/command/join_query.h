// `tavo query FILE --join FILE`: its options, and what it does.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "host/command/table_options.h"

namespace host {

struct join_options {
    std::string file, memory;
    std::vector<std::string> on;
    bool left = false, right = false, anti = false;
};
void add_join_options(CLI::App &, join_options &);

// What a query asks of joined files, beside how they are joined.
struct joined_query {
    table_options table;
    std::vector<std::string> where;
    std::optional<std::string> columns;
    std::string order_by, library, output;
    ub4 limit;
    bool count, explain, check;
};
int run_join(const join_options &, const joined_query &);

} // namespace host
