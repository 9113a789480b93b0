// The answer once more, from the text of the file: no codes, no dictionaries, no kernels. What --check compares with.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/column/csv.h"
#include "host/column/value_type.h"
#include "host/query/predicate.h"

namespace host {

// A row's field by the name of its column; nothing for a null.
using field_reader = std::function<std::optional<std::string>(const std::string &column)>;

// A field's value; nothing if it is null.
std::optional<std::string> field_value(const csv_field &field, const std::vector<std::string> &null_texts);

// Whether a predicate, resolved, is true of a row. `types` names the type of each column that it names.
bool is_true(const predicate &, const field_reader &, const std::map<std::string, value_type> &types);

// Numbers of the rows for which all predicates, resolved, are true. `types` names the type of each column that they
// name; a field is null if it is empty or one of null_texts.
std::vector<ub4> recompute(const csv_file &file, const std::vector<predicate> &all,
                           const std::map<std::string, value_type> &types, const std::vector<std::string> &null_texts);

// Compares printed rows with the text of the file, as they are printed: these rows, and of each these columns, nulls
// being empty fields.
class printed_check {
public:
    printed_check(const csv_file &, std::vector<ub4> rows, std::vector<std::size_t> columns,
                  const std::vector<std::string> &null_texts);

    // The next lines of the answer, the header not among them. Returns what differs first, or an empty text.
    std::string compare(std::string_view lines);
    // Behind the last lines: the same if rows are missing.
    std::string finish() const;

private:
    const csv_file &file_;
    std::vector<ub4> rows_;
    std::vector<std::size_t> columns_;
    const std::vector<std::string> &null_texts_;
    csv_reader reader_;
    std::size_t next_ = 0; // of rows_
    ub4 row_ = 0;          // of the file
    std::vector<csv_field> fields_, line_;
};

// Compares the smallest or largest value of a column in these rows, or that there is none, with the text of the file:
// the value has to stand in one of the rows as it is printed, and no row may have one beyond it. Returns what differs.
std::string compare_extreme(const csv_file &file, const std::vector<ub4> &rows, std::size_t column, value_type type,
                            const std::vector<std::string> &null_texts, bool smallest,
                            const std::optional<std::string> &value);

// Below, at or above zero as a's value is below, equal to or above b's. Both must be values of the type.
int compare_values(value_type, std::string_view a, std::string_view b);

} // namespace host
