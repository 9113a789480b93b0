// The order in which rows are printed: by one column, as its values order, nulls last in either direction, and rows of
// equal values as they came.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/column/stored_column.h"
#include "host/column/value_type.h"
#include "host/join/step_list.h"
#include "host/link/callbacks.h"
#include "host/query/query.h"

namespace host {

// "delay", "delay desc", "delay asc". A column whose name ends so stands in the list of all names.
struct asked_order {
    std::string column;
    bool descending = false;
};
asked_order parse_order(const std::string &text, const std::vector<std::string> &names);

// A number for each row of the selection, by row number, that orders as the column's values do.
constexpr ub8 null_key = ~ub8{0};
std::vector<ub8> order_keys(session &, stored_column &, const selection &, step_list &);

// The places 0 to keys.size() - 1 in the order of their keys, the first `limit` of them.
std::vector<std::size_t> ordered_places(const std::vector<ub8> &keys, bool descending, std::size_t limit);

// The same from the text, for --check: lines and the value of each that they are ordered by, null or not.
using valued_line = std::pair<std::optional<std::string>, std::string>;
std::string ordered_lines(std::vector<valued_line> lines, value_type type, bool descending, std::size_t limit);

} // namespace host
