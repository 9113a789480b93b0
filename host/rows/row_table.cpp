#include "host/rows/row_table.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

namespace {

constexpr std::size_t record_bytes = 10;     // ub2 length, address
constexpr std::size_t block_bytes = 1 << 20; // of values, or more for one long row

std::string names_of(std::size_t columns) { return fmt::format("{} column{}", columns, columns == 1 ? "" : "s"); }

} // namespace

row_table::row_table(session &s, std::size_t columns, ub4 rows) : session_(s), ctx_(s.kernels().ctx()), rows_(rows) {
    if (ctx_.gather == nullptr || ctx_.transpose_reference == nullptr || ctx_.transpose_convert == nullptr)
        throw error(fmt::format("{} has no row-major tables", s.kernels().path()));
    for (std::size_t first = 0; first < columns; first += most_columns) {
        auto p = std::make_unique<part>();
        p->first = first;
        p->columns = std::min(most_columns, columns - first);
        p->records.resize((std::size_t{rows_} + 1) * p->columns * record_bytes);
        p->table = p->record_cursor = p->records.data();
        p->shape.flags = TAVO_TABLE_REFERENCE;
        p->shape.row_cols = static_cast<ub2>(p->columns);
        p->shape.part_top = 63;
        p->shape.part_low = 64; // one partition, named -1
        p->shape.ref_tables = &p->table;
        p->shape.ref_cursor = &p->record_cursor;
        p->shape.byte_cursor = &p->byte_cursor;
        p->shape.byte_end = &p->byte_end;
        parts_.push_back(std::move(p));
    }
}

row_table::row_table(session &s, const std::vector<stored_column *> &columns, const selection &rows)
    : row_table(s, columns.size(), rows.count) {
    if (columns.empty())
        return;
    place_.resize(columns[0]->rows());
    for (ub4 row = 0, place = 0; row < place_.size(); row++)
        if (rows.bits[row / 64] >> row % 64 & 1)
            place_[row] = place++;
    value_reader values(s, columns, rows, value_reader::no_limit);
    while (const ub4 n = values.next())
        for (const auto &p : parts_)
            add_batch(
                *p, [&](std::size_t column, ub4 row) { return values.value(column, row); }, n);
    decoding_ = values.steps();
}

row_table::row_table(session &s, std::size_t columns, ub4 rows, const text_of &value) : row_table(s, columns, rows) {
    for (ub4 first = 0; first < rows; first += value_reader::batch_rows)
        for (const auto &p : parts_)
            add_batch(
                *p, [&](std::size_t column, ub4 row) { return value(column, first + row); },
                std::min(value_reader::batch_rows, rows - first));
}

void row_table::check(const char *kernel, ub4 status) const {
    session_.throw_raised();
    if (status != TAVO_DONE)
        throw error(fmt::format("{} failed with status {}", kernel, status));
}

// Columns of a batch to rows of references, and these behind the rows before.
void row_table::add_batch(part &p, const text_of &text, ub4 rows) {
    std::vector<ub1> records(std::size_t{rows} * p.columns * record_bytes);
    ub1 *table = records.data();
    tavo_gather_spec batch{};
    batch.flags = TAVO_TABLE_REFERENCE;
    batch.row_cols = p.shape.row_cols;
    batch.ref_tables = batch.ref_cursor = &table;
    std::vector<const char *> addresses(rows);
    std::vector<ub2> lengths(rows);
    tavo_enc_ctx enc{};
    enc.flags = TAVO_LP_SEP;
    tavo_vec column{};
    column.enc = &enc;
    column.data = addresses.data();
    column.lengths = lengths.data();
    column.size = rows;
    double seconds = 0;
    for (std::size_t c = 0; c < p.columns; c++) {
        for (ub4 row = 0; row < rows; row++) {
            const std::string_view value = text(p.first + c, row);
            if (value.size() > 0xffff)
                throw error(fmt::format("a value of {} bytes is too long for a table row", value.size()));
            addresses[row] = value.data();
            lengths[row] = static_cast<ub2>(value.size());
        }
        const step_clock clock;
        const ub4 status = ctx_.transpose_reference(&batch, &column, static_cast<ub2>(c), -1);
        seconds += clock.seconds();
        check("tavo_transpose_reference_dydi", status);
    }
    steps_.add("tavo_transpose_reference_dydi", names_of(p.columns), "columns to rows", rows, rows, seconds);
    pack(p, batch, table, rows);
}

// The bytes that a batch refers to go to blocks: where one is full, the library says at which row, and goes on there.
void row_table::pack(part &p, const tavo_gather_spec &batch, const ub1 *records, ub4 rows) {
    tavo_env env{};
    env.host = session_.record();
    double seconds = 0;
    for (;;) {
        const step_clock clock;
        const ub4 status = ctx_.transpose_convert(&p.shape, &batch, -1, -1, env.resume_row, rows - 1, &env);
        seconds += clock.seconds();
        if (status != TAVO_TARGET_FULL) {
            check("tavo_transpose_convert_dydi", status);
            break;
        }
        std::size_t row_bytes = 0;
        for (std::size_t c = 0; c < p.columns; c++) {
            ub2 length;
            std::memcpy(&length, records + (std::size_t{env.resume_row} * p.columns + c) * record_bytes, sizeof length);
            row_bytes += length;
        }
        const std::size_t room = std::max(block_bytes, row_bytes);
        p.bytes.push_back(std::make_unique<ub1[]>(room));
        p.byte_cursor = p.bytes.back().get();
        p.byte_end = p.byte_cursor + room;
    }
    steps_.add("tavo_transpose_convert_dydi", names_of(p.columns), "rows' values together", rows, rows, seconds);
}

void row_table::gather(const ub4 *rows, ub4 n) {
    if (parts_.empty())
        return; // no columns
    codes_.resize(n);
    std::transform(rows, rows + n, codes_.begin(), [&](ub4 row) {
        return row == no_row ? rows_ : place_.empty() ? row : place_[row];
    });
    tavo_enc_ctx by_code{}, by_pointer{};
    by_code.flags = TAVO_FIXED;
    by_code.width_bits = 32;
    by_pointer.flags = TAVO_LP_SEP;
    for (const auto &p : parts_) {
        p->addresses.resize(n * p->columns);
        p->lengths.resize(n * p->columns);
        tavo_vec src{}, dst{};
        src.enc = &by_code;
        src.data = codes_.data();
        src.size = n;
        dst.enc = &by_pointer;
        dst.data = p->addresses.data();
        dst.lengths = p->lengths.data();
        dst.byte_size = p->addresses.size() * sizeof p->addresses[0];
        tavo_env env{};
        env.host = session_.record();
        const step_clock clock;
        const ub4 status = ctx_.gather(&dst, &src, &p->shape, &env);
        const double seconds = clock.seconds();
        check("tavo_gather_dydi", status);
        steps_.add("tavo_gather_dydi", names_of(p->columns), "rows by their numbers", n, n, seconds);
    }
}

std::string_view row_table::value(std::size_t column, ub4 i) const {
    const part &p = *parts_[column / most_columns];
    const std::size_t at = i * p.columns + column % most_columns;
    return {p.addresses[at], p.lengths[at]};
}

std::vector<query_step> row_table::steps() const {
    std::vector<query_step> all = decoding_;
    all.insert(all.end(), steps_.all().begin(), steps_.all().end());
    return all;
}

} // namespace host
