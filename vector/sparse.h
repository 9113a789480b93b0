// Distance of two sparse vectors: a merge of the two lists of dimension numbers.
//
// The order of the additions is part of a member's result: at a match the pair's term, then the left elements since the
// last match, then the right ones; behind the last match what is left of the left list, then of the right one. Metrics
// to which an element without a partner adds nothing take the matches alone.
#pragma once

#include "vector/metrics.h"
#include "vector/sparse_merge.h"

namespace tavo::vector {

// Walks one side's values in order, read a run at a time.
template <class T>
struct value_walk {
    const ub1 *values;
    unsigned bytes;
    ub4 count;
    void (*read)(const ub1 *elements, ub4 n, T *out) noexcept;
    ub4 at, run_begin, run_end; // next element; those that `run` holds
    alignas(64) T run[run_elements];

    // Calls add(value) for the elements up to `end`.
    template <class Add>
    [[gnu::always_inline]] void up_to(ub4 end, Add add) {
        while (at < end) {
            if (at >= run_end) {
                run_begin = at;
                run_end = count - at < run_elements ? count : at + run_elements;
                read(values + static_cast<ub8>(at) * bytes, run_end - at, run);
            }
            const ub4 stop = end < run_end ? end : run_end;
            for (; at < stop; at++)
                add(run[at - run_begin]);
        }
    }
};

template <class Metric, class T>
[[gnu::always_inline]] inline double sparse_one_by_one(const void *left, const void *right, ub4 metric, ub4 left_form,
                                                       ub4 right_form) {
    const base left_type = type_of_form[left_form], right_type = type_of_form[right_form];
    const auto values_of = [](const sparse_list &list, ub4 f) {
        const bool aligned = !form_is_comparable[f] && type_of_form[f] != base::int8;
        const ub1 *values = sparse_values(list, aligned);
        __builtin_prefetch(values);
        return values;
    };
    sparse_merge merge{sparse_list_of(left), sparse_list_of(right), 0, 0};
    const ub1 *const left_values = values_of(merge.left, left_form);
    const ub1 *const right_values = values_of(merge.right, right_form);
    const T threshold = static_cast<T>(hamming_threshold(left_type, right_type));
    typename Metric::totals totals{};

    value_walk<T> l, r;
    l.values = left_values, l.bytes = bytes_of(left_type), l.count = merge.left.count;
    r.values = right_values, r.bytes = bytes_of(right_type), r.count = merge.right.count;
    l.read = reader_of<T>(left_form).run, r.read = reader_of<T>(right_form).run;
    l.at = l.run_begin = l.run_end = r.at = r.run_begin = r.run_end = 0;
    const auto add_left = [&](T v) __attribute__((always_inline)) { Metric::left(totals, v, threshold); };
    const auto add_right = [&](T v) __attribute__((always_inline)) { Metric::right(totals, v, threshold); };

    match matches[match_room];
    T a[match_room], b[match_room];
    while (const ub4 n = next_matches(merge, matches)) {
        reader_of<T>(left_form).pick(left_values, matches, left_shift, n, a);
        reader_of<T>(right_form).pick(right_values, matches, right_shift, n, b);
        for (ub4 k = 0; k < n; k++) {
            Metric::pair(totals, a[k], b[k], threshold);
            if constexpr (!Metric::skips_unmatched) {
                l.up_to(matches[k] >> left_shift & 0xffff, add_left);
                r.up_to(matches[k] >> right_shift & 0xffff, add_right);
                l.at++;
                r.at++;
            }
        }
    }
    if constexpr (!Metric::skips_unmatched) {
        l.up_to(l.count, add_left);
        r.up_to(r.count, add_right);
    }
    return Metric::result(totals, metric);
}

// The body of a metric's members; `pair` names their forms.
template <class Metric>
[[gnu::noinline]] ub8 sparse(const void *left, const void *right, ub4 metric, double *result, ub4 pair) noexcept {
    const ub4 l = pair / forms, r = pair % forms;
    *result = type_of_form[l] == base::float64 || type_of_form[r] == base::float64
                  ? sparse_one_by_one<Metric, double>(left, right, metric, l, r)
                  : sparse_one_by_one<Metric, float>(left, right, metric, l, r);
    return 0;
}

} // namespace tavo::vector
