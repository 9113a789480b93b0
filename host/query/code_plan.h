// A predicate in terms of codes: which scans over which columns, with which constants, and how their results combine.
#pragma once

#include <string>
#include <vector>

#include "host/column/table.h"
#include "host/query/predicate.h"

namespace host {

struct code_plan {
    enum class kind {
        nothing, // no row, whatever the codes: a value that the column does not have
        every,   // every row
        scan,    // one kernel
        set,     // one kernel: membership
        nulls,   // of a column without a dictionary: the rows without a value
        known,   // and those with one
        columns, // the codes of two columns, row by row
        both,    // rows of all parts
        either   // rows of any part
    };
    kind what = kind::nothing;
    stored_column *col = nullptr;   // of all but both, either
    tavo_operation op = TAVO_OP_EQ; // of scan, and its constants: each a code of the column, so it fits
    tavo_variant variant = TAVO_VARIANT_PLAIN;
    ub8 low = 0, high = 0;                    // one-constant scans use low
    std::vector<std::pair<ub8, ub8>> members; // of set: from one code up to another, without that
    bool outside = false;                     // of set: all other values
    stored_column *other = nullptr;           // of columns: `col` on the left, this on the right
    comparison compared{};                    // of columns
    std::vector<code_plan> parts;             // of both, either
    std::string text;                         // the predicate it stands for, of nothing, every, scan, columns
};

// All of the predicates, resolved, at once. Their columns must be encoded in the table. Throws where a value does not
// belong to its column's type, and where the order of a column that was found to be text is asked for by a number or a
// date. Ranges of one column that are ANDed become one scan.
code_plan plan_codes(const std::vector<predicate> &all, const table &);

// The rows whose codes lie in one of these ranges, each from one code up to another, without that: ascending, apart
// from each other, the null code among them where nulls are wanted. For hosts whose predicates are not texts.
code_plan plan_code_ranges(stored_column &, const std::vector<std::pair<ub8, ub8>> &ranges, const std::string &text);

// All of these.
code_plan plan_all(std::vector<code_plan> parts);

} // namespace host
