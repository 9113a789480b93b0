// Walking the rows of a call with both operands: four walks, named by two axes, which the operations share. `col` has a
// row for each one visited, `other` too (paired), or it is one vector for all of them (single).
//
// What is done with a row is up to the operation. i counts the rows visited in this call. In uniform walks
// each(i, row, other_row, col_row) returns a status; another than TAVO_DONE ends the walk. In flexible walks
// each(i, row, other_image, col_row) returns false for a row that fails: it loses its bit in env->valid_rows.
#pragma once

#include "vector/operands.h"
#include "vector/row_walk.h"

namespace tavo::vector {

template <class Each>
[[gnu::always_inline]] inline ub4 each_paired_unif(const tavo_vec *col, const tavo_vec *other, tavo_env *env,
                                                   ub4 capacity, Each each) {
    const bool other_by_pointer = has_flag(other, TAVO_VEC_BY_POINTER);
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity,
        [=](ub4 row) {
            prefetch_row(row_of(col, row));
            if (other_by_pointer)
                prefetch_row(row_of(other, row));
        },
        [=, &each](ub4 i, ub4 row) -> ub4 { return each(i, row, row_of(other, row), row_of(col, row)); });
}

template <class Each>
[[gnu::always_inline]] inline ub4 each_single_unif(const tavo_vec *col, const ub1 *other, tavo_env *env, ub4 capacity,
                                                   Each each) {
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity, [=](ub4 row) { prefetch_row(row_of(col, row)); },
        [=, &each](ub4 i, ub4 row) -> ub4 { return each(i, row, other, row_of(col, row)); });
}

template <class Each>
[[gnu::always_inline]] inline ub4 each_paired_flex(const tavo_vec *col, const tavo_vec *other, tavo_env *env,
                                                   ub4 capacity, Each each) {
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity,
        [=](ub4 row) {
            prefetch_row(row_of(col, row));
            prefetch_row(row_of(other, row));
        },
        [=, &each](ub4 i, ub4 row) -> ub4 {
            vector_image image;
            if (!read_image(row_of(other, row), image) || !each(i, row, image, row_of(col, row)))
                drop_row(env, row);
            return TAVO_DONE;
        });
}

// The one image is parsed and, if its type is among `types`, decoded once. TAVO_UNSUPPORTED if it is refused.
template <class Each>
[[gnu::always_inline]] inline ub4 each_single_flex(const tavo_vec *col, const tavo_vec *other, tavo_env *env, ub4 types,
                                                   void *scratch, ub4 capacity, Each each) {
    vector_image image;
    if (!flexible_query(col, other, types, scratch, image))
        return TAVO_UNSUPPORTED;
    return walk_rows(
        env, TAVO_VEC_SIZE(col), capacity, [=](ub4 row) { prefetch_row(row_of(col, row)); },
        [=, &each](ub4 i, ub4 row) -> ub4 {
            if (!each(i, row, image, row_of(col, row)))
                drop_row(env, row);
            return TAVO_DONE;
        });
}

} // namespace tavo::vector
