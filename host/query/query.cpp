#include "host/query/query.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

#include "host/error.h"
#include "host/query/column_compare.h"

namespace host {

namespace {

class stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

constexpr const char *operator_names[] = {"eq", "lt", "gt", "le", "ge", "ne", "gt_lt", "gt_le", "ge_lt", "ge_le"};

bool has_two_constants(tavo_operation op) { return op >= TAVO_OP_GT_LT; }

// A constant vector: kernels read one byte at width 8, two at width 16 and four at all other widths up to 32, in the
// processor's byte order.
struct code_constant {
    code_constant(ub4 code, unsigned width)
        : code4(code), code2(static_cast<ub2>(code)), code1(static_cast<ub1>(code)) {
        vec.data = width == 8 ? static_cast<void *>(&code1) : width == 16 ? static_cast<void *>(&code2) : &code4;
    }
    code_constant(const code_constant &) = delete;
    ub4 code4;
    ub2 code2;
    ub1 code1;
    tavo_vec vec{};
};

} // namespace

std::string scan_name(tavo_operation op, unsigned width, tavo_variant variant) {
    return fmt::format("tavo_{}_dict_{}bit{}", operator_names[op], width,
                       variant == TAVO_VARIANT_SECOND ? "_null" : "");
}

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
    case code_plan::kind::scan: return scan(plan, among);
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
    column &col = *plan.col;
    const std::string name = scan_name(plan.op, col.width(), plan.variant);
    const tavo_kernel_slot kernel = session_.kernels().kernel(col.kernel_row(plan.variant), plan.op);
    if (kernel.scan == nullptr)
        throw error(fmt::format("{} has no kernel {}", session_.kernels().path(), name));

    // A thin selection is walked row by row, where the kernel can: not over runs, and there is no such path at one bit.
    const bool sparse = is_thin(among) && col.form() != column_form::rle && col.width() > 1;
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
    code_constant low(plan.low, col.width()), high(plan.high, col.width());

    const stopwatch watch;
    const ub4 status = has_two_constants(plan.op) ? kernel.range_scan(&res, col.vec(), &low.vec, &high.vec, &env)
                                                  : kernel.scan(&res, col.vec(), &low.vec, &env);
    double seconds = watch.seconds();
    session_.throw_raised();
    if (const session::decompression done = session_.take_decompression(); done.bytes > 0) {
        steps_.push_back(decompression_step(col, done));
        seconds -= done.seconds;
    }
    if (status != TAVO_DONE && status != TAVO_NONE_SELECTED)
        throw error(fmt::format("{} failed with status {}", name, status));
    rows.count = res.count;

    std::string what = plan.text;
    what += has_two_constants(plan.op) ? fmt::format("  [codes {}, {}", plan.low, plan.high)
                                       : fmt::format("  [code {}", plan.low);
    if (sparse)
        what += ", sparse path";
    if (col.form() == column_form::rle)
        what += fmt::format(", {} runs", col.runs());
    steps_.push_back({name, col.name(), col.width(), what + "]", sparse ? among->count : rows_, rows.count, seconds});

    if (among != nullptr && !sparse)
        keep_among(rows, *among);
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
