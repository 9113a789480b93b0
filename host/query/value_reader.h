// The values of selected rows, through the library's decode kernels.
//
// A column's codes go through `decode_unpack` and then `decode_symbol`, batch by batch; where few rows are wanted,
// `decode` takes a list of row numbers straight to the symbols. Of a limited number of texts, row selection takes the
// symbols. Front-coded dictionaries are expanded by `prefix_decode` before that. Columns without a dictionary are read
// by a number_reader.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "host/column/column.h"
#include "host/link/callbacks.h"
#include "host/query/number_reader.h"
#include "host/query/query.h"
#include "host/query/symbol_rows.h"

namespace host {

class value_reader {
public:
    static constexpr ub4 batch_rows = 8192;

    static constexpr ub4 no_limit = 0xffffffff;

    // Reads the first `limit` rows of the selection. All arguments must outlive the reader.
    value_reader(session &s, const std::vector<stored_column *> &columns, const selection &rows, ub4 limit);

    // Reads the next rows and returns how many; 0 at the end.
    ub4 next();
    // A value of the batch that next() read. A null is empty.
    std::string_view value(std::size_t column, ub4 row) const;

    // One step for each kernel and column, times summed over the batches.
    std::vector<query_step> steps() const;

private:
    struct step_times {
        query_step step;
        session::decompression decompressed{0, 0};
    };
    struct column_reader {
        column *col;
        tavo_env env; // carries the position from batch to batch
        std::vector<ub1> codes;
        std::vector<ub8> addresses;
        std::vector<ub2> lengths, indicators;
        std::vector<step_times> steps; // in the order of their kernels
        std::optional<symbol_rows> by_rows;
    };

    template <class Call>
    void timed(column_reader &r, std::size_t step, tavo_operation op, unsigned width, const char *what, ub4 rows,
               Call call);
    void decode_listed(column_reader &r, ub4 rows);
    void unpack(column_reader &r, ub4 rows);
    void look_up(column_reader &r, ub4 rows);
    void select_symbols(column_reader &r, ub4 rows);
    void add_steps(const column_reader &r, std::vector<query_step> &all) const;
    tavo_row_move_fn *kernel(const column &col, tavo_operation op, unsigned width) const;

    session &session_;
    const selection &rows_;
    ub4 left_;    // rows still to be read
    bool listed_; // by lists of row numbers rather than by the bit vector
    bool every_;  // the selection is all rows
    tavo_bit_iter position_{};
    std::vector<ub4> numbers_;
    struct place {
        bool has_dictionary;
        std::size_t reader;
    };
    std::vector<place> places_; // of the columns
    std::vector<column_reader> readers_;
    std::vector<number_reader> number_readers_;
    std::vector<query_step> expansions_;
};

} // namespace host
