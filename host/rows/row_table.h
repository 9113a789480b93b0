// Values row by row, so that rows can be taken in any order: selected rows of columns, or rows that a query has made,
// are transposed into row-major tables once, and gathered from them by row number.
//
// Values are decoded batch by batch, referred to from a table of the batch (transpose_reference), and copied together
// behind the rows before (transpose_convert). Rows of more columns than a table takes are spread over several tables.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "host/join/step_list.h"
#include "host/query/value_reader.h"

namespace host {

class row_table {
public:
    static constexpr ub4 no_row = 0xffffffff; // has nulls alone
    static constexpr std::size_t most_columns = 256;

    row_table(session &, const std::vector<stored_column *> &columns, const selection &rows);
    // Rows of texts: `value` says what stands in a column of a row; it stays there until all are in.
    using text_of = std::function<std::string_view(std::size_t column, ub4 row)>;
    row_table(session &, std::size_t columns, ub4 rows, const text_of &value);
    row_table(const row_table &) = delete;

    // Takes the values of rows, by their numbers; each must be one of the table's or no_row.
    void gather(const ub4 *rows, ub4 n);
    // A value of the i-th of them. A null is empty.
    std::string_view value(std::size_t column, ub4 i) const;

    std::vector<query_step> steps() const;

private:
    // Some of the columns.
    struct part {
        std::size_t first, columns;
        std::vector<ub1> records; // of rows, the last one of nulls
        ub1 *table, *record_cursor, *byte_cursor = nullptr, *byte_end = nullptr;
        std::vector<std::unique_ptr<ub1[]>> bytes;
        tavo_gather_spec shape{};
        std::vector<const char *> addresses; // gathered
        std::vector<ub2> lengths;
    };
    row_table(session &, std::size_t columns, ub4 rows);
    void add_batch(part &, const text_of &value, ub4 rows);
    void pack(part &, const tavo_gather_spec &batch, const ub1 *records, ub4 rows);
    void check(const char *kernel, ub4 status) const;

    session &session_;
    const tavo_specialized_ctx &ctx_;
    std::vector<std::unique_ptr<part>> parts_;
    std::vector<ub4> place_; // of a row number in the tables; empty: the number itself
    ub4 rows_;               // in the tables, without the one of nulls
    std::vector<ub4> codes_;
    std::vector<query_step> decoding_;
    step_list steps_;
};

} // namespace host
