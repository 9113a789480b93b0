// The circle about a polygon on the sphere.
#include "portable/mask_number.h"
#include "spatial/sphere.h"

namespace tavo::spatial {

namespace {

struct range {
    double low, high;
};

// The smallest and the largest of an axis, from 2 and -2 on. A NaN replaces nothing. Where both are zero, the sign is
// that of the first zero, as if the values were taken one by one.
range range_of(const double *values, ub8 n) {
    __m512d low = _mm512_set1_pd(2), high = _mm512_set1_pd(-2);
    for (ub8 i = 0; i < n; i += 8) {
        const auto lanes = static_cast<__mmask8>(n - i < 8 ? (1u << (n - i)) - 1 : 0xff);
        const __m512d v = _mm512_maskz_loadu_pd(lanes, values + i);
        low = _mm512_mask_mov_pd(low, _mm512_mask_cmp_pd_mask(lanes, v, low, _CMP_LT_OQ), v);
        high = _mm512_mask_mov_pd(high, _mm512_mask_cmp_pd_mask(lanes, v, high, _CMP_GT_OQ), v);
    }
    alignas(64) double lows[8], highs[8];
    _mm512_storeu_pd(lows, low);
    _mm512_storeu_pd(highs, high);
    range found{lows[0], highs[0]};
    for (int k = 1; k < 8; k++) {
        found.low = lows[k] < found.low ? lows[k] : found.low;
        found.high = highs[k] > found.high ? highs[k] : found.high;
    }
    if (found.low == 0 && found.high == 0) {
        ub8 i = 0;
        while (!(values[i] == 0))
            i++;
        found = {values[i], values[i]};
    }
    return found;
}

// The number of the vertex farthest from c, the first of several; 0 if none has a distance.
ub8 farthest(const point_array &vertices, const point &c) {
    const points8 centre = in_all_lanes(c);
    __m512d most = _mm512_set1_pd(-1);
    __m512i number = _mm512_setzero_si512(), numbers = _mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7);
    for (ub8 i = 0; i < vertices.size; i += 8) {
        const __mmask8 lanes = vertices.lanes(i);
        const __m512d d = distance2(vertices.at(i, lanes), centre);
        const __mmask8 farther = _mm512_mask_cmp_pd_mask(lanes, d, most, _CMP_GT_OQ);
        most = _mm512_mask_mov_pd(most, farther, d);
        number = _mm512_mask_mov_epi64(number, farther, numbers);
        numbers = _mm512_add_epi64(numbers, _mm512_set1_epi64(8));
    }
    alignas(64) double distances[8];
    alignas(64) ub8 found[8];
    _mm512_storeu_pd(distances, most);
    _mm512_storeu_si512(found, number);
    int best = 0;
    for (int k = 1; k < 8; k++)
        if (distances[k] > distances[best] || (distances[k] == distances[best] && found[k] < found[best]))
            best = k;
    return found[best];
}

double larger(double a, double b) { return a > b ? a : b; }
double larger_size(const range &r) { return larger(std::fabs(r.low), std::fabs(r.high)); }

} // namespace

bool bounding_circle::find(const point_array &vertices, double tt) {
    const range x = range_of(vertices.x, vertices.size), y = range_of(vertices.y, vertices.size),
                z = range_of(vertices.z, vertices.size);
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
