// The codes of selected rows in several columns, batch by batch, as 32-bit numbers.
#pragma once

#include <vector>

#include "host/column/column.h"
#include "host/join/step_list.h"
#include "host/link/callbacks.h"
#include "host/query/query.h"

namespace host {

class code_reader {
public:
    // Arguments must outlive the reader.
    code_reader(session &, std::vector<column *> columns, ub4 rows, const selection &, ub4 batch_rows, step_list &);

    // Reads the next rows and returns how many; 0 at the end.
    ub4 next();
    const std::vector<ub4> &row_numbers() const { return numbers_; }
    const ub4 *codes(std::size_t column) const { return codes_[column].data(); }

private:
    session &session_;
    std::vector<column *> columns_;
    ub4 rows_;
    const selection &selected_;
    ub4 left_;
    step_list &steps_;
    tavo_bit_iter position_{};
    std::vector<tavo_env> envs_; // each carries its column's position
    std::vector<ub4> numbers_;
    std::vector<std::vector<ub4>> codes_;
};

} // namespace host
