// Rows of a query in the order of a column, as lines of CSV.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/column/table.h"
#include "host/rows/row_order.h"

namespace host {

struct ordered_request {
    const table &from;
    const selection &rows;
    const std::vector<std::size_t> &printed;
    std::size_t by;
    bool descending;
    ub4 limit;
};

// Values that were computed for the selected rows, one behind the other: columns behind those of the file.
using computed_columns = std::vector<std::vector<std::optional<double>>>;

struct ordered_answer {
    std::string lines;
    std::string read_lines; // without what was computed, if anything was
};
// Row numbers are put in order by the column's codes, and the rows gathered from a row-major table.
ordered_answer rows_in_order(session &, const ordered_request &, const computed_columns &,
                             std::vector<query_step> &steps);

// The same from the text of the selected rows, without what is computed.
std::string plain_rows_in_order(const ordered_request &, const std::vector<ub4> &rows,
                                const std::vector<std::string> &null_texts);

} // namespace host
