// The ten operators of a scan family, once, and what is made of each member: its declaration, its row of the dispatch
// table, the member itself. A family's list gives K(width, form, operator, operation number, tag, variant), form being
// dict, fixed or dynp and tag what the name of the second variant ends in.
#pragma once

#include "frame/dispatch_table.h"

namespace tavo::scan_class {
constexpr unsigned dict = TAVO_CLASS_DICT, fixed = TAVO_CLASS_FIXED, dynp = TAVO_CLASS_DYNP;
}

// WIDTHS(K, ...) is the family's K(width, ...) for each width.
#define TAVO_EACH_ONE_CONSTANT_OPERATOR(WIDTHS, K, form, tag, variant)                                                 \
    WIDTHS(K, form, eq, TAVO_OP_EQ, tag, variant)                                                                      \
    WIDTHS(K, form, lt, TAVO_OP_LT, tag, variant)                                                                      \
    WIDTHS(K, form, gt, TAVO_OP_GT, tag, variant)                                                                      \
    WIDTHS(K, form, le, TAVO_OP_LE, tag, variant)                                                                      \
    WIDTHS(K, form, ge, TAVO_OP_GE, tag, variant)                                                                      \
    WIDTHS(K, form, ne, TAVO_OP_NE, tag, variant)
#define TAVO_EACH_TWO_CONSTANT_OPERATOR(WIDTHS, K, form, tag, variant)                                                 \
    WIDTHS(K, form, gt_lt, TAVO_OP_GT_LT, tag, variant)                                                                \
    WIDTHS(K, form, gt_le, TAVO_OP_GT_LE, tag, variant)                                                                \
    WIDTHS(K, form, ge_lt, TAVO_OP_GE_LT, tag, variant)                                                                \
    WIDTHS(K, form, ge_le, TAVO_OP_GE_LE, tag, variant)

#define TAVO_DECLARE_SCAN(width, form, op, number, tag, variant) tavo_scan_fn tavo_##op##_##form##_##width##bit##tag;
#define TAVO_DECLARE_RANGE_SCAN(width, form, op, number, tag, variant)                                                 \
    tavo_range_scan_fn tavo_##op##_##form##_##width##bit##tag;

#define TAVO_PUT_SCAN(width, form, op, number, tag, variant)                                                           \
    t.put(dispatch_index(number, scan_class::form, width_code(width), variant), tavo_##op##_##form##_##width##bit##tag, \
          "tavo_" #op "_" #form "_" #width "bit" #tag);

// Members: form_scan<operator, width, variant> with the member's texts.
#define TAVO_ONE_CONSTANT_MEMBER(width, form, op, number, tag, variant)                                                \
    extern "C" ub4 tavo_##op##_##form##_##width##bit##tag(tavo_vec *res, tavo_vec *src, tavo_vec *constant,            \
                                                          tavo_env *env) noexcept {                                    \
        return tavo::form##_scan<tavo::scan_op::op, width, variant>(                                                   \
            res, src, constant, nullptr, env, TAVO_KERNEL_TEXTS(tavo_##op##_##form##_##width##bit##tag));              \
    }
#define TAVO_TWO_CONSTANT_MEMBER(width, form, op, number, tag, variant)                                                \
    extern "C" ub4 tavo_##op##_##form##_##width##bit##tag(tavo_vec *res, tavo_vec *src, tavo_vec *lo, tavo_vec *hi,    \
                                                          tavo_env *env) noexcept {                                    \
        return tavo::form##_scan<tavo::scan_op::op, width, variant>(                                                   \
            res, src, lo, hi, env, TAVO_KERNEL_TEXTS(tavo_##op##_##form##_##width##bit##tag));                         \
    }
