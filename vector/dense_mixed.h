// Distance of two dense vectors of different element types: one position after the other.
//
// The order of the additions is that of the dimensions, so their latency is the limit; what happens before them,
// loading and converting, is done in lanes, a run of elements ahead.
#pragma once

#include "vector/metrics.h"
#include "vector/readers.h"

namespace tavo::vector {

// T is the type in which terms are computed: double if either side is, else float.
template <class Metric, class T>
[[gnu::always_inline]] inline double dense_one_by_one(ub4 dims, const ub1 *left, const ub1 *right, ub4 metric,
                                                      ub4 left_form, ub4 right_form) {
    constexpr unsigned prefetch_distance = 384;
    const auto read_left = reader_of<T>(left_form).run, read_right = reader_of<T>(right_form).run;
    const unsigned left_bytes = bytes_of(type_of_form[left_form]), right_bytes = bytes_of(type_of_form[right_form]);
    const T threshold = static_cast<T>(hamming_threshold(type_of_form[left_form], type_of_form[right_form]));
    typename Metric::totals totals{};
    alignas(64) T a[run_elements], b[run_elements];
    while (dims != 0) {
        const ub4 n = dims < run_elements ? dims : run_elements;
        for (unsigned at = 0; at < run_elements * left_bytes; at += 64)
            __builtin_prefetch(left + prefetch_distance + at);
        for (unsigned at = 0; at < run_elements * right_bytes; at += 64)
            __builtin_prefetch(right + prefetch_distance + at);
        read_left(left, n, a);
        read_right(right, n, b);
        for (ub4 i = 0; i < n; i++)
            Metric::pair(totals, a[i], b[i], threshold);
        left += n * left_bytes;
        right += n * right_bytes;
        dims -= n;
    }
    return Metric::result(totals, metric);
}

// The body of a metric's members; `pair` names their forms.
template <class Metric>
[[gnu::noinline]] ub8 dense_mixed(ub4 dims, const void *left, const void *right, ub4 metric, double *result,
                                  ub4 pair) noexcept {
    const ub4 l = pair / forms, r = pair % forms;
    const auto *a = static_cast<const ub1 *>(left), *b = static_cast<const ub1 *>(right);
    *result = type_of_form[l] == base::float64 || type_of_form[r] == base::float64
                  ? dense_one_by_one<Metric, double>(dims, a, b, metric, l, r)
                  : dense_one_by_one<Metric, float>(dims, a, b, metric, l, r);
    return 0;
}

} // namespace tavo::vector
