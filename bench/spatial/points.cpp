#include "bench/spatial/points.h"

#include <cmath>
#include <numbers>
#include <random>

namespace tavo::bench {

const char *name_of(shape kind) { return kind == shape::coast ? "coast" : kind == shape::star ? "star" : "comb"; }

plane_ring make_ring(shape kind, std::size_t vertices) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<> share(0, 1);
    plane_ring made;
    for (std::size_t i = 0; i < vertices; i++) {
        const double at = (static_cast<double>(i) + 0.9 * share(random)) / static_cast<double>(vertices);
        if (kind == shape::comb) {
            const bool last = i + 1 == vertices;
            made.x.push_back(last ? -1 : 2 * at - 1);
            made.y.push_back(last ? -2 : i % 2 ? 1.1 : -1.1);
        } else {
            const double angle = 2 * std::numbers::pi * at,
                         wander = 2 * std::numbers::pi / static_cast<double>(vertices);
            const double radius = kind == shape::star ? 0.9 + 0.1 * share(random)
                                                      : 0.85 + 0.1 * std::sin(5 * angle) + 0.05 * std::sin(17 * angle) +
                                                            wander * (share(random) - 0.5);
            made.x.push_back(radius * std::cos(angle));
            made.y.push_back(radius * std::sin(angle));
        }
    }
    return made;
}

plane_ring make_points() {
    std::mt19937_64 random(2);
    std::uniform_real_distribution<> side(-1, 1);
    plane_ring made;
    for (std::size_t i = 0; i < point_count; i++) {
        made.x.push_back(side(random));
        made.y.push_back(side(random));
    }
    return made;
}

sphere_ring on_sphere(const plane_ring &flat) {
    const double degree = std::numbers::pi / 180;
    sphere_ring made;
    for (std::size_t i = 0; i < flat.x.size(); i++) {
        const double longitude = 10 * degree * flat.x[i], latitude = 45 * degree + 10 * degree * flat.y[i];
        made.x.push_back(std::cos(latitude) * std::cos(longitude));
        made.y.push_back(std::cos(latitude) * std::sin(longitude));
        made.z.push_back(std::sin(latitude));
    }
    return made;
}

} // namespace tavo::bench
