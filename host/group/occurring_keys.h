// Group keys of the codes that occur alone, for columns whose numbers of values multiply to more than 32 bits: each
// column's codes are translated to their places among those of the selected rows.
#pragma once

#include <optional>
#include <vector>

#include "host/column/column.h"
#include "host/join/step_list.h"
#include "host/link/callbacks.h"
#include "host/query/query.h"

namespace host {

struct occurring_keys {
    std::vector<ub4> of_row;             // the first column's place counts most
    ub8 space = 1;                       // all keys are below
    std::vector<std::vector<ub4>> codes; // by column: those that occur, ascending
};

// Nothing if the places multiply to 2^32 or more, too.
std::optional<occurring_keys> make_occurring_keys(session &, const std::vector<column *> &, ub4 rows, const selection &,
                                                  step_list &);

} // namespace host
