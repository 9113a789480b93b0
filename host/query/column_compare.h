// Two columns compared row by row. No kernel does this: their codes are unpacked by the library, and what a code of one
// column means in the other's dictionary is looked up.
#pragma once

#include "host/query/query.h"

namespace host {

// The rows in which a's value stands so to b's, neither being null. Adds what was done to the steps.
selection compare_columns(session &, column &a, comparison, column &b, const std::string &text,
                          std::vector<query_step> &steps);

} // namespace host
