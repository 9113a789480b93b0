#include "host/query/extremes.h"

#include <chrono>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Calls visit(row) for each row that is selected and has a value, until it returns false.
template <class Visit>
void each_known(const tavo_specialized_ctx &ctx, const number_column &col, const selection &rows, Visit visit) {
    tavo_bit_iter it;
    ctx.lbiwv_ictx_ini2(&it, rows.bits.data(), col.rows(), 0, 0);
    for (ub8 row; (row = ctx.lbiwviter(&it)) != TAVO_LBIWV_END;)
        if (col.is_known(static_cast<ub4>(row)) && !visit(static_cast<ub4>(row)))
            return;
}

// The code that a kernel finds among the rows of a packed column; nothing if there is none.
std::optional<ub4> by_kernel(session &s, stored_column &col, tavo_variant variant, ub8 *rows, ub4 selected, extreme e,
                             std::vector<query_step> &steps) {
    const ub1 kernel_row = TAVO_KERNEL_ROW(variant, width_code(col.width()), TAVO_CLASS_DICT);
    const std::string name =
        fmt::format("tavo_minmax_dict_{}bit{}", col.width(), variant == TAVO_VARIANT_SECOND ? "_null" : "");
    const tavo_kernel_slot kernel = s.kernels().kernel(kernel_row, TAVO_OP_MINMAX);
    if (kernel.minmax == nullptr)
        throw error(fmt::format("{} has no kernel {} (column {})", s.kernels().path(), name, col.name()));
    tavo_enc_ctx enc = *col.vec()->enc;
    enc.symbol_count = static_cast<ub4>(col.end_code());
    tavo_vec src = *col.vec(), res{};
    src.enc = &enc;
    ub4 pair[2];
    res.data = pair;
    tavo_env env{};
    env.host = s.record();
    env.sel_bits = rows; // null: all
    const auto start = std::chrono::steady_clock::now();
    const ub4 status = kernel.minmax(&res, &src, &env, e == extreme::smallest ? TAVO_MINMAX_LOW : TAVO_MINMAX_HIGH);
    double seconds = since(start);
    s.throw_raised();
    if (const session::decompression done = s.take_decompression(); done.bytes > 0) {
        if (const auto *codes = dynamic_cast<column *>(&col))
            steps.push_back(decompression_step(*codes, done));
        seconds -= done.seconds;
    }
    if (status != TAVO_DONE && status != TAVO_NONE_SELECTED)
        throw error(fmt::format("{} failed with status {}", name, status));
    std::optional<ub4> code;
    if (status == TAVO_DONE)
        code = pair[e == extreme::smallest ? 0 : 1];
    steps.push_back({name, col.name(), col.width(),
                     code ? fmt::format("{} of {}  [code {}]", name_of(e), col.name(), *code)
                          : fmt::format("{} of {}: no value", name_of(e), col.name()),
                     selected, code ? 1u : 0u, seconds});
    return code;
}

// Numbers of 1 to 4 bytes are packed codes of that width. The walk along a selection compares signed numbers.
bool is_packed(const number_column &col) {
    return col.form() == column_form::fixed && col.width() <= 32 && col.end_code() <= 1ull << 31;
}

std::optional<std::string> extreme_number(session &s, number_column &col, const selection &rows, extreme e,
                                          std::vector<query_step> &steps) {
    const tavo_specialized_ctx &ctx = s.kernels().ctx();
    std::optional<ub8> best;
    if (is_packed(col)) {
        selection known = rows;
        if (col.has_null())
            ctx.lbiwvand(known.bits.data(), &known.count, rows.bits.data(), col.known().data(), col.rows());
        if (const auto code = by_kernel(s, col, TAVO_VARIANT_PLAIN,
                                        known.count == col.rows() ? nullptr : known.bits.data(), known.count, e, steps))
            best = *code;
    } else {
        const auto start = std::chrono::steady_clock::now();
        number_column::walk walk(col);
        each_known(ctx, col, rows, [&](ub4 row) {
            const ub8 code = col.form() == column_form::fixed ? col.fixed_code(row) : walk.code(row);
            if (!best || (e == extreme::smallest ? code < *best : code > *best))
                best = code;
            return true;
        });
        steps.push_back({"", col.name(), col.width(), fmt::format("{} of {}  [by the host]", name_of(e), col.name()),
                         rows.count, best ? 1u : 0u, since(start)});
    }
    if (!best)
        return std::nullopt;
    stored_number found{*best, 0};
    if (col.has_zones()) { // that of the first row with this moment
        each_known(ctx, col, rows, [&](ub4 row) {
            if (col.fixed_code(row) != *best)
                return true;
            found.zone = col.zone(row);
            return false;
        });
    }
    return col.numbers().text(found);
}

} // namespace

std::optional<std::string> extreme_value(session &s, stored_column &col, const selection &rows, extreme e,
                                         std::vector<query_step> &steps) {
    if (rows.count == 0)
        return std::nullopt;
    if (auto *numbers = dynamic_cast<number_column *>(&col))
        return extreme_number(s, *numbers, rows, e, steps);
    auto &codes = dynamic_cast<column &>(col);
    ub8 *selected = rows.count == col.rows() ? nullptr : const_cast<ub8 *>(rows.bits.data()); // read only
    const auto code =
        by_kernel(s, col, col.has_null() ? TAVO_VARIANT_SECOND : TAVO_VARIANT_PLAIN, selected, rows.count, e, steps);
    if (!code)
        return std::nullopt;
    return codes.symbols()[*code];
}

} // namespace host
