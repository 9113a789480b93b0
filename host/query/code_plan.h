// A predicate in terms of codes: which scans over which columns, with which constants, and how their results combine.
#pragma once

#include <string>
#include <vector>

#include "host/column/column.h"
#include "host/query/predicate.h"

namespace host {

struct code_plan {
    enum class kind {
        nothing, // no row, whatever the codes: a value that the column does not have
        every,   // every row
        scan,    // one kernel
        both,    // rows of all parts
        either   // rows of any part
    };
    kind what = kind::nothing;
    column *col = nullptr;          // of nothing, every, scan
    tavo_operation op = TAVO_OP_EQ; // of scan, and its constants: each a code of the column, so it fits in W bits
    tavo_variant variant = TAVO_VARIANT_PLAIN;
    ub4 low = 0, high = 0;        // one-constant scans use low
    std::vector<code_plan> parts; // of both, either
    std::string text;             // the predicate it stands for, of nothing, every, scan
};

// All of the predicates at once. Their columns must be encoded in the table. Throws where a value does not belong to
// its column's type. Ranges of one column that are ANDed become one scan.
code_plan plan_codes(const std::vector<predicate> &all, const table &);

} // namespace host
