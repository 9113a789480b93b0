// Rings and points to measure with, and the plain loops.
#pragma once

#include <cstddef>
#include <vector>

namespace tavo::bench {

// A star: radius and angle vary from vertex to vertex, so that near the angle of 0 some edges straddle a point's line
// and elsewhere few do. A comb: every edge leads from below every point to above it, or back.
enum class shape { star, comb };

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
