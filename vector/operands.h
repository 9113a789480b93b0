// The operands of the vector operations: shapes, rows, and a query that is decoded once for many rows.
#pragma once

#include "frame/tavo_avx512g.h"
#include "frame/tavo_status.h"
#include "frame/tavo_vector.h"

namespace tavo::vector {

[[gnu::always_inline]] inline bool has_flag(const tavo_vec *v, ub4 flag) {
    return TAVO_ENC_CTX_FLAG(TAVO_VEC_ENC_CTX(v), flag);
}
[[gnu::always_inline]] inline const ub1 *row_of(const tavo_vec *v, ub4 row) {
    return static_cast<const ub1 *>(has_flag(v, TAVO_VEC_BY_POINTER) ? static_cast<void *const *>(v->data)[row]
                                                                     : v->data);
}
// Every row an image.
[[gnu::always_inline]] inline bool is_flexible(const tavo_vec *v) {
    return has_flag(v, TAVO_VEC_BY_POINTER) && has_flag(v, TAVO_VEC_IMAGES);
}

// What the row counts and flags of both operands come to. A status other than 0 refuses them.
struct operand_shape {
    ub4 status;
    bool paired;   // row by row; else one query against all rows
    bool flexible; // every row an image
};
operand_shape shape_of_operands(const tavo_vec *col, const tavo_vec *query) noexcept;

// Runs the driver that fits the operands.
template <class PairedUnif, class SingleUnif, class PairedFlex, class SingleFlex>
[[gnu::always_inline]] inline ub4 choose_driver(const operand_shape &shape, PairedUnif paired_unif,
                                                SingleUnif single_unif, PairedFlex paired_flex,
                                                SingleFlex single_flex) {
    if (shape.status != TAVO_DONE)
        return shape.status;
    if (shape.flexible)
        return shape.paired ? paired_flex() : single_flex();
    return shape.paired ? paired_unif() : single_unif();
}

constexpr ub4 left_layout(ub8 layout) { return layout >> 1 & 3; }
constexpr ub4 right_layout(ub8 layout) { return layout >> 3 & 3; }

// The kernel for two uniform operands, or null.
tavo_distance_kernel *uniform_kernel(const tavo_vec *col, const tavo_vec *query, ub4 metric, ub8 layout,
                                     const void *scratch) noexcept;

// The element types, a bit each, whose comparable form an operation decodes once for many rows.
constexpr ub4 wide_floats = 1u << TAVO_ELEM_FLOAT | 1u << TAVO_ELEM_DOUBLE;
constexpr ub4 all_floats = wide_floats | 1u << TAVO_ELEM_FLOAT16 | 1u << TAVO_ELEM_BFLOAT16;

// The query of a uniform operation as its kernel takes it: where it stands, or decoded to scratch.
bool decodes_uniform_query(const tavo_vec *col, const tavo_vec *query, ub4 types, const void *scratch) noexcept;
const ub1 *uniform_query(const tavo_vec *col, const tavo_vec *query, bool sparse, ub4 types, void *scratch) noexcept;

// An image, taken apart.
struct vector_image {
    const ub1 *data;
    ub4 type; // element type, 0 if there is none of that number
    ub4 dims;
    bool comparable, sparse;
};
// False if the image's head is refused.
bool read_image(const ub1 *image, vector_image &out) noexcept;

// The query of a flexible operation: read_image of its one row, decoded to scratch where that pays.
bool flexible_query(const tavo_vec *col, const tavo_vec *query, ub4 types, void *scratch, vector_image &out) noexcept;

// The distance of two images; false where it has none.
bool image_distance(const vector_image &left, const ub1 *right_image, ub4 metric, double *result) noexcept;

// Turns all doubles of an output to comparable form unless it is native, those that a call did not write too.
void finish_doubles(tavo_vec *out) noexcept;

// Takes a row of a flexible column out of the valid ones.
[[gnu::always_inline]] inline void drop_row(const tavo_env *env, ub4 row) {
    if (env->valid_rows != nullptr)
        env->valid_rows[row / 64] &= ~(1ull << row % 64);
}

// Asks for the memory of a row that is next. Rows are reached through pointers, so no processor foresees where it
// starts; once it is being read, the processor follows by itself.
[[gnu::always_inline]] inline void prefetch_row(const ub1 *row) {
#pragma GCC unroll 4
    for (unsigned line = 0; line < 4; line++)
        __builtin_prefetch(row + 64 * line);
}

} // namespace tavo::vector
