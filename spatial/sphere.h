// Vectors in space, one and eight at a time. The order of operations is part of the results and the same in both forms:
// x first, then y and z by fused multiplication and addition.
#pragma once

#include <cmath>

#include "portable/intrinsics.h"
#include "spatial/pip.h"

namespace tavo::spatial {

struct point {
    double x, y, z;
};
inline double dot(const point &a, const point &b) { return std::fma(a.z, b.z, std::fma(a.y, b.y, a.x * b.x)); }
inline double distance2(const point &a, const point &b) {
    const point d{a.x - b.x, a.y - b.y, a.z - b.z};
    return dot(d, d);
}
inline point cross(const point &a, const point &b) {
    return {std::fma(a.y, b.z, -(a.z * b.y)), std::fma(a.z, b.x, -(a.x * b.z)), std::fma(a.x, b.y, -(a.y * b.x))};
}

// The same in eight lanes.
struct points8 {
    __m512d x, y, z;
};
[[gnu::always_inline]] inline points8 in_all_lanes(const point &p) {
    return {_mm512_set1_pd(p.x), _mm512_set1_pd(p.y), _mm512_set1_pd(p.z)};
}
[[gnu::always_inline]] inline __m512d dot(const points8 &a, const points8 &b) {
    return _mm512_fmadd_pd(a.z, b.z, _mm512_fmadd_pd(a.y, b.y, _mm512_mul_pd(a.x, b.x)));
}
[[gnu::always_inline]] inline __m512d distance2(const points8 &a, const points8 &b) {
    const points8 d{_mm512_sub_pd(a.x, b.x), _mm512_sub_pd(a.y, b.y), _mm512_sub_pd(a.z, b.z)};
    return dot(d, d);
}
[[gnu::always_inline]] inline points8 cross(const points8 &a, const points8 &b) {
    return {_mm512_fmsub_pd(a.y, b.z, _mm512_mul_pd(a.z, b.y)), _mm512_fmsub_pd(a.z, b.x, _mm512_mul_pd(a.x, b.z)),
            _mm512_fmsub_pd(a.x, b.y, _mm512_mul_pd(a.y, b.x))};
}

// Points as hosts hand them over: three consecutive vectors.
struct point_array {
    const double *x, *y, *z;
    ub8 size;

    explicit point_array(const tavo_vec axes[3])
        : x(static_cast<const double *>(axes[0].data)), y(static_cast<const double *>(axes[1].data)),
          z(static_cast<const double *>(axes[2].data)), size(TAVO_VEC_SIZE(axes)) {}

    point operator[](ub8 i) const { return {x[i], y[i], z[i]}; }
    [[gnu::always_inline]] points8 at(ub8 first) const {
        return {_mm512_loadu_pd(x + first), _mm512_loadu_pd(y + first), _mm512_loadu_pd(z + first)};
    }
    // The lanes of a mask, zeros elsewhere: nothing is read there.
    [[gnu::always_inline]] points8 at(ub8 first, __mmask8 lanes) const {
        return {_mm512_maskz_loadu_pd(lanes, x + first), _mm512_maskz_loadu_pd(lanes, y + first),
                _mm512_maskz_loadu_pd(lanes, z + first)};
    }
    // The lanes that there are from `first` on.
    __mmask8 lanes(ub8 first) const {
        return static_cast<__mmask8>(size - first < 8 ? (1u << (size - first)) - 1 : 0xff);
    }
};

// The circle about a polygon on the sphere, from its bounding box, and a point outside of it.
struct bounding_circle {
    point p;        // the centre of the circle, in its plane
    double rr;      // the square of its radius
    point q;        // in the same plane, twice as far from p
    double largest; // of the vertices' coordinates, in size

    // False if the polygon does not fit in a circle of less than a hemisphere, or its centre cannot be found; `tt` is
    // the square of the tolerance.
    bool find(const point_array &vertices, double tt);
};

} // namespace tavo::spatial
