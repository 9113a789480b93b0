// Columns of values to a table of fixed-width rows. Contract: frame/tavo_rows.h.
#include "frame/element_layout.h"
#include "frame/tavoc_avx512g.h"
#include "rows/row_tables.h"

namespace tavo {
namespace {

// Writes value(r) of each row; value is called in the order of rows.
template <class Value>
[[gnu::always_inline]] inline void write_values(const tavo_gather_spec *shape, const tavo_vec *src, ub2 col, sb4 part,
                                                Value value) noexcept {
    ub1 *to = shape->byte_cursor[part] + shape->col_offsets[col];
    const ub8 row_bytes = shape->row_bytes;
    const ub4 rows = TAVO_VEC_SIZE(src);
    for (ub8 r = 0; r < rows; r++, to += row_bytes) {
        const auto v = value(r);
        memcpy(to, &v, sizeof v);
    }
}
template <class T>
[[gnu::always_inline]] inline T load_nth(const void *array, ub8 i) noexcept {
    T value;
    memcpy(&value, static_cast<const ub1 *>(array) + i * sizeof value, sizeof value);
    return value;
}

const ub1 *data_of(tavo_vec *src) noexcept {
    return column_data(src, nullptr, TAVO_KERNEL_TEXTS(tavo_transpose_fixed_dydi));
}

} // namespace
} // namespace tavo

using namespace tavo;

// name: what an assertion calls it; value: how the value of row r is read.
#define TAVO_FIXED_TRANSPOSES(K)                                                                                       \
    K(tavo_transpose_fixed_gd, load_nth<ub4>(side_table, load_nth<ub4>(data, r)))                                      \
    K(tavo_transpose_fixed_unpacked_dict, load_nth<ub8>(side_table, load_nth<ub4>(data, r)))                           \
    K(tavo_transpose_fixed_fixed_1, load_nth<ub1>(data, r))                                                            \
    K(tavo_transpose_fixed_fixed_2, load_nth<ub2>(data, r))                                                            \
    K(tavo_transpose_fixed_fixed_4, load_nth<ub4>(data, r))                                                            \
    K(tavo_transpose_fixed_fixed_8, load_nth<ub8>(data, r))
#define TAVO_FIXED_TRANSPOSE(name, value)                                                                              \
    extern "C" ub4 name(const tavo_gather_spec *shape, tavo_vec *src, ub2 col, sb4 part) noexcept {                    \
        TAVO_ASSERT(part >= 0);                                                                                        \
        [[maybe_unused]] const void *side_table = TAVO_VEC_ENC_CTX(src)->side_table;                                   \
        const ub1 *data = data_of(src);                                                                                \
        write_values(shape, src, col, part, [=](ub8 r) { return value; });                                             \
        return TAVO_DONE;                                                                                              \
    }
TAVO_FIXED_TRANSPOSES(TAVO_FIXED_TRANSPOSE)

extern "C" ub4 tavo_transpose_fixed_fixed(const tavo_gather_spec *shape, tavo_vec *src, ub2 col, sb4 part) noexcept {
    TAVO_ASSERT(part >= 0);
    const fixed_elements value(src, data_of(src));
    ub1 *to = shape->byte_cursor[part] + shape->col_offsets[col];
    const ub4 rows = TAVO_VEC_SIZE(src);
    for (ub8 r = 0; r < rows; r++, to += shape->row_bytes)
        copy_bytes(to, value(r).bytes, value.bytes);
    return TAVO_DONE;
}

extern "C" ub4 tavo_transpose_fixed_dydi(tavo_gather_spec *shape, tavo_vec *src, ub2 col, sb4 part) noexcept {
    if (!(shape->flags & TAVO_TABLE_FIXED))
        return TAVO_UNSUPPORTED;
    constexpr ub4 unpacked = TAVO_SIDE_TABLE | TAVO_DICT;
    const ub4 flags = TAVO_VEC_ENC_CTX(src)->flags, width = shape->col_bytes[col];
    const bool by_code = (flags & unpacked) == unpacked && (width == 4 || width == 8);
    if (!by_code && !(flags & TAVO_FIXED))
        return TAVO_UNSUPPORTED;
    if (TAVO_VEC_SIZE(src) == 0)
        return TAVO_DONE;
    if (by_code)
        return (width == 4 ? tavo_transpose_fixed_gd : tavo_transpose_fixed_unpacked_dict)(shape, src, col, part);
    switch (width) {
    case 1: return tavo_transpose_fixed_fixed_1(shape, src, col, part);
    case 2: return tavo_transpose_fixed_fixed_2(shape, src, col, part);
    case 4: return tavo_transpose_fixed_fixed_4(shape, src, col, part);
    case 8: return tavo_transpose_fixed_fixed_8(shape, src, col, part);
    default: return tavo_transpose_fixed_fixed(shape, src, col, part);
    }
}
