// The ten comparison operators, unsigned, and the null rule: what a scan means for one row.
#pragma once

#include "frame/tavo_types.h"
#include "portable/intrinsics.h"

namespace tavo {

// The operators as compares of a code with the low and, for the ranges, the high constant.
constexpr int no_compare = -1;
template <int Low, int High = no_compare>
struct scan_operator {
    static constexpr int low = Low, high = High;
    static constexpr bool is_range = High != no_compare;
};
namespace scan_op {
using eq = scan_operator<_MM_CMPINT_EQ>;
using lt = scan_operator<_MM_CMPINT_LT>;
using gt = scan_operator<_MM_CMPINT_NLE>;
using le = scan_operator<_MM_CMPINT_LE>;
using ge = scan_operator<_MM_CMPINT_NLT>;
using ne = scan_operator<_MM_CMPINT_NE>;
using gt_lt = scan_operator<_MM_CMPINT_NLE, _MM_CMPINT_LT>;
using gt_le = scan_operator<_MM_CMPINT_NLE, _MM_CMPINT_LE>;
using ge_lt = scan_operator<_MM_CMPINT_NLT, _MM_CMPINT_LT>;
using ge_le = scan_operator<_MM_CMPINT_NLT, _MM_CMPINT_LE>;
} // namespace scan_op

template <int Predicate, class T>
[[gnu::always_inline]] inline bool holds(T x, T c) noexcept {
    switch (Predicate) {
    case _MM_CMPINT_EQ: return x == c;
    case _MM_CMPINT_LT: return x < c;
    case _MM_CMPINT_LE: return x <= c;
    case _MM_CMPINT_NE: return x != c;
    case _MM_CMPINT_NLT: return x >= c;
    case _MM_CMPINT_NLE: return x > c;
    default: return true;
    }
}

// The definition: does code x qualify?
template <class Op, bool Nullable, class T>
[[gnu::always_inline]] inline bool qualifies(T x, T lo, T hi) noexcept {
    return !(Nullable && x == 0) && holds<Op::low>(x, lo) && holds<Op::high>(x, hi);
}

} // namespace tavo
