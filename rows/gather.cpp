// Gather: codes name table rows, elements of these rows go to the output. Contract: frame/tavo_rows.h.
//
// One walk for all: it reads codes and finds their rows a block at a time, collects the elements that are wanted in a
// batch, and has the output's layout write the batch. The steps know nothing of each other:
//
//   read the code          row_places.h      by the source's form
//   compute the element    table_form.h      by the table's form
//   write it               gather_output.h   by the layout
//
// Rows that go over as one piece of memory have shorter ways (row_copies.h): they write all rows that fit, and leave
// the rest, such as the row that fits in part, to the walk.
#include <type_traits>

#include "frame/tavoc_avx512g.h"
#include "rows/column_elements.h"
#include "rows/gather_output.h"
#include "rows/row_copies.h"
#include "rows/row_tables.h"
#include "rows/table_form.h"

namespace tavo {
namespace {

// ---- The columns that are wanted of a row ----

struct one_column {
    static constexpr bool fetches_ahead = true;
    ub4 col;

    ub4 count() const noexcept { return 1; }
    ub4 operator[](ub4) const noexcept { return col; }
};
struct all_columns {
    static constexpr bool fetches_ahead = true;
    ub4 cols;

    ub4 count() const noexcept { return cols; }
    ub4 operator[](ub4 i) const noexcept { return i; }
};
struct listed_columns {
    static constexpr bool fetches_ahead = false;
    const ub4 *list;
    ub4 cols;

    ub4 count() const noexcept { return cols; }
    ub4 operator[](ub4 i) const noexcept { return list[i]; }
};

// ---- The walk ----

ub4 done(tavo_env *env, const tavo_vec *src) noexcept {
    env->resume_row = TAVO_VEC_SIZE(src);
    return TAVO_DONE;
}
ub4 full(tavo_env *env, ub8 row) noexcept {
    env->resume_row = static_cast<ub4>(row);
    return TAVO_ROWS_FULL;
}

template <class Table, class Columns>
ub4 walk_rows(const Table &table, Columns columns, gather_output out, put_elements *put, const tavo_vec *src,
              tavo_env *env) noexcept {
    constexpr bool fetches_ahead = Table::fetches_ahead && Columns::fetches_ahead;
    constexpr bool one = std::is_same_v<Columns, one_column>;
    const ub4 cols = columns.count();
    const ub8 first = env->resume_row, end = TAVO_VEC_SIZE(src);
    if (cols == 0)
        return done(env, src);
    const auto rows_at = [end](ub8 row) { return static_cast<ub4>(end - row < block_rows ? end - row : block_rows); };
    element_batch batch;
    row_places blocks[2], *here = &blocks[0], *next = &blocks[1];
    ub4 collected = 0;
    ub8 written = 0; // elements
    const auto flush = [&] {
        const ub4 fitting = put(out, batch, collected);
        written += fitting;
        const bool all = fitting == collected;
        collected = 0;
        return all;
    };
    table.rows.find(first, rows_at(first), *here);
    if constexpr (fetches_ahead)
        for (ub4 k = 0; k < rows_at(first); k++)
            table.fetch(*here, k, columns[0], cols);
    for (ub8 row = first; row < end;) {
        const ub4 n = rows_at(row), ahead = rows_at(row + n);
        table.rows.find(row + n, ahead, *next);
        for (ub4 k = 0; k < n; k++) {
            if constexpr (fetches_ahead)
                if (k < ahead)
                    table.fetch(*next, k, columns[0], cols);
            if constexpr (one) {
                batch.set(k, table.one(*here, k, columns[0]));
            } else {
                for (ub4 c = 0; c < cols;) {
                    const ub4 room = element_batch::capacity - collected, run = cols - c < room ? cols - c : room;
                    if constexpr (std::is_same_v<Columns, all_columns>)
                        table.run(batch, collected, *here, k, c, run);
                    else
                        for (ub4 i = 0; i < run; i++)
                            batch.set(collected + i, table.one(*here, k, columns[c + i]));
                    collected += run;
                    c += run;
                    if (collected == element_batch::capacity && !flush())
                        return full(env, first + written / cols);
                }
            }
        }
        row += n;
        if constexpr (one) {
            collected = n;
            if (!flush())
                return full(env, first + written);
        }
        row_places *const read = here;
        here = next;
        next = read;
    }
    if (!one && !flush())
        return full(env, first + written / cols);
    return done(env, src);
}

// ---- The choice ----

constexpr ub4 byte_layouts = TAVO_LV_SEP | TAVO_LV, pointer_layouts = TAVO_LP_SEP | TAVO_LP;

put_elements *put_in_layout(ub4 flags) noexcept {
    return flags & TAVO_LV_SEP   ? batch_to_lv_sep
           : flags & TAVO_LV     ? batch_to_lv
           : flags & TAVO_LP_SEP ? batch_to_lp_sep
           : flags & TAVO_LP     ? batch_to_lp
                                 : nullptr;
}
put_elements *put_in_fixed_layout(ub4 flags) noexcept {
    return flags & TAVO_LP_SEP ? batch_to_lp_sep : flags & TAVO_FIXED ? batch_to_fixed : nullptr;
}

// `row_cols`: columns of a table row.
template <class Columns>
ub4 gather_columns(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env, Columns columns,
                   ub4 row_cols, const kernel_texts &texts) noexcept {
    const ub4 form = shape->flags & TAVO_TABLE_REFERENCE ? TAVO_TABLE_REFERENCE
                     : shape->flags & TAVO_TABLE_CLA     ? TAVO_TABLE_CLA
                                                         : shape->flags & TAVO_TABLE_FIXED;
    const ub4 layout = TAVO_VEC_ENC_CTX(dst)->flags;
    put_elements *const put = form == TAVO_TABLE_FIXED ? put_in_fixed_layout(layout) : put_in_layout(layout);
    if (form == 0 || !put || !row_codes::readable(TAVO_VEC_ENC_CTX(src)))
        return TAVO_UNSUPPORTED;
    if (env->resume_row >= TAVO_VEC_SIZE(src))
        return done(env, src);
    const row_codes codes(TAVO_VEC_ENC_CTX(src), column_data(src, env, texts));
    gather_output out(dst);
    if (form == TAVO_TABLE_REFERENCE)
        return walk_rows(reference_table(codes, shape, row_cols), columns, out, put, src, env);
    if (form == TAVO_TABLE_CLA) {
        const cla_table table(codes, shape, row_cols);
        if constexpr (std::is_same_v<Columns, all_columns>)
            if (put == batch_to_lv_sep)
                env->resume_row += copy_cla_rows(table, columns.cols, out, env->resume_row, TAVO_VEC_SIZE(src));
        return walk_rows(table, columns, out, put, src, env);
    }
    const fixed_table table(codes, shape, row_cols);
    if (put == batch_to_fixed)
        env->resume_row += copy_fixed_rows(table, columns, out, env->resume_row, TAVO_VEC_SIZE(src));
    return walk_rows(table, columns, out, put, src, env);
}

// The bytes that a column of pointers leads to.
ub4 gather_pointed_bytes(tavo_vec *dst, tavo_vec *src, tavo_env *env, const kernel_texts &texts) noexcept {
    const ub8 first = env->resume_row, end = TAVO_VEC_SIZE(src);
    if (first >= end)
        return done(env, src);
    const auto rows_at = [end](ub8 row) { return static_cast<ub4>(end - row < block_rows ? end - row : block_rows); };
    column_elements elements(src, column_data(src, env, texts), column_elements::layout_of(src, pointer_layouts),
                             first);
    element_batch batches[2], *here = &batches[0], *next = &batches[1];
    gather_output out(dst);
    const bool apart = (TAVO_VEC_ENC_CTX(dst)->flags & TAVO_LV_SEP) != 0;
    elements.read(*here, rows_at(first));
    for (ub4 k = 0; k < rows_at(first); k++)
        __builtin_prefetch(here->bytes(k));
    for (ub8 row = first; row < end;) {
        const ub4 n = rows_at(row), ahead = rows_at(row + n);
        elements.read(*next, ahead);
        const auto fetch = [&](ub4 k) {
            if (k < ahead)
                __builtin_prefetch(next->bytes(k));
        };
        const ub4 fitting =
            apart ? put_bytes<0, true>(out, *here, n, fetch) : put_bytes<sizeof(ub2), false>(out, *here, n, fetch);
        if (fitting != n)
            return full(env, row + fitting);
        row += n;
        element_batch *const read = here;
        here = next;
        next = read;
    }
    return done(env, src);
}

} // namespace
} // namespace tavo

using namespace tavo;

extern "C" ub4 tavo_gather_dydi(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env) noexcept {
    const kernel_texts texts = TAVO_KERNEL_TEXTS(tavo_gather_dydi);
    if ((TAVO_VEC_ENC_CTX(dst)->flags & byte_layouts) != 0 && (TAVO_VEC_ENC_CTX(src)->flags & pointer_layouts) != 0)
        return gather_pointed_bytes(dst, src, env, texts);
    if (shape->flags & TAVO_TABLE_ONE_ELEMENT)
        return gather_columns(dst, src, shape, env, one_column{0}, 1, texts);
    return gather_columns(dst, src, shape, env, all_columns{shape->row_cols}, shape->row_cols, texts);
}

extern "C" ub4 tavo_gather_one_col_dydi(tavo_vec *dst, tavo_vec *src, const tavo_gather_spec *shape, tavo_env *env,
                                        ub4 col) noexcept {
    return gather_columns(dst, src, shape, env, one_column{col}, shape->row_cols,
                          TAVO_KERNEL_TEXTS(tavo_gather_one_col_dydi));
}

extern "C" ub4 tavo_gather_cols_dydi(tavo_vec *dst, tavo_vec *src, const ub4 *cols, ub4 ncols,
                                     const tavo_gather_spec *shape, tavo_env *env) noexcept {
    return gather_columns(dst, src, shape, env, listed_columns{cols, ncols}, shape->row_cols,
                          TAVO_KERNEL_TEXTS(tavo_gather_cols_dydi));
}
