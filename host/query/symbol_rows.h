// A dictionary's symbols as the rows of a text column, from which row selection takes those that codes name.
#pragma once

#include <vector>

#include "host/column/column.h"
#include "host/link/callbacks.h"

namespace host {

class symbol_rows {
public:
    static constexpr ub8 most_symbols = 65536; // making the rows costs a step a symbol

    // The dictionary must be expanded, and outlive the rows.
    explicit symbol_rows(column &);

    // Addresses and lengths of the symbols of `n` codes; a null has the length 0.
    void select(session &, const ub4 *codes, ub4 n, ub8 *addresses, ub2 *lengths);

private:
    std::vector<ub8> addresses_;
    std::vector<ub2> lengths_;
};

} // namespace host
