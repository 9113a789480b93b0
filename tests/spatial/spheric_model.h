// The spherical test as it is told, one vertex after the other.
#pragma once

#include <optional>
#include <vector>

#include "frame/tavo_types.h"

namespace tavo::test {

struct xyz {
    double x, y, z;
};
using spheric_ring = std::vector<xyz>;

double rsqrt14(double);

double dot(const xyz &, const xyz &);
xyz unit(const xyz &);
xyz from_degrees(double longitude, double latitude);
xyz along(const xyz &a, const xyz &b, double share); // on the straight line from a to b
xyz turned(const xyz &axis, double angle, const xyz &v);

struct spheric_preparation {
    xyz p{}, q{};
    double rr = 2;
};
// Nothing if the polygon is refused.
std::optional<spheric_preparation> prepare(const spheric_ring &, double t);

// What the walk came across: a test that never gets to a rule says nothing about it.
struct spheric_visits {
    ub4 outside, vertex_hits, vertex_hits_after_crossings, lying_hits, lying_counted, lying_dropped, edge_hits, crossed,
        odd, last_edge_lying;
};
ub1 spheric_byte(const spheric_ring &, const spheric_preparation &, double t, const xyz &point, spheric_visits &);

} // namespace tavo::test
