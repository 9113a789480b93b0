#include "host/query/query.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

#include "host/error.h"
#include "host/query/column_compare.h"
#include "host/query/scan_call.h"

namespace host {

namespace {

class stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace

selection query::all_rows() {
    selection all = no_rows();
    if (rows_ > 0)
        ctx_.lbiwvset_range(all.bits.data(), 0, rows_ - 1);
    all.count = rows_;
    return all;
}

selection query::run(const code_plan &plan, const selection *among) {
    switch (plan.what) {
    case code_plan::kind::nothing:
        steps_.push_back({"", plan.col->name(), plan.col->width(), plan.text + ": no such value", rows_, 0, 0});
        return no_rows();
    case code_plan::kind::every:
        if (plan.col != nullptr)
            steps_.push_back({"", plan.col->name(), plan.col->width(), plan.text + ": every value", rows_, rows_, 0});
        return among != nullptr ? *among : all_rows();
    case code_plan::kind::scan:
    case code_plan::kind::set: return scan(plan, among);
    case code_plan::kind::nulls:
    case code_plan::kind::known: {
        selection rows = known_rows(plan);
        if (among != nullptr)
            keep_among(rows, *among);
        return rows;
    }
    case code_plan::kind::columns: {
        selection rows = compare_columns(session_, *plan.col, plan.compared, *plan.other, plan.text, steps_);
        if (among != nullptr)
            keep_among(rows, *among);
        return rows;
    }
    case code_plan::kind::both: {
        selection rows = run(plan.parts[0], among);
        for (std::size_t i = 1; i < plan.parts.size() && rows.count > 0; i++)
            rows = run(plan.parts[i], &rows);
        return rows;
    }
    case code_plan::kind::either: break;
    }
    // Over a thin selection each part walks the selected rows; otherwise one AND behind the union does.
    const selection *each = is_thin(among) ? among : nullptr;
    selection rows = run(plan.parts[0], each);
    for (std::size_t i = 1; i < plan.parts.size(); i++) {
        const selection more = run(plan.parts[i], each);
        const ub4 before = rows.count;
        const stopwatch watch;
        ctx_.lbiwvor(rows.bits.data(), &rows.count, rows.bits.data(), more.bits.data(), rows_);
        steps_.push_back({"tavo_lbiwvor_dydi", "", 0, fmt::format("{} or {} rows", before, more.count), rows_,
                          rows.count, watch.seconds()});
    }
    if (among != nullptr && each == nullptr)
        keep_among(rows, *among);
    return rows;
}

void query::keep_among(selection &rows, const selection &among) {
    const ub4 before = rows.count;
    const stopwatch watch;
    ctx_.lbiwvand(rows.bits.data(), &rows.count, rows.bits.data(), among.bits.data(), rows_);
    steps_.push_back({"tavo_lbiwvand_dydi", "", 0, fmt::format("{} and {} rows", before, among.count), rows_,
                      rows.count, watch.seconds()});
}

selection query::scan(const code_plan &plan, const selection *among) {
    stored_column &col = *plan.col;
    scan_call call(plan, session_.kernels());
    const bool sparse = is_thin(among) && call.can_walk();
    tavo_env env{};
    env.host = session_.record();
    if (sparse) {
        env.flags = TAVO_ENV_SPARSE;
        env.sel_bits = const_cast<ub8 *>(among->bits.data()); // read only
    }
    selection rows = no_rows();
    tavo_vec res{};
    res.bits = rows.bits.data();
    res.size = rows_;

    const stopwatch watch;
    const ub4 status = call.run(&res, &env);
    double seconds = watch.seconds();
    session_.throw_raised();
    auto *codes = dynamic_cast<column *>(&col);
    if (const session::decompression done = session_.take_decompression(); done.bytes > 0 && codes != nullptr) {
        steps_.push_back(decompression_step(*codes, done));
        seconds -= done.seconds;
    }
    if (status != TAVO_DONE && status != TAVO_NONE_SELECTED)
        throw error(fmt::format("{} failed with status {}", call.kernel(), status));
    rows.count = res.count;

    std::string what = fmt::format("{}  [{}", plan.text, call.constants());
    if (sparse)
        what += ", sparse path";
    if (codes != nullptr && codes->form() == column_form::rle)
        what += fmt::format(", {} runs", codes->runs());
    steps_.push_back(
        {call.kernel(), col.name(), col.width(), what + "]", sparse ? among->count : rows_, rows.count, seconds});

    if (among != nullptr && !sparse)
        keep_among(rows, *among);
    return rows;
}

// The rows of a column without a dictionary that have a value, or those that have none.
selection query::known_rows(const code_plan &plan) {
    const auto &col = dynamic_cast<const number_column &>(*plan.col);
    const bool nulls = plan.what == code_plan::kind::nulls;
    selection rows = no_rows();
    const stopwatch watch;
    const void *known = col.known().data();
    if (nulls)
        ctx_.lbiwvnot(rows.bits.data(), &rows.count, known, rows_);
    else
        ctx_.lbiwvand(rows.bits.data(), &rows.count, known, known, rows_);
    steps_.push_back({nulls ? "tavo_lbiwvnot_dydi" : "tavo_lbiwvand_dydi", col.name(), 1,
                      plan.text + "  [of the rows with a value]", rows_, rows.count, watch.seconds()});
    return rows;
}

std::vector<ub4> row_numbers(const tavo_specialized_ctx &ctx, const selection &s, ub4 rows, ub4 limit) {
    std::vector<ub4> numbers(std::min(s.count, limit));
    tavo_bit_iter it;
    ctx.lbiwv_ictx_ini2(&it, s.bits.data(), rows, 0, 0);
    numbers.resize(ctx.lbiwvones(&it, numbers.data(), numbers.size()));
    return numbers;
}

query_step decompression_step(const column &col, const session::decompression &done) {
    return {"tavo_spak_decode_dydi",
            col.name(),
            col.width(),
            fmt::format("{} bytes to {}, {:.0f} MB/s", col.encoded_bytes(), done.bytes,
                        static_cast<double>(done.bytes) / std::max(done.seconds, 1e-9) / 1e6),
            col.rows(),
            col.rows(),
            done.seconds};
}

} // namespace host
