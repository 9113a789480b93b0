#include "host/query/scan_call.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/column/packing.h"
#include "host/error.h"

namespace host {

namespace {

constexpr const char *operator_names[] = {"eq", "lt", "gt", "le", "ge", "ne", "gt_lt", "gt_le", "ge_lt", "ge_le"};

bool has_two_constants(tavo_operation op) { return op >= TAVO_OP_GT_LT; }

// Of rows of one moment and several zones, those of the first zone are the smallest. Whether a bound stands behind the
// last of them, so that `>` leaves all of them out and `<=` takes all of them.
bool low_behind_zones(tavo_operation op) {
    return op == TAVO_OP_GT || op == TAVO_OP_LE || op == TAVO_OP_GT_LT || op == TAVO_OP_GT_LE;
}
bool high_behind_zones(tavo_operation op) { return op == TAVO_OP_GT_LE || op == TAVO_OP_GE_LE; }

} // namespace

std::string scan_name(tavo_operation op, unsigned width, tavo_variant variant) {
    return fmt::format("tavo_{}_dict_{}bit{}", operator_names[op], width,
                       variant == TAVO_VARIANT_SECOND ? "_null" : "");
}

bool has_set_kernel(const stored_column &col) {
    constexpr ub8 largest_set = 1ull << 27; // codes
    const auto *numbers = dynamic_cast<const number_column *>(&col);
    if (numbers == nullptr)
        return true;
    const unsigned width = numbers->width();
    return numbers->form() == column_form::fixed && width <= 32 && col.end_code() <= largest_set;
}

scan_call::scan_call(const code_plan &plan, const library &library) : plan_(plan) {
    ub1 kernel_row;
    tavo_operation op = plan.op;
    if (plan.what == code_plan::kind::set) {
        op = TAVO_OP_SET;
        const unsigned width = plan.col->width();
        name_ = fmt::format("tavo_set_dict_{}bit", width);
        kernel_row = TAVO_KERNEL_ROW(TAVO_VARIANT_PLAIN, width_code(width), TAVO_CLASS_DICT);
        make_set();
    } else if (auto *numbers = dynamic_cast<number_column *>(plan.col)) {
        name_ = fmt::format("tavo_{}_{}_{}bit{}", operator_names[op], name_of(numbers->form()), numbers->kernel_width(),
                            numbers->variant() == TAVO_VARIANT_SECOND ? "_tz" : "");
        kernel_row = numbers->kernel_row();
        set_number(low_, plan.low, low_behind_zones(op));
        set_number(high_, plan.high, high_behind_zones(op));
    } else {
        name_ = scan_name(op, plan.col->width(), plan.variant);
        kernel_row = dynamic_cast<column &>(*plan.col).kernel_row(plan.variant);
        set_code(low_, plan.low);
        set_code(high_, plan.high);
    }
    if (const auto *codes = dynamic_cast<column *>(plan.col))
        can_walk_ = codes->form() != column_form::rle && codes->width() > 1;
    kernel_ = library.kernel(kernel_row, op);
    if (kernel_.scan == nullptr)
        throw error(fmt::format("{} has no kernel {}", library.path(), name_));
}

void scan_call::set_code(constant &c, ub8 code) const {
    c.stored = code;
    c.two_bytes = static_cast<ub2>(code);
    c.byte = static_cast<ub1>(code);
    const unsigned width = plan_.col->width();
    c.vec.data = width == 8    ? static_cast<void *>(&c.byte)
                 : width == 16 ? static_cast<void *>(&c.two_bytes)
                               : &c.stored;
}

void scan_call::set_number(constant &c, ub8 code, bool last_zone) const {
    const auto &numbers = dynamic_cast<const number_column &>(*plan_.col);
    c.stored = numbers.constant(code);
    c.zone = static_cast<ub1>(last_zone && numbers.has_zones() ? numbers.numbers().zones().size() - 1 : 0);
    c.vec.data = &c.stored;
    c.vec.lengths = reinterpret_cast<ub2 *>(&c.zone);
}

// A bit for each code that a column of this width may hold, or, of wide ones, that it does hold.
void scan_call::make_set() {
    const unsigned width = plan_.col->width();
    const ub8 codes = width <= 13 ? 1ull << width : plan_.col->end_code(); // kernels may read all of a small set
    set_.assign(codes / 64 + 1, 0);
    const auto put = [&](ub8 from, ub8 to) {
        for (ub8 code = from; code < to; code++)
            set_[code / 64] |= 1ull << code % 64;
    };
    ub8 next = plan_.col->first_code();
    for (const auto &[from, to] : plan_.members) {
        if (plan_.outside)
            put(next, from);
        else
            put(from, to);
        next = to;
    }
    if (plan_.outside)
        put(next, plan_.col->end_code());
    low_.vec.bits = set_.data();
}

std::string scan_call::constants() const {
    if (plan_.what == code_plan::kind::set) {
        ub8 members = 0;
        for (const auto &[from, to] : plan_.members)
            members += to - from;
        return fmt::format("{}set of {} code{}", plan_.outside ? "outside a " : "", members, members == 1 ? "" : "s");
    }
    const char *what = dynamic_cast<number_column *>(plan_.col) != nullptr ? "number" : "code";
    return has_two_constants(plan_.op) ? fmt::format("{}s {}, {}", what, plan_.low, plan_.high)
                                       : fmt::format("{} {}", what, plan_.low);
}

ub4 scan_call::run(tavo_vec *res, tavo_env *env) {
    if (plan_.what == code_plan::kind::scan && has_two_constants(plan_.op))
        return kernel_.range_scan(res, plan_.col->vec(), &low_.vec, &high_.vec, env);
    return kernel_.scan(res, plan_.col->vec(), &low_.vec, env);
}

} // namespace host
