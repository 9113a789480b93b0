// The smallest and the largest value of a column among selected rows.
#pragma once

#include <optional>
#include <string>

#include "host/query/query.h"

namespace host {

enum class extreme { smallest, largest };
inline const char *name_of(extreme e) { return e == extreme::smallest ? "min" : "max"; }

// The value as it stood, or nothing if no row has one: codes of dictionaries, and numbers that are stored as such codes
// are, go through the library's min/max kernels. Adds what was done to the steps.
std::optional<std::string> extreme_value(session &, stored_column &, const selection &rows, extreme,
                                         std::vector<query_step> &steps);

} // namespace host
