// The values of selected rows of a column without a dictionary: the library picks the numbers of the rows, the host
// writes them as texts.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/query/query.h"

namespace host {

class number_reader {
public:
    number_reader(session &, number_column &, const selection &rows);

    // The texts of the next so many selected rows; empty for null.
    void next(ub4 rows);
    std::string_view text(ub4 row) const { return texts_[row]; }
    std::vector<query_step> steps() const;

private:
    void select(std::span<const ub4> rows);

    session &session_;
    number_column &col_;
    tavo_bit_iter position_{};
    std::vector<ub4> numbers_;
    std::vector<ub1> picked_;
    std::vector<std::string> texts_;
    number_column::walk walk_;
    ub4 rows_ = 0;
    double seconds_ = 0;
};

} // namespace host
