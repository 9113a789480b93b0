// Rings and points to measure with, and the plain loops.
#pragma once

#include <cstddef>
#include <vector>

namespace tavo::bench {

// A coast: bays and capes, and edges that wander about as far as they are long; few straddle a point's line. A star:
// radius varies from vertex to vertex by a tenth, so that to the left and the right of the middle many edges straddle
// it. A comb: every edge leads from below every point to above it, or back.
enum class shape { coast, star, comb };
const char *name_of(shape);

struct plane_ring {
    std::vector<double> x, y; // not closed
};
plane_ring make_ring(shape, std::size_t vertices);

// So many points within the extent of the rings.
constexpr std::size_t point_count = 64;
plane_ring make_points();

// The same on the sphere, about a point of middle latitude, 20 degrees wide: longitude and latitude are the plane's x
// and y times 10 degrees.
struct sphere_ring {
    std::vector<double> x, y, z;
};
sphere_ring on_sphere(const plane_ring &);

} // namespace tavo::bench
