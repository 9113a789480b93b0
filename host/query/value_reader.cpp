#include "host/query/value_reader.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

const char *name_of(tavo_operation op) {
    return op == TAVO_OP_DECODE ? "decode" : op == TAVO_OP_DECODE_UNPACK ? "decode_unpack" : "decode_symbol";
}
std::string kernel_name(tavo_operation op, unsigned width) {
    return fmt::format("tavo_{}_dict_{}bit", name_of(op), width);
}

// Bits of the elements that codes of a width are unpacked to.
unsigned element_bits(unsigned width) { return width <= 8 ? 8 : width <= 16 ? 16 : 32; }

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

value_reader::value_reader(session &s, const std::vector<stored_column *> &columns, const selection &rows, ub4 limit)
    : session_(s), rows_(rows), left_(std::min(rows.count, limit)) {
    const ub4 all = columns.empty() ? 0 : columns[0]->rows();
    listed_ = static_cast<ub8>(left_) * query::sparse_below < all;
    every_ = rows.count == all;
    const tavo_specialized_ctx &ctx = s.kernels().ctx();
    if (listed_)
        ctx.lbiwv_ictx_ini2(&position_, rows.bits.data(), all, 0, 0);
    numbers_.resize(listed_ ? std::min(left_, batch_rows) : 0);

    const ub4 room = std::min(left_, batch_rows);
    for (stored_column *stored : columns) {
        auto *col = dynamic_cast<column *>(stored);
        places_.push_back({col != nullptr, col != nullptr ? readers_.size() : number_readers_.size()});
        if (col == nullptr) {
            number_readers_.emplace_back(s, dynamic_cast<number_column &>(*stored), rows);
            continue;
        }
        column_reader r{col,
                        {},
                        std::vector<ub1>(room * 4ull + readable_behind),
                        std::vector<ub8>(room),
                        std::vector<ub2>(room),
                        std::vector<ub2>(room),
                        {},
                        {}};
        r.env.host = s.record();
        readers_.push_back(std::move(r));
        const auto start = std::chrono::steady_clock::now();
        if (left_ > 0 && col->symbols().expand(ctx, *col->vec()->enc)) {
            const ub4 symbols = static_cast<ub4>(col->dict().end_code());
            expansions_.push_back({"tavo_prefix_decode_dydi", col->name(), 0, "front-coded dictionary expanded",
                                   symbols, symbols, seconds_since(start)});
        }
        if (left_ > 0 && limit != no_limit && col->type() == value_type::text &&
            col->dict().end_code() <= symbol_rows::most_symbols)
            readers_.back().by_rows.emplace(*col);
    }
}

tavo_row_move_fn *value_reader::kernel(const column &col, tavo_operation op, unsigned width) const {
    const ub1 row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, width_code(width), TAVO_CLASS_DICT);
    tavo_row_move_fn *found = session_.kernels().kernel(row, op).row_move;
    if (found == nullptr)
        throw error(fmt::format("{} has no kernel {} (column {})", session_.kernels().path(), kernel_name(op, width),
                                col.name()));
    return found;
}

template <class Call>
void value_reader::timed(column_reader &r, std::size_t step, tavo_operation op, unsigned width, const char *what,
                         ub4 rows, Call call) {
    const auto start = std::chrono::steady_clock::now();
    const ub4 status = call(kernel(*r.col, op, width));
    const double seconds = seconds_since(start);
    session_.throw_raised();
    if (status != TAVO_DONE)
        throw error(fmt::format("{} failed with status {}", kernel_name(op, width), status));
    if (r.steps.size() == step)
        r.steps.push_back({{kernel_name(op, width), r.col->name(), width, what, 0, 0, 0}});
    step_times &times = r.steps[step];
    const session::decompression unpacked = session_.take_decompression();
    times.decompressed.bytes += unpacked.bytes;
    times.decompressed.seconds += unpacked.seconds;
    times.step.seconds += seconds - unpacked.seconds;
    times.step.rows_in += rows;
    times.step.rows_out += rows;
}

// Row numbers to symbols in one step.
void value_reader::decode_listed(column_reader &r, ub4 rows) {
    r.env.ones_vec = numbers_.data();
    r.env.ones_vec_size = rows;
    tavo_vec dst{};
    dst.data = r.addresses.data();
    dst.lengths = r.lengths.data();
    dst.indicators = r.indicators.data();
    dst.size = rows;
    timed(r, 0, TAVO_OP_DECODE, r.col->width(), "listed rows to symbols", rows,
          [&](tavo_row_move_fn *decode) { return decode(&dst, r.col->vec(), &r.env); });
}

// The codes of the next rows: of listed ones, of selected ones, or of all.
void value_reader::unpack(column_reader &r, ub4 rows) {
    if (listed_) {
        r.env.ones_vec = numbers_.data();
        r.env.ones_vec_size = rows;
    } else if (!every_) {
        r.env.sel_bits = const_cast<ub8 *>(rows_.bits.data()); // read only
    }
    if (r.by_rows)
        r.env.flags = TAVO_ENV_WIDE;
    tavo_vec dst{};
    dst.data = r.codes.data();
    dst.size = rows;
    timed(r, 0, TAVO_OP_DECODE_UNPACK, r.col->width(),
          listed_  ? "listed rows to codes"
          : every_ ? "all rows to codes"
                   : "selected rows to codes",
          rows, [&](tavo_row_move_fn *unpack) { return unpack(&dst, r.col->vec(), &r.env); });
    if (dst.count != rows)
        throw error(fmt::format("{} wrote {} of {} codes", r.steps[0].step.kernel, dst.count, rows));
}

void value_reader::look_up(column_reader &r, ub4 rows) {
    tavo_env env{};
    env.host = session_.record();
    tavo_enc_ctx enc = *r.col->vec()->enc; // its dictionary
    enc.flags = TAVO_DICT;                 // the codes are neither compressed nor runs any more
    tavo_vec src{}, dst{};
    src.data = r.codes.data();
    src.enc = &enc;
    src.size = rows;
    dst.data = r.addresses.data();
    dst.lengths = r.lengths.data();
    dst.indicators = r.indicators.data();
    dst.size = rows;
    timed(r, 1, TAVO_OP_DECODE_SYMBOL, element_bits(r.col->width()), "codes to symbols", rows,
          [&](tavo_row_move_fn *decode_symbol) { return decode_symbol(&dst, &src, &env); });
}

// Codes to symbols by row selection.
void value_reader::select_symbols(column_reader &r, ub4 rows) {
    const auto start = std::chrono::steady_clock::now();
    r.by_rows->select(session_, reinterpret_cast<const ub4 *>(r.codes.data()), rows, r.addresses.data(),
                      r.lengths.data());
    const double seconds = seconds_since(start);
    if (r.steps.size() == 1)
        r.steps.push_back({{"tavo_selective_dydi", r.col->name(), r.col->width(), "codes to symbols", 0, 0, 0}});
    r.steps[1].step.seconds += seconds;
    r.steps[1].step.rows_in += rows;
    r.steps[1].step.rows_out += rows;
}

ub4 value_reader::next() {
    ub4 rows = std::min(left_, batch_rows);
    if (rows == 0)
        return 0;
    if (listed_)
        rows = static_cast<ub4>(session_.kernels().ctx().lbiwvones(&position_, numbers_.data(), rows));
    left_ -= rows;
    for (column_reader &r : readers_) {
        // Over lists `decode` counts bits in 32 bits, and it does not know runs.
        const bool straight = listed_ && !r.by_rows && r.col->form() != column_form::rle &&
                              static_cast<ub8>(r.col->rows()) * r.col->width() <= 0xffffffff;
        if (straight) {
            decode_listed(r, rows);
        } else {
            unpack(r, rows);
            if (r.by_rows)
                select_symbols(r, rows);
            else
                look_up(r, rows);
        }
    }
    for (number_reader &r : number_readers_)
        r.next(rows);
    return rows;
}

std::string_view value_reader::value(std::size_t column, ub4 row) const {
    const place at = places_[column];
    if (!at.has_dictionary)
        return number_readers_[at.reader].text(row);
    const column_reader &r = readers_[at.reader];
    if (r.indicators[row] != 0 || r.lengths[row] == 0)
        return {};
    return {std::bit_cast<const char *>(r.addresses[row]), r.lengths[row]};
}

void value_reader::add_steps(const column_reader &r, std::vector<query_step> &all) const {
    for (const step_times &times : r.steps) {
        if (times.decompressed.bytes > 0)
            all.push_back(decompression_step(*r.col, times.decompressed));
        all.push_back(times.step);
    }
}

std::vector<query_step> value_reader::steps() const {
    std::vector<query_step> all = expansions_;
    for (const place at : places_)
        if (at.has_dictionary)
            add_steps(readers_[at.reader], all);
        else
            for (query_step &step : number_readers_[at.reader].steps())
                all.push_back(std::move(step));
    return all;
}

} // namespace host
