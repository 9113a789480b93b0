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

// A field's value; nothing if it is empty or one of null_texts.
std::optional<std::string> field_value(const csv_field &field, const std::vector<std::string> &null_texts);

// Whether a predicate is true of a row. `types` names the type of each column that it names.
bool is_true(const predicate &, const field_reader &, const std::map<std::string, value_type> &types);

// Numbers of the rows for which all predicates are true. `types` names the type of each column that they name; a field
// is null if it is empty or one of null_texts.
std::vector<ub4> recompute(const csv_file &file, const std::vector<predicate> &all,
                           const std::map<std::string, value_type> &types, const std::vector<std::string> &null_texts);

// Compares a printed answer, header and lines of CSV, with the text of the file: its lines must be these rows with
// these columns, nulls printed as empty fields. Returns what differs first, or an empty text.
std::string compare_printed(const csv_file &file, const std::vector<ub4> &rows, const std::vector<std::size_t> &columns,
                            const std::vector<std::string> &null_texts, std::string_view printed);

// Below, at or above zero as a's value is below, equal to or above b's. Both must be values of the type.
int compare_values(value_type, std::string_view a, std::string_view b);

} // namespace host
