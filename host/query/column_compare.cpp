#include "host/query/column_compare.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"
#include "host/query/scan_call.h"

namespace host {

namespace {

constexpr ub4 batch_rows = 8192;

// The codes of all rows, four bytes each, batch by batch.
class code_reader {
public:
    code_reader(session &s, column &col) : session_(s), col_(col), codes_(batch_rows + readable_behind) {
        const ub1 row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, width_code(col.width()), TAVO_CLASS_DICT);
        unpack_ = s.kernels().kernel(row, TAVO_OP_DECODE_UNPACK).row_move;
        name_ = fmt::format("tavo_decode_unpack_dict_{}bit", col.width());
        if (unpack_ == nullptr)
            throw error(fmt::format("{} has no kernel {} (column {})", s.kernels().path(), name_, col.name()));
        env_.host = s.record();
        env_.flags = TAVO_ENV_WIDE;
    }

    const ub4 *next(ub4 rows) {
        tavo_vec dst{};
        dst.data = codes_.data();
        dst.size = rows;
        const auto start = std::chrono::steady_clock::now();
        const ub4 status = unpack_(&dst, col_.vec(), &env_);
        seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        session_.throw_raised();
        if (status != TAVO_DONE || dst.count != rows)
            throw error(fmt::format("{}: status {}, {} of {} codes", name_, status, dst.count, rows));
        const session::decompression now = session_.take_decompression();
        decompressed_.bytes += now.bytes;
        decompressed_.seconds += now.seconds;
        return codes_.data();
    }
    void add_steps(std::vector<query_step> &steps) const {
        if (decompressed_.bytes > 0)
            steps.push_back(decompression_step(col_, decompressed_));
        steps.push_back({name_, col_.name(), col_.width(), "all rows to codes", col_.rows(), col_.rows(),
                         seconds_ - decompressed_.seconds});
    }

private:
    session &session_;
    column &col_;
    std::vector<ub4> codes_;
    tavo_row_move_fn *unpack_;
    std::string name_;
    tavo_env env_{};
    double seconds_ = 0;
    session::decompression decompressed_{0, 0};
};

// Places of two dictionaries' values in the one order of both: equal values have one place.
struct places {
    std::vector<ub4> a, b; // by code
};
places places_of(const dictionary &a, const dictionary &b) {
    places found{std::vector<ub4>(a.end_code()), std::vector<ub4>(b.end_code())};
    ub8 i = a.first_code(), j = b.first_code();
    std::string left = i < a.end_code() ? a.key_of(i) : "", right = j < b.end_code() ? b.key_of(j) : "";
    for (ub4 place = 0; i < a.end_code() || j < b.end_code(); place++) {
        const std::string key = j == b.end_code() || (i < a.end_code() && left <= right) ? left : right;
        while (i < a.end_code() && left == key) {
            found.a[i] = place;
            left = ++i < a.end_code() ? a.key_of(i) : "";
        }
        while (j < b.end_code() && right == key) {
            found.b[j] = place;
            right = ++j < b.end_code() ? b.key_of(j) : "";
        }
    }
    return found;
}

bool holds(comparison op, bool below, bool above) {
    switch (op) {
    case comparison::eq: return !below && !above;
    case comparison::ne: return below || above;
    case comparison::lt: return below;
    case comparison::le: return !above;
    case comparison::gt: return above;
    case comparison::ge: break;
    }
    return !below;
}

// The codes of a column without a dictionary, row by row.
class number_rows {
public:
    explicit number_rows(const number_column &col) : col_(col), walk_(col) {}
    ub8 operator()(ub4 row) { return col_.form() == column_form::fixed ? col_.fixed_code(row) : walk_.code(row); }

private:
    const number_column &col_;
    number_column::walk walk_;
};

class comparer {
public:
    comparer(session &s, ub4 rows, comparison op, const std::string &text, std::vector<query_step> &steps)
        : session_(s), ctx_(s.kernels().ctx()), rows_(rows), op_(op), text_(text),
          steps_(steps), selected_{std::vector<ub8>((static_cast<std::size_t>(rows) + 63) / 64), 0} {}

    selection result() && { return std::move(selected_); }

    // Through their dictionaries' places in one order.
    void dictionaries(column &a, column &b) {
        const auto start = std::chrono::steady_clock::now();
        const places found = places_of(a.dict(), b.dict());
        steps_.push_back({"", a.name(), 0,
                          fmt::format("one order for {} and {} values  [by the host]", found.a.size(), found.b.size()),
                          static_cast<ub4>(found.a.size()), static_cast<ub4>(found.b.size()), since(start)});
        code_reader left(session_, a), right(session_, b);
        look_up(found.a.data(), found.b.data(),
                [&](ub4, ub4 rows) { return std::pair(left.next(rows), right.next(rows)); });
        left.add_steps(steps_);
        right.add_steps(steps_);
        looked_up(a);
        leave_out_nulls(a);
        leave_out_nulls(b);
    }

    void numbers(const number_column &a, const number_column &b) {
        const number_form &x = a.numbers(), &y = b.numbers();
        const bool one_unit = x.has_unit_of(y), one_base = one_unit && x.value(0) == y.value(0);
        const bool equality = op_ == comparison::eq || op_ == comparison::ne;
        if (equality && one_base && a.form() == column_form::fixed && b.form() == column_form::fixed &&
            a.width() == b.width())
            stream_compare(a, b);
        else if (const __int128 base = std::min(x.value(0), y.value(0));
                 one_unit && x.value(x.largest()) - base <= 0xffffffff && y.value(y.largest()) - base <= 0xffffffff)
            as_32_bits(a, b, static_cast<sb8>(base));
        else
            by_host(a, [&, left = number_rows(a), right = number_rows(b)](ub4 row) mutable {
                const __int128 v = x.common_value(left(row)), w = y.common_value(right(row));
                return holds(op_, v<w, v> w);
            });
        leave_out_nulls(a);
        leave_out_nulls(b);
    }

    // For each code of b: the first code of a whose value is not below b's, and the first whose value is above it.
    void mixed(const number_column &a, column &b) {
        std::vector<std::pair<ub8, ub8>> bounds(b.end_code());
        for (ub8 code = b.first_code(); code < b.end_code(); code++) {
            const std::string key = b.key_of(code);
            bounds[code] = {a.first_not_below(key), a.first_above(key)};
        }
        code_reader reader(session_, b);
        const ub4 *codes = nullptr;
        by_host(a, [&, left = number_rows(a)](ub4 row) mutable {
            if (row % batch_rows == 0)
                codes = reader.next(std::min(batch_rows, rows_ - row));
            const ub8 code = left(row);
            const auto [not_below, above] = bounds[codes[row % batch_rows]];
            return holds(op_, code < not_below, code >= above);
        });
        reader.add_steps(steps_);
        leave_out_nulls(a);
        leave_out_nulls(b);
    }

private:
    static double since(std::chrono::steady_clock::time_point start) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    // next(row, rows): the codes of both sides from a row on. Tables may be null.
    template <class Next>
    void look_up(const ub4 *a_table, const ub4 *b_table, Next next) {
        if (ctx_.lookup_and_compare == nullptr)
            throw error(session_.kernels().path() + " has no operation lookup_and_compare");
        constexpr ub1 numbers[] = {0, 5, 1, 3, 2, 4}; // of eq, ne, lt, le, gt, ge
        ub1 number = numbers[static_cast<int>(op_)];
        tavo_vec operation{}, left_table{}, right_table{};
        operation.data = &number;
        left_table.data = const_cast<ub4 *>(a_table);
        right_table.data = const_cast<ub4 *>(b_table);
        for (ub4 row = 0, batch; row < rows_; row += batch) {
            batch = std::min(batch_rows, rows_ - row);
            const auto [a_codes, b_codes] = next(row, batch);
            tavo_vec left{}, right{}, res{};
            left.data = const_cast<ub4 *>(a_codes);
            right.data = const_cast<ub4 *>(b_codes);
            left.size = right.size = res.size = batch;
            res.bits = selected_.bits.data() + row / 64; // batches are whole words
            tavo_env env{};
            env.host = session_.record();
            const auto start = std::chrono::steady_clock::now();
            const ub4 status =
                ctx_.lookup_and_compare(&res, &left, &right, &left_table, &right_table, &operation, &env);
            seconds_ += since(start);
            session_.throw_raised();
            if (status != TAVO_DONE)
                throw error(fmt::format("tavo_lookup_and_compare_dydi failed with status {}", status));
            selected_.count += res.count;
        }
    }
    void looked_up(const stored_column &a) {
        steps_.push_back({"tavo_lookup_and_compare_dydi", a.name(), 32, text_, rows_, selected_.count, seconds_});
    }

    void as_32_bits(const number_column &a, const number_column &b, sb8 base) {
        std::vector<ub4> left(batch_rows), right(batch_rows);
        number_rows a_rows(a), b_rows(b);
        const ub8 a_offset = static_cast<ub8>(a.numbers().value(0)) - static_cast<ub8>(base);
        const ub8 b_offset = static_cast<ub8>(b.numbers().value(0)) - static_cast<ub8>(base);
        double converting = 0;
        look_up(nullptr, nullptr, [&](ub4 row, ub4 rows) {
            const auto start = std::chrono::steady_clock::now();
            for (ub4 i = 0; i < rows; i++) {
                left[i] = static_cast<ub4>(a_rows(row + i) + a_offset);
                right[i] = static_cast<ub4>(b_rows(row + i) + b_offset);
            }
            converting += since(start);
            return std::pair<const ub4 *, const ub4 *>(left.data(), right.data());
        });
        steps_.push_back({"", a.name(), a.width(), "both columns to 32 bits  [by the host]", rows_, rows_, converting});
        looked_up(a);
    }

    void stream_compare(const number_column &a, const number_column &b) {
        if (ctx_.eq_stream == nullptr)
            throw error(session_.kernels().path() + " has no operation eq_stream");
        tavo_vec res{}, left = *const_cast<number_column &>(a).vec(), right = *const_cast<number_column &>(b).vec();
        res.bits = selected_.bits.data();
        res.size = rows_;
        tavo_env env{};
        env.host = session_.record();
        const auto start = std::chrono::steady_clock::now();
        const ub4 status = ctx_.eq_stream(&res, &left, &right, &env);
        const double seconds = since(start);
        session_.throw_raised();
        if (status != TAVO_DONE && status != TAVO_NONE_SELECTED)
            throw error(fmt::format("tavo_eq_stream_dydi failed with status {}", status));
        if (res.count == rows_ && rows_ > 0) // then the bits are not written
            ctx_.lbiwvset_range(selected_.bits.data(), 0, rows_ - 1);
        selected_.count = res.count;
        steps_.push_back({"tavo_eq_stream_dydi", a.name(), a.width(), text_, rows_, res.count, seconds});
        // Bits of rows that there are not come out as anything.
        const auto *bits = selected_.bits.data();
        if (op_ == comparison::ne)
            timed("tavo_lbiwvnot_dydi", [&] { ctx_.lbiwvnot(selected_.bits.data(), &selected_.count, bits, rows_); });
        else
            ctx_.lbiwvand(selected_.bits.data(), &selected_.count, bits, bits, rows_);
        if (rows_ % 64 != 0)
            selected_.bits.back() &= (1ull << rows_ % 64) - 1;
    }

    template <class Test>
    void by_host(const stored_column &a, Test test) {
        const auto start = std::chrono::steady_clock::now();
        for (ub4 row = 0; row < rows_; row++) {
            const bool set = test(row);
            selected_.bits[row / 64] |= ub8{set} << row % 64;
            selected_.count += set;
        }
        steps_.push_back({"", a.name(), a.width(), text_ + "  [by the host]", rows_, selected_.count, since(start)});
    }

    template <class Call>
    void timed(const char *operation, Call call) {
        const auto start = std::chrono::steady_clock::now();
        const ub4 before = selected_.count;
        call();
        steps_.push_back({operation, "", 0, fmt::format("of {} rows", before), rows_, selected_.count, since(start)});
    }

    void keep(const void *known) {
        timed("tavo_lbiwvand_dydi",
              [&] { ctx_.lbiwvand(selected_.bits.data(), &selected_.count, selected_.bits.data(), known, rows_); });
    }
    void leave_out_nulls(const number_column &col) {
        if (col.has_null())
            keep(col.known().data());
    }
    void leave_out_nulls(column &col) {
        if (!col.has_null())
            return;
        code_plan plan;
        plan.what = code_plan::kind::scan;
        plan.col = &col;
        plan.op = TAVO_OP_NE; // code 0
        scan_call call(plan, session_.kernels());
        std::vector<ub8> known(selected_.bits.size());
        tavo_vec res{};
        res.bits = known.data();
        res.size = rows_;
        tavo_env env{};
        env.host = session_.record();
        const auto start = std::chrono::steady_clock::now();
        call.run(&res, &env);
        session_.throw_raised();
        steps_.push_back({call.kernel(), col.name(), col.width(), "is not null", rows_, res.count, since(start)});
        keep(known.data());
    }

    session &session_;
    const tavo_specialized_ctx &ctx_;
    ub4 rows_;
    comparison op_;
    const std::string &text_;
    std::vector<query_step> &steps_;
    selection selected_;
    double seconds_ = 0;
};

} // namespace

selection compare_columns(session &s, stored_column &a, comparison op, stored_column &b, const std::string &text,
                          std::vector<query_step> &steps) {
    auto *a_dict = dynamic_cast<column *>(&a), *b_dict = dynamic_cast<column *>(&b);
    auto *a_numbers = dynamic_cast<number_column *>(&a), *b_numbers = dynamic_cast<number_column *>(&b);
    comparer compare(s, a.rows(), a_dict && b_numbers ? turned_round(op) : op, text, steps);
    if (a_dict && b_dict)
        compare.dictionaries(*a_dict, *b_dict);
    else if (a_numbers && b_numbers)
        compare.numbers(*a_numbers, *b_numbers);
    else if (a_numbers)
        compare.mixed(*a_numbers, *b_dict);
    else
        compare.mixed(*b_numbers, *a_dict);
    return std::move(compare).result();
}

} // namespace host
