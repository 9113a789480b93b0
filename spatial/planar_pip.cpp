// Crossings of a ray with a polygon in the plane.
#include <bit>

#include "frame/tavo_status.h"
#include "portable/intrinsics.h"
#include "portable/mask_number.h"
#include "spatial/pip.h"

namespace {

// The point in all lanes, and the polygon.
struct ray {
    const double *x, *y;
    __m512d px, py;

    // Which of eight vertices lie above the point, for the lanes of a mask.
    [[gnu::always_inline]] ub4 above(ub8 vertex) const {
        return static_cast<ub4>(tavo::hits_of_mask(_mm512_cmp_pd_mask(_mm512_loadu_pd(y + vertex), py, _CMP_GT_OQ)));
    }
    [[gnu::always_inline]] ub4 above(ub8 vertex, ub4 lanes) const {
        const auto mask = static_cast<__mmask8>(lanes);
        return static_cast<ub4>(
            tavo::hits_of_mask(_mm512_mask_cmp_pd_mask(mask, _mm512_maskz_loadu_pd(mask, y + vertex), py, _CMP_GT_OQ)));
    }

    // How many of the edges from vertex e + k to e + k + 1 pass to the right of the point, for the lanes k that
    // straddle its line, of which those in `falling` start above it. Without a division: with dx and dy along the edge,
    // the crossing lies to the right where (px - x) * dy is less than (py - y) * dx for a rising edge, greater for a
    // falling one. (An edge that straddles is falling exactly if its dy is negative, or else has a NaN, which makes
    // both products NaN and counts in neither sense.)
    [[gnu::always_inline]] ub4 crossed(ub8 e, ub4 straddling, ub4 falling) const {
        const auto mask = static_cast<__mmask8>(straddling);
        const __m512d x0 = _mm512_maskz_loadu_pd(mask, x + e), y0 = _mm512_maskz_loadu_pd(mask, y + e);
        const __m512d dx = _mm512_sub_pd(_mm512_maskz_loadu_pd(mask, x + e + 1), x0);
        const __m512d dy = _mm512_sub_pd(_mm512_maskz_loadu_pd(mask, y + e + 1), y0);
        const __m512d l = _mm512_mul_pd(_mm512_sub_pd(px, x0), dy), r = _mm512_mul_pd(_mm512_sub_pd(py, y0), dx);
        const ub8 less = tavo::hits_of_mask(_mm512_cmp_pd_mask(l, r, _CMP_LT_OQ));
        const ub8 greater = tavo::hits_of_mask(_mm512_cmp_pd_mask(l, r, _CMP_GT_OQ));
        return static_cast<ub4>(std::popcount(((falling & greater) | (~falling & less)) & straddling));
    }
};

// The chain of edges from vertex 0 to vertex `edges`. Each y is loaded once: an edge straddles where the comparisons of
// its ends differ, which is the comparisons' bits against themselves moved by one. x is loaded where edges straddle.
ub4 crossings_of_chain(const ray &r, ub8 edges) {
    ub8 e = 0;
    ub4 count = 0;
    ub4 above_before = r.above(0, 1); // bit 0: of vertex e
    for (; e + 32 <= edges; e += 32) {
        const ub4 above = r.above(e + 1) | r.above(e + 9) << 8 | r.above(e + 17) << 16 | r.above(e + 25) << 24;
        const ub4 falling = above << 1 | above_before, straddling = above ^ falling;
        above_before = above >> 31;
        if (straddling != 0)
            for (ub4 k = 0; k < 32; k += 8)
                if (const ub4 lanes = straddling >> k & 0xff; lanes != 0)
                    count += r.crossed(e + k, lanes, falling >> k);
    }
    for (; e < edges; e += 8) {
        const ub4 all = edges - e < 8 ? (1u << (edges - e)) - 1 : 0xffu;
        const ub4 above = r.above(e + 1, all);
        const ub4 falling = above << 1 | above_before, straddling = (above ^ falling) & all;
        above_before = above >> 7;
        if (straddling != 0)
            count += r.crossed(e, straddling, falling);
    }
    return count;
}

// The closed ring of the n vertices from `first` on, at most seven: by the crossing's place, with a division.
ub4 crossings_of_ring(const ray &r, ub8 first, ub4 n) {
    const ub4 all = (1u << n) - 1;
    const auto mask = static_cast<__mmask8>(all);
    const __m512d xi = _mm512_maskz_loadu_pd(mask, r.x + first), yi = _mm512_maskz_loadu_pd(mask, r.y + first);
    const ub4 above = static_cast<ub4>(tavo::hits_of_mask(_mm512_mask_cmp_pd_mask(mask, yi, r.py, _CMP_GT_OQ)));
    // Bit and lane i: the vertex before vertex i, which is the last one for the first.
    const ub4 above_before = (above << 1 | above >> (n - 1)) & all;
    const ub4 straddling = above ^ above_before;
    if (straddling == 0)
        return 0;
    const __m512i before =
        _mm512_mask_set1_epi64(_mm512_setr_epi64(0, 0, 1, 2, 3, 4, 5, 6), 1, static_cast<sb8>(n - 1));
    const __m512d xj = _mm512_permutexvar_pd(before, xi), yj = _mm512_permutexvar_pd(before, yi);
    const __m512d product = _mm512_mul_pd(_mm512_sub_pd(xj, xi), _mm512_sub_pd(r.py, yi));
    const __m512d crossing =
        _mm512_add_pd(_mm512_maskz_div_pd(static_cast<__mmask8>(straddling), product, _mm512_sub_pd(yj, yi)), xi);
    const ub8 right = tavo::hits_of_mask(_mm512_cmp_pd_mask(crossing, r.px, _CMP_GT_OQ));
    return static_cast<ub4>(std::popcount(straddling & static_cast<ub4>(right)));
}

} // namespace

extern "C" {
// The vertices are a chain of 4 * b edges and behind it a ring of the last four to seven vertices, or of all below
// eight. That the ring closes at vertex 4 * b and not at vertex 0 is what hosts rely on.
ub4 tavo_spatial_pip_dydi(tavo_vec *res, tavo_vec *xs, tavo_vec *ys, tavo_vec *px, tavo_vec *py) noexcept {
    const ub4 n = TAVO_VEC_SIZE(xs), chain = n < 4 ? 0 : 4 * (n / 4 - 1);
    const ray r{static_cast<const double *>(xs->data), static_cast<const double *>(ys->data),
                _mm512_set1_pd(*static_cast<const double *>(px->data)),
                _mm512_set1_pd(*static_cast<const double *>(py->data))};
    ub4 count = 0;
    if (chain != 0)
        count += crossings_of_chain(r, chain);
    if (n != 0)
        count += crossings_of_ring(r, chain, n - chain);
    *static_cast<ub4 *>(res->data) = count;
    return TAVO_DONE;
}
}
