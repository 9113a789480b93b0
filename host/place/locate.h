// Which points lie in which places, by the library's point-in-polygon operations.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/link/callbacks.h"
#include "host/place/geojson.h"
#include "host/query/query.h"

namespace host {

// Degrees.
struct point_span {
    std::span<const double> longitude, latitude;
    ub4 size() const { return static_cast<ub4>(longitude.size()); }
};

// For each place the numbers of its points, ascending.
using located = std::vector<std::vector<ub4>>;

// In the plane of longitude and latitude: edges are straight lines there. Only points within a ring's box are tested by
// the library. Adds steps for --explain.
located locate_in_plane(session &, const point_span &, const std::vector<place> &, std::vector<query_step> &);

// On the sphere: edges are arcs of great circles, and a polygon may hold a pole or cross the date line. Points on the
// border, to within border_tolerance, lie in the place. Throws for a ring that does not fit in a hemisphere.
located locate_on_sphere(session &, const point_span &, const std::vector<place> &, std::vector<query_step> &);
constexpr double border_tolerance = 1e-9; // of the radius: 6 mm on the Earth

// A point's place on the unit sphere.
struct unit_vector {
    double x, y, z;
};
unit_vector on_unit_sphere(double longitude, double latitude);

// The same by other means, in plain C++ without the library and without a filter, for --check: by how often each ring
// winds around each point. A point within tolerance of a border may be in or out.
struct place_check {
    std::string difference;    // the first one, or empty
    ub8 tests = 0, either = 0; // points times places; those on a border whose answer differed
};
place_check check_located(const point_span &, const std::vector<place> &, const located &, bool sphere);

} // namespace host
