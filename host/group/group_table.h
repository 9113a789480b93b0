// Groups of rows and what is asked of them: keys by groupkey, sums by gby_sum, expressions by the arithmetic kernels.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/column/table.h"
#include "host/group/dense_groups.h"
#include "host/group/measure.h"
#include "host/join/step_list.h"
#include "host/link/callbacks.h"
#include "host/query/query.h"

namespace host {

enum class asked_of_group { count, values, sum, average, smallest, largest };

// count is of rows, values of those that are not null.
struct aggregate {
    asked_of_group what = asked_of_group::count;
    measure of;         // not of count; of smallest and largest a column
    number_scale scale; // of sum and average: how the numbers are held
    bool shown = true;  // else only --having or --order-by need it
};
std::string name_of(const aggregate &);

// A column that rows are grouped by: its values, or the months of its dates.
struct group_column {
    std::string name;
    std::size_t column = 0;
    bool month = false;
};
// `origin`, or `month(date)`.
group_column parse_group_column(const std::string &text, const csv_file &file);
// The month of a date or a date-time: 2001-04.
inline std::string month_of(const std::string &date) { return date.substr(0, 7); }

struct group_row {
    std::vector<std::optional<std::string>> group, answers;
    // What stands for these in the dictionaries: of the group columns, unless one is of form text; of answers that are
    // a smallest or largest value, of the measured column.
    std::vector<ub4> group_codes = {}, answer_codes = {};
};

// One row for each group that has rows, in the order of the group columns' values, nulls first; without group columns
// one row. Sets the aggregates' scales. The table must have all columns with their dictionaries, but those that rows
// are grouped by may be of form text: threads and memory are for these.
std::vector<group_row> group_rows(session &, const table &, const selection &, const std::vector<group_column> &,
                                  std::vector<aggregate> &, const dense_options &, step_list &steps);

// The same from the text of the file, these of its rows. The order of the groups is another one.
std::vector<group_row> plain_groups(const table &, const std::vector<ub4> &rows, const std::vector<group_column> &,
                                    const std::vector<aggregate> &, const std::vector<std::string> &null_texts);

// Compares computed values of these rows, or of the first of them, with the text of the file. Returns what differs.
std::string compare_computed(const table &, const std::vector<ub4> &rows, const std::vector<measure> &,
                             const std::vector<std::vector<std::optional<double>>> &values,
                             const std::vector<std::string> &null_texts);

// The values of an expression, or of a column, in the selected rows: doubles; nothing for a null.
std::vector<std::optional<double>> computed_values(session &, const table &, const selection &, const measure &,
                                                   step_list &steps);

} // namespace host
