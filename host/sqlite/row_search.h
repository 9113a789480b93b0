// From ranges of codes to rows: by kernels, or, where few rows are wanted, by lists of rows.
#pragma once

#include <string>
#include <vector>

#include "host/join/step_list.h"
#include "host/sqlite/condition.h"
#include "host/sqlite/relation.h"

namespace host::sqlite {

// What is wanted of one column.
struct column_filter {
    const value_column *col;
    code_ranges ranges;
    std::string text; // for tavo_explain()
};

struct order_key {
    const value_column *col; // null: row numbers
    bool descending;
};

// Rows as a selection, or, in the order wanted, as a list.
struct rows_found {
    bool listed = false;
    bool cut = false; // by the limit: behind the list there may be more
    selection selected;
    std::vector<ub4> rows;
};

class row_search {
public:
    static constexpr ub8 no_limit = ~ub8{0};

    row_search(const relation &r, session &s, std::vector<query_step> &steps)
        : relation_(r), session_(s), steps_(steps) {}

    // The rows in `numbered` that all filters take, in this order, those of equal keys by number. With a limit at least
    // so many of the first of them: the same ones as without. Orders need plain columns.
    rows_found run(std::vector<column_filter> filters, row_range numbered, const std::vector<order_key> &order,
                   ub8 limit);

private:
    bool takes(const std::vector<column_filter> &, ub4 row) const;
    rows_found by_lists(const std::vector<column_filter> &, row_range) const;
    bool first_rows(const std::vector<column_filter> &, row_range, ub8 limit, rows_found &) const;
    selection by_kernels(const std::vector<column_filter> &, row_range);
    void put_in_order(rows_found &, const std::vector<order_key> &, ub8 limit, bool all) const;
    void walk(rows_found &, const order_key &, ub8 limit, bool all) const;

    const relation &relation_;
    session &session_;
    std::vector<query_step> &steps_;
};

} // namespace host::sqlite
