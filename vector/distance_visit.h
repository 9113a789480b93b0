// The distances of a call's rows: what the distance and the nearest-neighbour operation share. What becomes of a
// distance is up to take(i, row, distance); i counts the rows visited in this call.
#pragma once

#include "vector/visit.h"

namespace tavo::vector {

template <class Take>
[[gnu::always_inline]] inline auto by_kernel(tavo_distance_kernel *kernel, ub4 dims, ub4 metric, Take &take) {
    return [=, &take](ub4 i, ub4 row, const ub1 *left, const ub1 *right) -> ub4 {
        double distance;
        if (const ub8 status = kernel(dims, left, right, metric, &distance))
            return static_cast<ub4>(status);
        take(i, row, distance);
        return TAVO_DONE;
    };
}
template <class Take>
[[gnu::always_inline]] inline auto by_images(ub4 metric, Take &take) {
    return [=, &take](ub4 i, ub4 row, const vector_image &left, const ub1 *right) {
        double distance;
        if (!image_distance(left, right, metric, &distance))
            return false;
        take(i, row, distance);
        return true;
    };
}

template <class Take>
[[gnu::always_inline]] inline ub4 distances_paired_unif(tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                                        ub4 metric, tavo_env *env, ub4 capacity, Take take) {
    return each_paired_unif(col, query, env, capacity, by_kernel(kernel, col->enc->vec_dims, metric, take));
}
template <class Take>
[[gnu::always_inline]] inline ub4 distances_single_unif(tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                                        bool left_sparse, ub4 metric, tavo_env *env, void *scratch,
                                                        ub4 capacity, Take take) {
    const ub1 *const left = uniform_query(col, query, left_sparse, all_floats, scratch);
    return each_single_unif(col, left, env, capacity, by_kernel(kernel, col->enc->vec_dims, metric, take));
}
template <class Take>
[[gnu::always_inline]] inline ub4 distances_paired_flex(tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                                        ub4 capacity, Take take) {
    return each_paired_flex(col, query, env, capacity, by_images(metric, take));
}
template <class Take>
[[gnu::always_inline]] inline ub4 distances_single_flex(tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                                        void *scratch, ub4 capacity, Take take) {
    return each_single_flex(col, query, env, all_floats, scratch, capacity, by_images(metric, take));
}

// Runs the driver that fits the operands, a uniform one with its kernel. `Drivers` are those of one operation.
template <class Drivers>
[[gnu::always_inline]] inline ub4 drive(tavo_vec *res, tavo_vec *col, tavo_vec *query, ub8 metric_word, ub8 layout,
                                        tavo_env *env, void *scratch) {
    const auto metric = static_cast<ub4>(metric_word);
    const operand_shape shape = shape_of_operands(col, query);
    tavo_distance_kernel *kernel = nullptr;
    if (shape.status == TAVO_DONE && !shape.flexible) {
        kernel = uniform_kernel(col, query, metric, layout, scratch);
        if (kernel == nullptr)
            return TAVO_BAD_INPUT;
    }
    return choose_driver(
        shape, [&] { return Drivers::paired_unif(res, col, query, kernel, metric, env); },
        [&] { return Drivers::single_unif(res, col, query, kernel, left_layout(layout) == 1, metric, env, scratch); },
        [&] { return Drivers::paired_flex(res, col, query, metric, env, scratch); },
        [&] { return Drivers::single_flex(res, col, query, metric, env, scratch); });
}

} // namespace tavo::vector
