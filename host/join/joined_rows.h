// The pairs of rows that a join question asks for: conditions pushed down to the files where that changes nothing,
// the join, and the other conditions on its pairs.
//
// As in SQL, conditions are on the pairs: with an outer join, one on the side that may be missing is tested behind the
// join, where the columns of a missing partner are null. With anti joins, which have no pairs, each file's rows are
// chosen first.
#pragma once

#include <vector>

#include "host/join/join.h"
#include "host/join/join_names.h"
#include "host/join/plain_join.h"
#include "host/query/query.h"

namespace host {

struct joined_rows {
    std::vector<row_pair> pairs;
    std::vector<query_step> steps;
};

// The tables' columns that the question names must be encoded.
joined_rows join_rows_of(session &, const join_question &, const join_names &, const table &left, const table &right,
                         const join_settings &);

} // namespace host
