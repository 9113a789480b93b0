// Computing the distances of a call's rows: four walks, named by two axes, which the operations share. What becomes of
// a distance is up to each(i, row, distance): i counts the rows visited in this call.
#pragma once

#include "vector/operands.h"
#include "vector/row_walk.h"

namespace tavo::vector {

template <class Each>
[[gnu::always_inline]] inline ub4 each_paired_unif(tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                                   ub4 metric, tavo_env *env, ub4 capacity, Each each) {
    const ub4 dims = col->enc->vec_dims;
    const bool query_by_pointer = has_flag(query, TAVO_VEC_BY_POINTER);
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity,
        [=](ub4 row) {
            prefetch_row(row_of(col, row));
            if (query_by_pointer)
                prefetch_row(row_of(query, row));
        },
        [=, &each](ub4 i, ub4 row) -> ub4 {
            double distance;
            if (const ub8 status = kernel(dims, row_of(query, row), row_of(col, row), metric, &distance))
                return static_cast<ub4>(status);
            each(i, row, distance);
            return TAVO_DONE;
        });
}

template <class Each>
[[gnu::always_inline]] inline ub4 each_single_unif(tavo_vec *col, tavo_vec *query, tavo_distance_kernel *kernel,
                                                   bool left_sparse, ub4 metric, tavo_env *env, void *scratch,
                                                   ub4 capacity, Each each) {
    const ub4 dims = col->enc->vec_dims;
    const ub1 *const left = uniform_query(col, query, left_sparse, scratch);
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity, [=](ub4 row) { prefetch_row(row_of(col, row)); },
        [=, &each](ub4 i, ub4 row) -> ub4 {
            double distance;
            if (const ub8 status = kernel(dims, left, row_of(col, row), metric, &distance))
                return static_cast<ub4>(status);
            each(i, row, distance);
            return TAVO_DONE;
        });
}

template <class Each>
[[gnu::always_inline]] inline ub4 each_paired_flex(tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                                   ub4 capacity, Each each) {
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity,
        [=](ub4 row) {
            prefetch_row(row_of(col, row));
            prefetch_row(row_of(query, row));
        },
        [=, &each](ub4 i, ub4 row) -> ub4 {
            vector_image left;
            double distance;
            if (read_image(row_of(query, row), left) && image_distance(left, row_of(col, row), metric, &distance))
                each(i, row, distance);
            else
                drop_row(env, row);
            return TAVO_DONE;
        });
}

// TAVO_UNSUPPORTED if the query's image is refused.
template <class Each>
[[gnu::always_inline]] inline ub4 each_single_flex(tavo_vec *col, tavo_vec *query, ub4 metric, tavo_env *env,
                                                   void *scratch, ub4 capacity, Each each) {
    vector_image left;
    if (!flexible_query(col, query, scratch, left))
        return TAVO_UNSUPPORTED;
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity, [=](ub4 row) { prefetch_row(row_of(col, row)); },
        [=, &each](ub4 i, ub4 row) -> ub4 {
            double distance;
            if (image_distance(left, row_of(col, row), metric, &distance))
                each(i, row, distance);
            else
                drop_row(env, row);
            return TAVO_DONE;
        });
}

} // namespace tavo::vector
