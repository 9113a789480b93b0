// The dense members of one family for two vectors of numbers, each stamped from the family's list.
#pragma once

#include "vector/dense_lanes.h"
#include "vector/dense_mixed.h"
#include "vector/distance_kernels.h"
#include "vector/int8_bytes.h"

namespace tavo::vector {

// Pairs of one type have loops of their own; all others share the family's body.
template <class Metric, class Left, class Right>
[[gnu::always_inline]] inline ub8 dense(ub4 dims, const void *left, const void *right, ub4 metric, double *result,
                                        ub4 pair) {
    if constexpr (Left::type != Right::type) {
        return dense_mixed<Metric>(dims, left, right, metric, result, pair);
    } else {
        if constexpr (Left::type == base::int8 && std::is_same_v<Metric, hamming>)
            *result = int8_hamming(dims, left, right);
        else if constexpr (Left::type == base::int8 && std::is_same_v<Metric, manhattan>)
            *result = int8_manhattan(dims, left, right);
        else
            *result = Metric::result(
                dense_lanes<Metric, Left, Right>(dims, static_cast<const ub1 *>(left), static_cast<const ub1 *>(right)),
                metric);
        return 0;
    }
}

} // namespace tavo::vector

#define TAVO_DENSE_MEMBER(family, left_form, right_form)                                                               \
    TAVO_DISTANCE_KERNEL(tavo_dbv_##family##_##left_form##_##right_form) {                                             \
        using namespace tavo::vector;                                                                                  \
        return dense<tavo::vector::family, form_##left_form, form_##right_form>(                                       \
            dims, left, right, metric, result, pair_of(number_##left_form, number_##right_form));                      \
    }
#define TAVO_DENSE_MEMBERS(family)                                                                                     \
    extern "C" {                                                                                                       \
    TAVO_EACH_FORM_PAIR(TAVO_DENSE_MEMBER, family)                                                                     \
    }
