// What the subcommands that read a CSV file share: their options, and the file read by them.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/column/table.h"

namespace host {

struct table_options {
    std::string file, delimiter;
    std::vector<std::string> null_texts, types, encode;
    bool no_header = false;
};
// FILE and the options that say how it is read. The options must live until they are parsed.
void add_table_options(CLI::App &, table_options &);

// The file and its header, and a line to the user for each name that was made.
csv_file open_csv(const table_options &);

// The numbers of all columns.
std::vector<std::size_t> all_columns(const csv_file &);

// The numbers of the columns in a list like a header's line, spaces around the names or not.
std::vector<std::size_t> column_list(const csv_file &, const std::string &list);

// Reads the file's columns with the given numbers, with a line of progress if it is large.
// `numbers`: columns may be without a dictionary; `texts`: the columns that may be held as texts.
table read_table(const csv_file &, const std::vector<std::size_t> &columns, const table_options &, bool numbers = false,
                 const std::vector<std::size_t> &texts = {});

// A size as 4096, 64K, 512M or 2G; `option` stands in the message if it is none.
ub8 bytes_of(const std::string &text, const char *option);

// What a user has to know of files, for the end of a help text.
extern const char *const about_files;

} // namespace host
