// Table-valued functions: rows computed as a whole from arguments.
#pragma once

#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "host/sqlite/connection.h"

namespace host::sqlite {

// A blob is a vector.
using answer_value = std::variant<std::monostate, sqlite3_int64, double, std::string, std::vector<char>>;
using answer_rows = std::vector<std::vector<answer_value>>;

struct table_function {
    const char *name;
    const char *declaration; // CREATE TABLE x(results..., arguments HIDDEN...)
    static constexpr std::size_t most_arguments = 8;
    int results, arguments;
    int needed; // of the arguments, the first ones
    bool reads; // tables or files
    // One value an argument, null for those that are left out.
    using call_type = std::function<answer_rows(sqlite3 *, connection &, const std::vector<sqlite3_value *> &)>;
    call_type call;
};

void add_table_function(sqlite3 *, const shared_connection &, table_function);

// The text of an argument; empty if it is left out or null.
std::string text_of(sqlite3_value *);

} // namespace host::sqlite
