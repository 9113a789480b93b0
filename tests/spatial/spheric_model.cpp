#include "tests/spatial/spheric_model.h"

#include <cmath>

namespace tavo::test {

double dot(const xyz &a, const xyz &b) { return std::fma(a.z, b.z, std::fma(a.y, b.y, a.x * b.x)); }

namespace {

double squared_distance(const xyz &a, const xyz &b) {
    const xyz d{a.x - b.x, a.y - b.y, a.z - b.z};
    return dot(d, d);
}
xyz cross(const xyz &a, const xyz &b) {
    return {std::fma(a.y, b.z, -(a.z * b.y)), std::fma(a.z, b.x, -(a.x * b.z)), std::fma(a.x, b.y, -(a.y * b.x))};
}

} // namespace

xyz unit(const xyz &v) {
    const double length = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    return {v.x / length, v.y / length, v.z / length};
}
xyz from_degrees(double longitude, double latitude) {
    const double degree = std::acos(-1.0) / 180, lambda = longitude * degree, phi = latitude * degree;
    return {std::cos(phi) * std::cos(lambda), std::cos(phi) * std::sin(lambda), std::sin(phi)};
}
xyz along(const xyz &a, const xyz &b, double s) {
    return {a.x + s * (b.x - a.x), a.y + s * (b.y - a.y), a.z + s * (b.z - a.z)};
}
xyz turned(const xyz &axis, double angle, const xyz &v) {
    const xyz w = cross(axis, v);
    const double c = std::cos(angle), s = std::sin(angle), k = dot(axis, v) * (1 - c);
    return {v.x * c + w.x * s + axis.x * k, v.y * c + w.y * s + axis.y * k, v.z * c + w.z * s + axis.z * k};
}

std::optional<spheric_preparation> prepare(const spheric_ring &ring, double t) {
    xyz low{2, 2, 2}, high{-2, -2, -2};
    for (const xyz &v : ring)
        for (double xyz::*axis : {&xyz::x, &xyz::y, &xyz::z}) {
            if (v.*axis < low.*axis)
                low.*axis = v.*axis;
            if (v.*axis > high.*axis)
                high.*axis = v.*axis;
        }
    const xyz c{(low.x + high.x) * 0.5, (low.y + high.y) * 0.5, (low.z + high.z) * 0.5};
    const double cc = dot(c, c);
    spheric_preparation made;
    xyz f{};
    if (cc >= t * t && !ring.empty()) {
        double most = -1;
        f = ring[0];
        for (const xyz &v : ring)
            if (const double d = squared_distance(v, c); d > most) {
                most = d;
                f = v;
            }
        if (const double d = dot(c, f); d >= t * t) {
            made.p = {d / cc * c.x, d / cc * c.y, d / cc * c.z};
            made.rr = squared_distance(made.p, f);
        }
    }
    if (!(made.rr < 1.0))
        return std::nullopt;
    made.q = {std::fma(2, f.x, -made.p.x), std::fma(2, f.y, -made.p.y), std::fma(2, f.z, -made.p.z)};
    return made;
}

ub1 spheric_byte(const spheric_ring &ring, const spheric_preparation &with, double t, const xyz &point,
                 spheric_visits &visits) {
    const xyz &q = with.q;
    if (squared_distance(point, with.p) > with.rr + t) {
        visits.outside++;
        return 0x40;
    }
    const xyz n = cross(point, q);
    const double scale = rsqrt14(dot(n, n));
    const xyz h{n.x * scale, n.y * scale, n.z * scale};
    double e = dot(h, ring.back());
    bool negative_before = e < 0, near_before = std::fabs(e) < t;
    ub4 count = 0;
    for (std::size_t first = 0; first < ring.size(); first += 8) {
        const std::size_t end = std::min(first + 8, ring.size());
        for (std::size_t i = first; i < end; i++)
            if (squared_distance(ring[i], point) < t * t) {
                visits.vertex_hits++;
                visits.vertex_hits_after_crossings += count != 0;
                return static_cast<ub1>(0xc0 | count);
            }
        for (std::size_t i = first; i < end; i++) {
            const xyz &a = ring[(i + ring.size() - 1) % ring.size()], &b = ring[i];
            e = dot(h, b);
            const bool negative = std::signbit(e), near = std::fabs(e) < t;
            const bool lying = near && near_before, crossing = negative != negative_before;
            negative_before = negative;
            near_before = near;
            if (lying) {
                visits.last_edge_lying += i == 0;
                const double w = squared_distance(point, q);
                const double ua = squared_distance(a, q) - w, ub = squared_distance(b, q) - w;
                if ((ua > 0) != (ub > 0)) {
                    visits.lying_hits++;
                    return static_cast<ub1>(0x80 | count);
                }
                if (!(ua > 0) && !(ub > 0) && crossing) {
                    visits.lying_counted++;
                    count++;
                } else {
                    visits.lying_dropped++;
                }
            } else if (crossing) {
                const xyz m = cross(a, b);
                const double s1 = dot(point, m);
                if (t * t * dot(m, m) > s1 * s1) {
                    visits.edge_hits++;
                    return static_cast<ub1>(0x80 | count);
                }
                const double s2 = dot(q, m);
                visits.crossed += (s1 > 0) != (s2 > 0);
                count += (s1 > 0) != (s2 > 0);
            }
        }
    }
    visits.odd += count % 2;
    return static_cast<ub1>(count & 0x7f);
}

} // namespace tavo::test
