// What the subcommands that read a CSV file share: their options, and the file read by them.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/column/column.h"
#include "host/column/csv.h"

namespace host {

struct table_options {
    std::string file;
    std::vector<std::string> null_texts, encode;
};
// FILE and the options that say how it is read. The options must live until they are parsed.
void add_table_options(CLI::App &, table_options &);

// The numbers of all columns.
std::vector<std::size_t> all_columns(const csv_file &);

// Reads the file's columns with the given numbers, with a line of progress if it is large.
table read_table(const csv_file &, const std::vector<std::size_t> &columns, const table_options &);

} // namespace host
