#include "frame/element_layout.h"
#include "rows/row_tables.h"

extern "C" __m256i tavo_mm256_mmask_gather_strided_epi32(const void *base, sb8 offset, sb8 stride, ub4 mask,
                                                         __m256i otherwise) noexcept {
    if ((mask & 0xff) == 0)
        return otherwise;
    ub4 lanes[8];
    for (sb8 k = 0; k < 8; k++)
        memcpy(&lanes[k], static_cast<const ub1 *>(base) + offset + k * stride, sizeof lanes[k]);
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(lanes));
}
