// The circle about a polygon on the sphere.
#include "portable/mask_number.h"
#include "spatial/sphere.h"

namespace tavo::spatial {

namespace {

struct range {
    double low, high;
};

// Of the lanes of two vectors of lows and highs.
range of_lanes(__m512d low, __m512d high) {
    alignas(64) double lows[8], highs[8];
    _mm512_storeu_pd(lows, low);
    _mm512_storeu_pd(highs, high);
    range found{lows[0], highs[0]};
    for (int k = 1; k < 8; k++) {
        found.low = lows[k] < found.low ? lows[k] : found.low;
        found.high = highs[k] > found.high ? highs[k] : found.high;
    }
    return found;
}

struct box {
    range x, y, z;
};

// The smallest and the largest of each axis, from 2 and -2 on. A NaN replaces nothing, and neither does a zero one of
// the other sign: of two operands of which one is NaN, and of two zeros, the instructions give the second.
box box_of(const point_array &v) {
    points8 low = in_all_lanes({2, 2, 2}), high = in_all_lanes({-2, -2, -2});
    const auto add = [&](const points8 &of_low, const points8 &of_high) {
        low = {_mm512_min_pd(of_low.x, low.x), _mm512_min_pd(of_low.y, low.y), _mm512_min_pd(of_low.z, low.z)};
        high = {_mm512_max_pd(of_high.x, high.x), _mm512_max_pd(of_high.y, high.y), _mm512_max_pd(of_high.z, high.z)};
    };
    ub8 i = 0;
    for (; i + 8 <= v.size; i += 8)
        add(v.at(i), v.at(i));
    if (i < v.size) {
        const __mmask8 lanes = v.lanes(i);
        const auto or_else = [&](const points8 &otherwise) -> points8 {
            return {_mm512_mask_loadu_pd(otherwise.x, lanes, v.x + i),
                    _mm512_mask_loadu_pd(otherwise.y, lanes, v.y + i),
                    _mm512_mask_loadu_pd(otherwise.z, lanes, v.z + i)};
        };
        add(or_else(low), or_else(high));
    }
    return {of_lanes(low.x, high.x), of_lanes(low.y, high.y), of_lanes(low.z, high.z)};
}

// The number of the vertex farthest from c, the first of several; 0 if none has a distance. Two searches run side by
// side, as each has to wait for its own comparisons.
ub8 farthest(const point_array &vertices, const point &c) {
    struct search {
        __m512d most = _mm512_set1_pd(-1);
        __m512i number = _mm512_setzero_si512();

        [[gnu::always_inline]] void look(__m512d d, __m512i numbers, __mmask8 lanes) {
            const __mmask8 farther = _mm512_mask_cmp_pd_mask(lanes, d, most, _CMP_GT_OQ);
            most = _mm512_mask_mov_pd(most, farther, d);
            number = _mm512_mask_mov_epi64(number, farther, numbers);
        }
    } even, odd;
    const points8 centre = in_all_lanes(c);
    const __m512i eight = _mm512_set1_epi64(8);
    __m512i numbers = _mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7);
    ub8 i = 0;
    for (; i + 16 <= vertices.size; i += 16) {
        even.look(distance2(vertices.at(i), centre), numbers, 0xff);
        numbers = _mm512_add_epi64(numbers, eight);
        odd.look(distance2(vertices.at(i + 8), centre), numbers, 0xff);
        numbers = _mm512_add_epi64(numbers, eight);
    }
    for (; i < vertices.size; i += 8) {
        const __mmask8 lanes = vertices.lanes(i);
        even.look(distance2(vertices.at(i, lanes), centre), numbers, lanes);
        numbers = _mm512_add_epi64(numbers, eight);
    }
    alignas(64) double distances[16];
    alignas(64) ub8 found[16];
    _mm512_storeu_pd(distances, even.most);
    _mm512_storeu_pd(distances + 8, odd.most);
    _mm512_storeu_si512(found, even.number);
    _mm512_storeu_si512(found + 8, odd.number);
    int best = 0;
    for (int k = 1; k < 16; k++)
        if (distances[k] > distances[best] || (distances[k] == distances[best] && found[k] < found[best]))
            best = k;
    return found[best];
}

double larger(double a, double b) { return a > b ? a : b; }
double larger_size(const range &r) { return larger(std::fabs(r.low), std::fabs(r.high)); }

} // namespace

bool bounding_circle::find(const point_array &vertices, double tt) {
    const auto [x, y, z] = box_of(vertices);
    largest = larger(larger_size(x), larger(larger_size(y), larger_size(z)));
    const point c{(x.low + x.high) * 0.5, (y.low + y.high) * 0.5, (z.low + z.high) * 0.5};
    const double cc = dot(c, c);
    rr = 2;
    point f{0, 0, 0};
    if (cc >= tt && vertices.size != 0) {
        f = vertices[farthest(vertices, c)];
        if (const double d = dot(c, f); d >= tt) {
            const double scale = d / cc;
            p = {scale * c.x, scale * c.y, scale * c.z};
            rr = distance2(p, f);
        }
    }
    if (!(rr < 1))
        return false;
    q = {std::fma(2, f.x, -p.x), std::fma(2, f.y, -p.y), std::fma(2, f.z, -p.z)};
    return true;
}

} // namespace tavo::spatial
