// Two columns compared row by row.
//
// Two dictionaries are put into one order, and the library compares the places that the codes have in it
// (lookup_and_compare). Numbers that are stored alike are compared as they are (eq_stream), others as numbers of 32
// bits (lookup_and_compare without tables). What has no room in these, or a dictionary on one side alone, the host
// compares.
#pragma once

#include "host/query/query.h"

namespace host {

// The rows in which a's value stands so to b's, neither being null. Adds what was done to the steps.
selection compare_columns(session &, stored_column &a, comparison, stored_column &b, const std::string &text,
                          std::vector<query_step> &steps);

} // namespace host
