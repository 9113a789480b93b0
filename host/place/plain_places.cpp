// Points in places without the library.
#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <numbers>

#include "host/place/locate.h"

namespace host {

namespace {

// How often a closed ring winds around a point, from the quadrants in which its vertices are seen: a step by one
// quadrant is a quarter of a turn, one by two is half a turn to the side that `left` tells of the edge between vertex i
// - 1 (the last one for 0) and i. No edge turns by more than half a turn.
template <class Quadrant, class Left>
int quarters(ub4 n, Quadrant quadrant, Left left) {
    int turned = 0, before = quadrant(n - 1);
    for (ub4 i = 0; i < n; i++) {
        const int here = quadrant(i);
        switch ((here - before) & 3) {
        case 1: turned++; break;
        case 3: turned--; break;
        case 2: turned += left(i) ? 2 : -2; break;
        default: break;
        }
        before = here;
    }
    return turned;
}
int quadrant_of(double x, double y) { return y >= 0 ? (x >= 0 ? 0 : 1) : (x < 0 ? 2 : 3); }
bool is_odd_turn(int quarters) { return quarters / 4 % 2 != 0; }

ub4 before(ub4 i, ub4 n) { return i == 0 ? n - 1 : i - 1; }

class plane_test {
public:
    explicit plane_test(const place_ring &ring) : ring_(ring) {}
    bool inside(double x, double y) const {
        const ub4 n = ring_.size();
        return is_odd_turn(quarters(
            n, [&](ub4 i) { return quadrant_of(ring_.longitude[i] - x, ring_.latitude[i] - y); },
            [&](ub4 i) { return side(before(i, n), i, x, y) > 0; }));
    }
    // To within 1e-9 degrees.
    bool on_border(double x, double y) const {
        for (ub4 i = 0, n = ring_.size(); i < n; i++) {
            const ub4 j = before(i, n);
            const double ax = ring_.longitude[j], ay = ring_.latitude[j], dx = ring_.longitude[i] - ax,
                         dy = ring_.latitude[i] - ay, length2 = dx * dx + dy * dy;
            const double s = length2 == 0 ? 0 : std::clamp(((x - ax) * dx + (y - ay) * dy) / length2, 0.0, 1.0);
            if (std::hypot(ax + s * dx - x, ay + s * dy - y) < 1e-9)
                return true;
        }
        return false;
    }

private:
    long double side(ub4 a, ub4 b, double x, double y) const {
        const long double ax = ring_.longitude[a] - static_cast<long double>(x),
                          ay = ring_.latitude[a] - static_cast<long double>(y),
                          bx = ring_.longitude[b] - static_cast<long double>(x),
                          by = ring_.latitude[b] - static_cast<long double>(y);
        return ax * by - ay * bx;
    }
    const place_ring &ring_;
};

double dot(const unit_vector &a, const unit_vector &b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
unit_vector cross(const unit_vector &a, const unit_vector &b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
unit_vector unit(const unit_vector &v) {
    const double length = std::sqrt(dot(v, v));
    return {v.x / length, v.y / length, v.z / length};
}

// The directions in which vertices are seen from a point are those in its tangent plane. A point beyond the cap that
// holds the ring is outside: seen from there the ring might wind around the opposite point.
class sphere_test {
public:
    explicit sphere_test(const place_ring &ring) {
        unit_vector low{1, 1, 1}, high{-1, -1, -1};
        for (ub4 i = 0; i < ring.size(); i++) {
            vertices_.push_back(on_unit_sphere(ring.longitude[i], ring.latitude[i]));
            const unit_vector &v = vertices_.back();
            low = {std::min(low.x, v.x), std::min(low.y, v.y), std::min(low.z, v.z)};
            high = {std::max(high.x, v.x), std::max(high.y, v.y), std::max(high.z, v.z)};
        }
        middle_ = unit({low.x + high.x, low.y + high.y, low.z + high.z});
        for (const unit_vector &v : vertices_)
            cap_ = std::min(cap_, dot(v, middle_));
    }
    bool inside(double longitude, double latitude) const {
        const unit_vector p = on_unit_sphere(longitude, latitude);
        if (dot(p, middle_) < cap_ - 1e-6)
            return false;
        const unit_vector east = std::fabs(p.z) < 0.9 ? unit(cross({0, 0, 1}, p)) : unit(cross({1, 0, 0}, p)),
                          north = cross(p, east);
        const auto n = static_cast<ub4>(vertices_.size());
        return is_odd_turn(quarters(
            n, [&](ub4 i) { return quadrant_of(dot(vertices_[i], east), dot(vertices_[i], north)); },
            [&](ub4 i) { return dot(p, cross(vertices_[before(i, n)], vertices_[i])) > 0; }));
    }
    // To within twice the tolerance.
    bool on_border(double longitude, double latitude) const {
        const unit_vector p = on_unit_sphere(longitude, latitude);
        const double near = 2 * border_tolerance;
        for (std::size_t i = 0; i < vertices_.size(); i++) {
            const unit_vector &a = vertices_[i == 0 ? vertices_.size() - 1 : i - 1], &b = vertices_[i];
            const unit_vector off{p.x - b.x, p.y - b.y, p.z - b.z}, m = cross(a, b);
            const double length = std::sqrt(dot(m, m));
            if (dot(off, off) < near * near || (length > 0 && std::fabs(dot(p, m)) < near * length &&
                                                dot(cross(m, a), p) >= 0 && dot(cross(b, m), p) >= 0))
                return true;
        }
        return false;
    }

private:
    std::vector<unit_vector> vertices_;
    unit_vector middle_{};
    double cap_ = 1;
};

template <class Test>
place_check check(const point_span &points, const std::vector<place> &places, const located &found) {
    place_check result;
    for (std::size_t i = 0; i < places.size(); i++) {
        std::vector<Test> rings(places[i].rings.begin(), places[i].rings.end());
        auto next = found[i].begin();
        for (ub4 p = 0; p < points.size(); p++, result.tests++) {
            const double x = points.longitude[p], y = points.latitude[p];
            bool inside = false;
            for (const Test &ring : rings)
                inside ^= ring.inside(x, y);
            const bool told = next != found[i].end() && *next == p;
            next += told;
            if (inside == told)
                continue;
            if (std::none_of(rings.begin(), rings.end(), [&](const Test &ring) { return ring.on_border(x, y); })) {
                result.difference = fmt::format("point {} ({}, {}) is {} {} by the kernel, and not by plain loops",
                                                p + 1, x, y, told ? "in" : "not in", places[i].name);
                return result;
            }
            result.either++;
        }
        if (next != found[i].end()) {
            result.difference = fmt::format("the points of {} are not in order", places[i].name);
            return result;
        }
    }
    return result;
}

} // namespace

place_check check_located(const point_span &points, const std::vector<place> &places, const located &found,
                          bool sphere) {
    return sphere ? check<sphere_test>(points, places, found) : check<plane_test>(points, places, found);
}

} // namespace host
