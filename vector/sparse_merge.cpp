#include "vector/sparse_merge.h"

#include "portable/intrinsics.h"

namespace tavo::vector {
namespace {

[[gnu::always_inline]] inline ub4 dimension(const ub1 *dims, ub4 i) {
    ub4 v;
    __builtin_memcpy(&v, dims + 4ul * i, 4);
    return __builtin_bswap32(v);
}

struct alignas(64) lane_numbers {
    ub4 lane[16];
};
// Lane k compares left element k / 4 with right element k % 4.
constexpr lane_numbers left_element = {{0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3}};
constexpr lane_numbers match_of_lane = [] {
    lane_numbers t{};
    for (ub4 k = 0; k < 16; k++)
        t.lane[k] = k / 4 << left_shift | k % 4 << right_shift;
    return t;
}();

} // namespace

ub4 next_matches(sparse_merge &m, match *out) noexcept {
    const ub1 *const left = m.left.dims, *const right = m.right.dims;
    ub4 i = m.at_left, j = m.at_right, found = 0;

    // Four against four in one comparison, which needs no byte order. Whether there are matches is not predictable, so
    // nothing branches on it: room for all 16 lanes is written, and the next matches go over what was too much. Where a
    // group ends below the other's end, it is done with.
    const ub4 left_groups = m.left.count & ~3u, right_groups = m.right.count & ~3u;
    const __m512i spread = _mm512_load_si512(left_element.lane);
    const __m512i lanes = _mm512_load_si512(match_of_lane.lane);
    while (i < left_groups && j < right_groups && found < matches_at_once) {
        const __m512i four_left =
            _mm512_castsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i *>(left + 4ul * i)));
        const __m512i four_right =
            _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i *>(right + 4ul * j)));
        const __mmask16 equal_m16 = _mm512_cmpeq_epi32_mask(_mm512_permutexvar_epi32(spread, four_left), four_right);
        const __m512i matches =
            _mm512_add_epi32(lanes, _mm512_set1_epi32(static_cast<int>(i << left_shift | j << right_shift)));
        _mm512_storeu_si512(out + found, _mm512_maskz_compress_epi32(equal_m16, matches));
        found += static_cast<ub4>(_mm_popcnt_u32(equal_m16));
        const ub4 last_left = dimension(left, i + 3), last_right = dimension(right, j + 3);
        i += last_left > last_right ? 0 : 4;
        j += last_left < last_right ? 0 : 4;
    }
    // What is left of one list's groups, element by element.
    if (i >= left_groups || j >= right_groups)
        while (i < m.left.count && j < m.right.count && found < matches_at_once) {
            const ub4 a = dimension(left, i), b = dimension(right, j);
            out[found] = i << left_shift | j << right_shift;
            found += a == b;
            i += a <= b;
            j += b <= a;
        }
    m.at_left = i;
    m.at_right = j;
    return found;
}

} // namespace tavo::vector
