// Walking the rows of a call: those of a selection bit vector, of a position list, or all.
#pragma once

#include "bitvec/bitvec.h"
#include "frame/tavo_status.h"

namespace tavo::vector {

// Visits at most `capacity` of the `rows` rows of a column, from env->resume_row on, and moves that on. visit(i, row)
// is called with the count of rows visited before and the row; before it, ahead(row) with the row that comes next, so
// that its memory can be asked for. A status other than 0 ends the walk and is returned, with resume_row as it was.
template <class Ahead, class Visit>
[[gnu::always_inline]] inline ub4 walk_rows(tavo_env *env, ub4 rows, ub4 capacity, Ahead ahead, Visit visit) {
    const ub4 from = env->resume_row;
    const auto room = [=](ub4 end) { return from >= end ? 0 : end - from < capacity ? end - from : capacity; };

    // The rows of a list, the first of which is the i-th of this call.
    const auto walk_list = [&](const ub4 *list, ub4 n, ub4 i) __attribute__((always_inline))->ub4 {
        for (ub4 k = 0; k < n; k++) {
            if (k + 1 < n)
                ahead(list[k + 1]);
            if (const ub4 status = visit(i + k, list[k]))
                return status;
        }
        return TAVO_DONE;
    };

    if (env->sel_bits != nullptr) {
        constexpr ub4 batch = 256;
        const ub4 n = room(rows);
        ub4 list[batch], next = from;
        tavo_bit_iter it;
        tavo_lbiwv_ictx_ini2_dydi(&it, env->sel_bits, rows, 0, from);
        for (ub4 done = 0; done < n;) {
            const auto got = static_cast<ub4>(tavo_lbiwvones_dydi(&it, list, n - done < batch ? n - done : batch));
            if (got == 0)
                break;
            if (const ub4 status = walk_list(list, got, done))
                return status;
            done += got;
            next = list[got - 1] + 1;
        }
        env->resume_row = next;
        return TAVO_DONE;
    }
    if (env->ones_vec != nullptr) {
        const ub4 n = room(env->ones_vec_size);
        if (const ub4 status = walk_list(env->ones_vec + from, n, 0))
            return status;
        env->resume_row = from + n;
        return TAVO_DONE;
    }
    const ub4 n = room(rows);
    for (ub4 i = 0; i < n; i++) {
        if (i + 1 < n)
            ahead(from + i + 1);
        if (const ub4 status = visit(i, from + i))
            return status;
    }
    env->resume_row = from + n;
    return TAVO_DONE;
}

} // namespace tavo::vector
