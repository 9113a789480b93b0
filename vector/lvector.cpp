#include "vector/lvector.h"

extern "C" {

sb4 lvector_to_header_basic(const lvector *image, lvector_header *header) noexcept {
    if (image[0] != LVECTOR_MAGIC)
        return LVECTOR_BAD_MAGIC;
    if (image[LVECTOR_AT_VERSION] > LVECTOR_LAST_VERSION)
        return LVECTOR_BAD_VERSION;
    const ub4 flags = image[LVECTOR_AT_FLAGS], type = image[LVECTOR_AT_TYPE];
    if ((flags & (LVECTOR_FLAG_MARK | LVECTOR_FLAG_MARK2)) == 0)
        return LVECTOR_NO_FORMAT_MARK;
    ub4 dims;
    __builtin_memcpy(&dims, image + LVECTOR_AT_DIMS, 4);
    const bool wide =
        type == LVECTOR_FLOAT16 || type == LVECTOR_BFLOAT16 || type == LVECTOR_FLOAT || type == LVECTOR_DOUBLE;
    const bool aligned = wide && (flags & (LVECTOR_FLAG_NATIVE | LVECTOR_FLAG_SPARSE)) == LVECTOR_FLAG_NATIVE;
    header->type = static_cast<ub1>(type);
    header->data_offset = aligned ? LVECTOR_ALIGNED_DATA : LVECTOR_HEAD_SIZE;
    header->aux_offset = LVECTOR_AT_AUX;
    header->flags = static_cast<ub1>(flags & LVECTOR_FLAGS_KEPT);
    header->dims = __builtin_bswap32(dims);
    return 0;
}

ub4 tavo_dbv_lvtype2tavo(ub4 stored_type) noexcept {
    switch (stored_type) {
    case LVECTOR_FLOAT16: return TAVO_ELEM_FLOAT16;
    case LVECTOR_FLOAT: return TAVO_ELEM_FLOAT;
    case LVECTOR_DOUBLE: return TAVO_ELEM_DOUBLE;
    case LVECTOR_INT8: return TAVO_ELEM_INT8;
    case LVECTOR_BITMSB0: return TAVO_ELEM_BITMSB0;
    case LVECTOR_BFLOAT16: return TAVO_ELEM_BFLOAT16;
    default: return 0;
    }
}

} // extern "C"
