#include "vector/operands.h"

#include <cstring>

#include "frame/comparable.h"
#include "vector/lvector.h"
#include "vector/pick_metric.h"
#include "vector/sparse_merge.h"

namespace tavo::vector {

operand_shape shape_of_operands(const tavo_vec *col, const tavo_vec *query) noexcept {
    const ub4 q = TAVO_VEC_SIZE(query), c = TAVO_VEC_SIZE(col);
    operand_shape shape{TAVO_DONE, q == c, is_flexible(col)};
    if (q != 1 && (!shape.paired || !has_flag(query, TAVO_VEC_BY_POINTER)))
        shape.status = TAVO_UNSUPPORTED;
    else if (c != 1 && !has_flag(col, TAVO_VEC_BY_POINTER))
        shape.status = TAVO_UNSUPPORTED;
    else if (is_flexible(query) != shape.flexible)
        shape.status = TAVO_BAD_INPUT;
    return shape;
}

tavo_distance_kernel *uniform_kernel(const tavo_vec *col, const tavo_vec *query, ub4 metric, ub8 layout,
                                     const void *scratch) noexcept {
    const bool decoded_first = TAVO_VEC_SIZE(col) > 1 && scratch != nullptr && TAVO_VEC_SIZE(query) == 1;
    return tavo_vector_pick_metric_dydi(metric, query->enc->value_type, !has_flag(query, TAVO_NATIVE) && !decoded_first,
                                        left_layout(layout), col->enc->value_type, !has_flag(col, TAVO_NATIVE),
                                        right_layout(layout));
}

namespace {

template <class Number>
void decode(const ub1 *from, ub1 *to, ub8 elements) {
    ub8 bytes = elements * sizeof(typename Number::bits);
    for (; bytes >= 64; bytes -= 64, from += 64, to += 64)
        _mm512_storeu_si512(to, decode_comparable<Number>(_mm512_loadu_si512(from)));
    const __mmask64 m = _bzhi_u64(~0ull, static_cast<unsigned>(bytes));
    _mm512_mask_storeu_epi8(to, m, decode_comparable<Number>(_mm512_maskz_loadu_epi8(m, from)));
}

bool is_among(ub4 types, ub4 type) { return type <= TAVO_ELEM_BFLOAT16 && (types >> type & 1) != 0; }

// A comparable vector in native form: the list of a sparse one as it is, the elements from the next multiple of 8 on.
void decode_vector(ub4 type, const ub1 *from, bool sparse, ub4 dims, ub1 *to) {
    ub8 elements = dims;
    if (sparse) {
        elements = sparse_list_of(from).count;
        const ub8 list = 2 + 4 * elements;
        std::memcpy(to, from, list);
        from += list;
        to += list;
    }
    to += -reinterpret_cast<uintptr_t>(to) & 7;
    switch (type) {
    case TAVO_ELEM_FLOAT: decode<f32>(from, to, elements); break;
    case TAVO_ELEM_DOUBLE: decode<f64>(from, to, elements); break;
    case TAVO_ELEM_FLOAT16: decode<f16>(from, to, elements); break;
    default: decode<bf16>(from, to, elements);
    }
}

} // namespace

bool decodes_uniform_query(const tavo_vec *col, const tavo_vec *query, ub4 types, const void *scratch) noexcept {
    return TAVO_VEC_SIZE(col) > 1 && scratch != nullptr && !has_flag(query, TAVO_NATIVE) &&
           is_among(types, query->enc->value_type);
}

const ub1 *uniform_query(const tavo_vec *col, const tavo_vec *query, bool sparse, ub4 types, void *scratch) noexcept {
    const ub1 *const data = row_of(query, 0);
    if (!decodes_uniform_query(col, query, types, scratch))
        return data;
    decode_vector(query->enc->value_type, data, sparse, col->enc->vec_dims, static_cast<ub1 *>(scratch));
    return static_cast<const ub1 *>(scratch);
}

bool read_image(const ub1 *image, vector_image &out) noexcept {
    lvector_header header;
    if (lvector_to_header_basic(image, &header) != 0)
        return false;
    out = {image + header.data_offset, tavo_dbv_lvtype2tavo(header.type), header.dims,
           (header.flags & LVECTOR_FLAG_NATIVE) == 0, (header.flags & LVECTOR_FLAG_SPARSE) != 0};
    return true;
}

// The copy in scratch is an image itself, its head marked as native; its data stands where the original's does. A
// sparse kernel finds the values behind the list; those of a dense vector are where it looks if scratch is aligned for
// that.
bool flexible_query(const tavo_vec *col, const tavo_vec *query, ub4 types, void *scratch, vector_image &out) noexcept {
    const ub1 *const image = row_of(query, 0);
    if (!read_image(image, out))
        return false;
    if (TAVO_VEC_SIZE(col) < 2 || scratch == nullptr || !out.comparable || !is_among(types, out.type))
        return true;
    auto *const copy = static_cast<ub1 *>(scratch);
    const auto head = static_cast<ub8>(out.data - image);
    std::memcpy(copy, image, head);
    decode_vector(out.type, out.data, out.sparse, out.dims, copy + head);
    copy[LVECTOR_AT_FLAGS] |= 0xc8;
    out.comparable = false;
    out.data = copy + head;
    return true;
}

bool image_distance(const vector_image &left, const ub1 *right_image, ub4 metric, double *result) noexcept {
    vector_image right;
    if (!read_image(right_image, right) || right.dims != left.dims)
        return false;
    tavo_distance_kernel *const kernel = tavo_vector_pick_metric_dydi(metric, left.type, left.comparable, left.sparse,
                                                                      right.type, right.comparable, right.sparse);
    return kernel != nullptr && kernel(left.dims, left.data, right.data, metric, result) == TAVO_DONE;
}

void finish_doubles(tavo_vec *out) noexcept {
    if (has_flag(out, TAVO_NATIVE))
        return;
    auto *at = static_cast<double *>(out->data);
    ub4 n = TAVO_VEC_SIZE(out);
    for (; n >= 8; n -= 8, at += 8)
        _mm512_storeu_si512(at, encode_comparable<f64>(_mm512_loadu_si512(at)));
    const auto m = static_cast<__mmask8>(_bzhi_u32(0xff, n));
    _mm512_mask_storeu_epi64(at, m, encode_comparable<f64>(_mm512_maskz_loadu_epi64(m, at)));
}

} // namespace tavo::vector
