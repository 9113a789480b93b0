#include "bench/spatial/s2_baseline.h"

#include <s2/s2loop.h>
#include <s2/s2polygon.h>
#include <s2/s2shapeutil_contains_brute_force.h>

namespace tavo::bench {

struct s2_polygon::content {
    S2Polygon polygon;
};

namespace {

S2Point point(const sphere_ring &of, std::size_t i) { return S2Point(of.x[i], of.y[i], of.z[i]).Normalize(); }

} // namespace

s2_polygon::s2_polygon(const sphere_ring &ring) : is_(new content) {
    std::vector<S2Point> vertices;
    for (std::size_t i = 0; i < ring.x.size(); i++)
        vertices.push_back(point(ring, i));
    auto loop = std::make_unique<S2Loop>(vertices, S2Debug::DISABLE);
    loop->Normalize();
    is_->polygon.set_s2debug_override(S2Debug::DISABLE);
    is_->polygon.Init(std::move(loop));
}
s2_polygon::~s2_polygon() = default;

std::size_t s2_polygon::contained(const sphere_ring &points) const {
    std::size_t count = 0;
    for (std::size_t i = 0; i < points.x.size(); i++)
        count += is_->polygon.Contains(point(points, i));
    return count;
}
std::size_t s2_polygon::contained_without_index(const sphere_ring &points) const {
    const S2Polygon::Shape shape(&is_->polygon);
    std::size_t count = 0;
    for (std::size_t i = 0; i < points.x.size(); i++)
        count += s2shapeutil::ContainsBruteForce(shape, point(points, i));
    return count;
}

} // namespace tavo::bench
