// Points in a polygon on the unit sphere.
#include <bit>
#include <cstring>

#include "frame/tavo_spatial.h"
#include "frame/tavo_status.h"
#include "portable/mask_number.h"
#include "spatial/sphere.h"

namespace tavo::spatial {

namespace {

// What is the same for all points of a call.
struct polygon {
    point_array ring;
    bounding_circle circle;
    double t, tt; // the tolerance and its square

    polygon(const tavo_vec axes[3], double tolerance) : ring(axes), t(tolerance), tt(tolerance * tolerance) {}
};

// The walk along the ring for one point P: where do edges cross the arc from P to q? Nearly all vertices need no more
// than the sign of their product with h, the normal of the arc's plane: an edge between two on one side, neither of
// them near the plane, has nothing to do with the arc.
class arc_walk {
public:
    arc_walk(const polygon &of, const point &from, const point &h, double wide)
        : of_(of), p_(from), h_(h), h8_(in_all_lanes(h)), wide_(_mm512_set1_pd(wide)) {}

    ub1 result() {
        const point_array &ring = of_.ring;
        const double last = dot(h_, ring[ring.size - 1]);
        // Other than by the sign bits that the walk takes, a -0.0 is not negative here.
        ub4 negative_before = last < 0;
        near_ = std::fabs(last) < of_.t;
        ub8 i = 0;
        while (i + 32 <= ring.size) {
            // Block after block as long as nothing happens, with h and the bound in registers.
            const points8 h = h8_;
            const __m512d bound = wide_;
            const ub8 from = i;
            ub4 negative, wide, crossing;
            do {
                negative = wide = 0;
#pragma GCC unroll 4
                for (unsigned k = 0; k < 32; k += 8) {
                    const __m512d e = dot(h, ring.at(i + k));
                    negative |= sign_bits(e) << k;
                    wide |= not_beyond(e, bound) << k;
                }
                crossing = negative ^ (negative << 1 | negative_before);
                negative_before = negative >> 31;
                i += 32;
            } while ((crossing | wide) == 0 && i + 32 <= ring.size);
            if (i > from + 32)
                near_ = 0;
            for (unsigned k = 0; k < 32; k += 8) {
                if (((crossing | wide) >> k & 0xff) == 0)
                    near_ = 0;
                else if (group(i - 32 + k, 0xff, crossing >> k & 0xff, wide >> k & 0xff))
                    return found_;
            }
        }
        for (; i < ring.size; i += 8) {
            const __mmask8 lanes = ring.lanes(i);
            const __m512d e = dot(h8_, ring.at(i, lanes));
            const ub4 negative = sign_bits(e), crossing = negative ^ (negative << 1 | negative_before);
            negative_before = negative >> 7;
            if (group(i, lanes, crossing & lanes, not_beyond(e, wide_) & lanes))
                return found_;
        }
        return static_cast<ub1>(count_ & TAVO_PIP_COUNT);
    }

private:
    [[gnu::always_inline]] static ub4 sign_bits(__m512d e) {
        return static_cast<ub4>(hits_of_mask(_mm512_movepi64_mask(_mm512_castpd_si512(e))));
    }
    // Lanes in which a vertex may lie within the tolerance of the plane or of P. A NaN may.
    [[gnu::always_inline]] static ub4 not_beyond(__m512d e, __m512d bound) {
        return static_cast<ub4>(hits_of_mask(_mm512_cmp_pd_mask(_mm512_abs_pd(e), bound, _CMP_NGT_UQ)));
    }

    // The group of vertices from `first` on, and the edges that lead to them. True if the walk ends here.
    bool group(ub8 first, __mmask8 lanes, ub4 crossing, ub4 wide) {
        ub4 lying = 0;
        if (wide != 0) {
            const points8 v = of_.ring.at(first, lanes);
            if (_mm512_mask_cmp_pd_mask(lanes, distance2(v, in_all_lanes(p_)), _mm512_set1_pd(of_.tt), _CMP_LT_OQ) != 0)
                return ends_with(TAVO_PIP_ON_VERTEX);
            const auto near = static_cast<ub4>(hits_of_mask(
                _mm512_mask_cmp_pd_mask(lanes, _mm512_abs_pd(dot(h8_, v)), _mm512_set1_pd(of_.t), _CMP_LT_OQ)));
            lying = near & (near << 1 | near_);
            near_ = near >> 7;
        } else {
            near_ = 0;
        }
        for (ub4 edges = crossing | lying; edges != 0; edges &= edges - 1) {
            const int k = std::countr_zero(edges);
            const ub8 to = first + static_cast<ub8>(k), from = to == 0 ? of_.ring.size - 1 : to - 1;
            if (edge(of_.ring[from], of_.ring[to], lying >> k & 1, crossing >> k & 1))
                return true;
        }
        return false;
    }

    bool edge(const point &a, const point &b, bool lying, bool crossing) {
        const point &q = of_.circle.q;
        if (lying) {
            // In the arc's plane. It passes P if one end is nearer to q than P is, and the other is not.
            if (!w_known_) {
                w_ = distance2(p_, q);
                w_known_ = true;
            }
            const bool a_beyond = distance2(a, q) - w_ > 0, b_beyond = distance2(b, q) - w_ > 0;
            if (a_beyond != b_beyond)
                return ends_with(TAVO_PIP_ON_EDGE);
            count_ += !a_beyond && crossing;
            return false;
        }
        const point m = cross(a, b);
        const double s1 = dot(p_, m);
        if (of_.tt * dot(m, m) > s1 * s1)
            return ends_with(TAVO_PIP_ON_EDGE);
        const double s2 = dot(q, m);
        count_ += (s1 > 0) != (s2 > 0);
        return false;
    }

    bool ends_with(ub4 what) {
        found_ = static_cast<ub1>(what | count_);
        return true;
    }

    const polygon &of_;
    const point p_, h_;
    const points8 h8_;
    const __m512d wide_;
    ub4 near_ = 0, count_ = 0; // near_: is the vertex before the next group near the plane?
    double w_ = 0;
    bool w_known_ = false;
    ub1 found_ = 0;
};

// Eight points: the lanes outside of the circle are done with one comparison.
void test_points(const polygon &of, const point_array &points, ub8 first, ub1 results[8]) {
    const __mmask8 lanes = points.lanes(first);
    const points8 p = points.at(first, lanes);
    const __m512d limit = _mm512_set1_pd(of.circle.rr + of.t);
    const auto outside = static_cast<ub4>(
        hits_of_mask(_mm512_mask_cmp_pd_mask(lanes, distance2(p, in_all_lanes(of.circle.p)), limit, _CMP_GT_OQ)));
    std::memset(results, TAVO_PIP_OUTSIDE, 8);
    ub4 tested = lanes & ~outside;
    if (tested == 0)
        return;

    const point &q = of.circle.q;
    const points8 n = cross(p, in_all_lanes(q));
    const __m512d r = _mm512_rsqrt14_pd(dot(n, n));
    // A vertex within the tolerance of P is this near the plane, which goes through P: twice the tolerance, and what
    // rounding does to n, relative to its length, and to the products. The sizes are those of points that may be found
    // near a vertex. An infinite or NaN bound holds nothing back.
    const __m512d rounding =
        _mm512_fmadd_pd(_mm512_mul_pd(dot(p, p), r), _mm512_set1_pd(std::fabs(q.x) + std::fabs(q.y) + std::fabs(q.z)),
                        _mm512_set1_pd(2 * of.circle.largest));
    alignas(64) double hx[8], hy[8], hz[8], wide[8];
    _mm512_storeu_pd(hx, _mm512_mul_pd(n.x, r));
    _mm512_storeu_pd(hy, _mm512_mul_pd(n.y, r));
    _mm512_storeu_pd(hz, _mm512_mul_pd(n.z, r));
    _mm512_storeu_pd(wide, _mm512_fmadd_pd(rounding, _mm512_set1_pd(0x1p-44), _mm512_set1_pd(2 * std::fabs(of.t))));
    for (; tested != 0; tested &= tested - 1) {
        const int k = std::countr_zero(tested);
        const point from = points[first + static_cast<ub8>(k)];
        results[k] = arc_walk(of, from, {hx[k], hy[k], hz[k]}, wide[k]).result();
    }
}

} // namespace

} // namespace tavo::spatial

extern "C" {
ub4 tavo_spheric_pip_dydi(tavo_vec *res, tavo_vec *polygon, tavo_vec *points, const void *, const void *,
                          double tolerance) noexcept {
    using namespace tavo::spatial;
    struct polygon of(polygon, tolerance);
    const point_array tested(points);
    auto *const results = static_cast<ub1 *>(res->data);
    // Without vertices there is no centre. Only a tolerance of 0 lets that pass, and then nothing is crossed.
    if (of.ring.size == 0 && of.tt == 0) {
        for (ub8 i = 0; i < tested.size; i++)
            results[i] = 0;
        return TAVO_DONE;
    }
    if (!of.circle.find(of.ring, of.tt))
        return TAVO_BAD_INPUT;
    for (ub8 i = 0; i < tested.size; i += 8) {
        ub1 eight[8];
        test_points(of, tested, i, eight);
        std::memcpy(results + i, eight, tested.size - i < 8 ? tested.size - i : 8);
    }
    return TAVO_DONE;
}
}
