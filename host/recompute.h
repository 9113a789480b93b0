// The answer once more, from the text of the file: no codes, no dictionaries, no kernels. What --check compares with.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <tavo/tavo.h>

#include "host/csv.h"
#include "host/predicate.h"
#include "host/value_type.h"

namespace host {

// Numbers of the rows for which all predicates are true. `types` names the type of each column that they name; a field
// is null if it is empty or one of null_texts.
std::vector<ub4> recompute(const csv_file &file, const std::vector<predicate> &all,
                           const std::map<std::string, value_type> &types, const std::vector<std::string> &null_texts);

// Below, at or above zero as a's value is below, equal to or above b's. Both must be values of the type.
int compare_values(value_type, std::string_view a, std::string_view b);

} // namespace host
