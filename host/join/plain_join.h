// A join once more, from the text of both files: no codes, no hashes, no kernels. What --check compares with.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/column/value_type.h"
#include "host/join/join.h"
#include "host/join/join_names.h"

namespace host {

struct join_question {
    join_kind kind = join_kind::inner;
    std::vector<std::pair<std::size_t, std::size_t>> keys; // columns of the left and of the right file
    std::vector<predicate> where;                          // as written: of pairs; with anti joins, of each file's rows
    std::vector<join_names::place> printed;
    std::optional<join_names::place> ordered_by; // else left rows, then right rows; right rows without partner last
    bool descending = false;
    ub4 limit = 0xffffffff; // lines
};

struct plain_answer {
    ub8 count = 0;
    std::string lines; // of CSV, the first `limit`
};

// types[side]: of all columns that the question names, by number.
plain_answer join_plainly(const join_question &, const join_names &, const std::vector<std::vector<value_type>> &types,
                          const std::vector<std::string> &null_texts);

} // namespace host
