// Cumulative length arrays from lengths.
#include "aggregate/running_sums.h"
#include "frame/comparable.h"
#include "frame/dispatch_table.h"
#include "frame/tavoc_avx512g.h"
#include "rows/convert_operations.h"

namespace tavo {
namespace {

[[gnu::always_inline]] inline __m512i load_lengths(const ub1 *p, __mmask16 m) noexcept {
    return _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(m, p));
}
[[gnu::always_inline]] inline __m512i load_lengths(const ub2 *p, __mmask16 m) noexcept {
    return _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(m, p));
}

template <class Length>
[[gnu::always_inline]] inline ub4 build_cla(ub4 *res, ub4 res_len, const Length *lengths, ub4 src_len) noexcept {
    TAVO_ASSERT(res_len >= (src_len + 1));
    res[0] = 0;
    running_sums sums;
    for (ub8 i = 0; i < src_len; i += 16) {
        const ub8 left = src_len - i;
        const auto rows = static_cast<__mmask16>(_bzhi_u32(0xffff, left < 16 ? static_cast<ub4>(left) : 16));
        _mm512_mask_storeu_epi32(res + i + 1, rows,
                                 reverse_bytes_in_lanes<4>(sums.next(load_lengths(lengths + i, rows))));
    }
    return src_len + 1;
}

} // namespace
} // namespace tavo

TAVO_KEPT ub4 tavo_build_cla_1_ub1(ub4 *res, ub4 res_len, const ub1 *lengths, ub4 src_len) noexcept {
    return tavo::build_cla(res, res_len, lengths, src_len);
}
TAVO_KEPT ub4 tavo_build_cla_1_ub2(ub4 *res, ub4 res_len, const ub2 *lengths, ub4 src_len) noexcept {
    return tavo::build_cla(res, res_len, lengths, src_len);
}
