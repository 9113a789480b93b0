// Scans of 1-bit columns: no compare is made. The code bits, brought into row order, are the rows of code 1; operator
// and constants say what becomes of them.
#pragma once

#include <string.h>

#include <type_traits>

#include "frame/tavoc_avx512g.h"
#include "scan/scan_operator.h"

namespace tavo {

enum class one_bit_answer { copy, invert, empty, all };

// The whole scan for a given answer, finishing included. env.flags value 2 is not looked at: a selection is applied
// afterwards.
ub4 one_bit_scan(tavo_vec *res, tavo_vec *src, tavo_env *env, const kernel_texts &texts, one_bit_answer answer,
                 ub1 selected_flag = TAVO_RESULT_SCAN_SELECTED) noexcept;

// The table of answers, meant literally also for constants above 1. It is uneven on purpose (eq asks for c != 0 where
// ne asks for c = 1). Constants that do not matter are not read: the vectors of gt_lt may come without data.
template <class Op, bool Nullable>
one_bit_answer one_bit_answer_of(const tavo_vec *lo_vec, const tavo_vec *hi_vec) noexcept {
    using enum one_bit_answer;
    const auto read = [](const tavo_vec *vec) {
        ub4 c;
        memcpy(&c, vec->data, sizeof c);
        return c;
    };
    constexpr auto is = []<class Other>(Other) { return std::is_same_v<Op, Other>; };

    if constexpr (is(scan_op::gt_lt{}) || (Nullable && (is(scan_op::lt{}) || is(scan_op::ge_lt{})))) {
        return empty;
    } else if constexpr (Nullable && is(scan_op::ge{})) {
        return copy;
    } else if constexpr (!Op::is_range) {
        const ub4 c = read(lo_vec);
        if constexpr (is(scan_op::eq{}))
            return c != 0 ? copy : Nullable ? empty : invert;
        else if constexpr (is(scan_op::ne{}))
            return Nullable ? (c == 0 ? copy : empty) : (c == 1 ? invert : copy);
        else if constexpr (is(scan_op::lt{}))
            return c == 0 ? empty : invert;
        else if constexpr (is(scan_op::gt{}))
            return c == 0 ? copy : empty;
        else if constexpr (is(scan_op::le{}))
            return Nullable ? (c != 0 ? copy : empty) : (c == 0 ? invert : all);
        else
            return c == 0 ? all : copy; // ge
    } else {
        const ub4 lo = read(lo_vec), hi = read(hi_vec);
        if constexpr (is(scan_op::gt_le{}))
            return lo == 0 && hi == 1 ? copy : empty;
        else if constexpr (is(scan_op::ge_lt{}))
            return lo == 0 && hi == 1 ? invert : empty;
        else if constexpr (Nullable) // ge_le
            return lo <= 1 && hi == 1 ? copy : empty;
        else
            return lo == 0 && hi == 0 ? invert : lo == 0 && hi == 1 ? all : lo == 1 && hi == 1 ? copy : empty;
    }
}

} // namespace tavo
