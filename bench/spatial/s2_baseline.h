// S2 behind a door of its own: its headers want another standard than ours.
#pragma once

#include <cstddef>
#include <memory>

#include "bench/spatial/points.h"

namespace tavo::bench {

class s2_polygon {
public:
    explicit s2_polygon(const sphere_ring &);
    ~s2_polygon();
    // How many of the points it contains: by its index, or by a walk along all edges.
    std::size_t contained(const sphere_ring &points) const;
    std::size_t contained_without_index(const sphere_ring &points) const;

private:
    struct content;
    std::unique_ptr<content> is_;
};

} // namespace tavo::bench
