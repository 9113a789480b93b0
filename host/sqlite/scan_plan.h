// How a table is to be read, decided when a statement is prepared and handed to its scans as a text.
#pragma once

#include <string>
#include <vector>

#include "host/sqlite/condition.h"

namespace host::sqlite {

struct scan_plan {
    static constexpr int rowid = -1;
    struct condition {
        int column; // or rowid
        test what;
        bool constant; // its value stands in the statement
    };
    struct key {
        int column;
        bool descending;
    };
    std::vector<condition> conditions; // each with an argument, in this order
    std::vector<key> order;
    bool has_limit = false, has_offset = false; // arguments behind those of conditions
    sqlite3_uint64 used = 0;                    // columns, as sqlite3_index_info.colUsed has them

    std::string text() const;
    static scan_plan of(const char *text);
};

} // namespace host::sqlite
