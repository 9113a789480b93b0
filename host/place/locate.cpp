#include "host/place/locate.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fmt/format.h>
#include <numbers>
#include <numeric>

#include "host/error.h"

namespace host {

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
ub4 capped(ub8 count) { return static_cast<ub4>(std::min<ub8>(count, 0xffffffff)); }

std::string rings_in_words(const std::vector<place> &places) {
    ub8 rings = 0, vertices = 0;
    for (const place &p : places)
        for (const place_ring &r : p.rings) {
            rings++;
            vertices += r.size();
        }
    return fmt::format("{} rings of {} places, {} vertices", rings, places.size(), vertices);
}

// A ring as spatial_pip wants it. Its last edge leads from the last vertex to vertex 4 * (n / 4 - 1), which below 8
// vertices is the first one: these are closed as they are. For more, the first vertex is repeated until that last edge
// leads from the first vertex to itself. It then crosses nothing, and the ring's own last edge has become one between
// two neighbours like all others. Repeated once alone, there would be an edge from the first vertex into the middle of
// the ring.
struct closed_ring {
    std::vector<double> x, y;

    explicit closed_ring(const place_ring &of) : x(of.longitude), y(of.latitude) {
        const std::size_t k = x.size();
        if (k >= 8) {
            const std::size_t n = 4 * ((k + 3) / 4 + 1);
            x.resize(n, of.longitude[0]);
            y.resize(n, of.latitude[0]);
        }
    }
};

// Points from south to north, so that those of a range of latitudes stand together.
struct by_latitude {
    std::vector<ub4> order;
    std::vector<double> latitudes;

    explicit by_latitude(const point_span &points) : order(points.size()), latitudes(points.size()) {
        std::iota(order.begin(), order.end(), 0u);
        std::stable_sort(order.begin(), order.end(),
                         [&](ub4 a, ub4 b) { return points.latitude[a] < points.latitude[b]; });
        std::transform(order.begin(), order.end(), latitudes.begin(), [&](ub4 p) { return points.latitude[p]; });
    }
    void within(const degree_box &box, const point_span &points, std::vector<ub4> &found) const {
        found.clear();
        const auto first = std::lower_bound(latitudes.begin(), latitudes.end(), box.south) - latitudes.begin(),
                   last = std::upper_bound(latitudes.begin(), latitudes.end(), box.north) - latitudes.begin();
        for (auto i = first; i < last; i++)
            if (const double x = points.longitude[order[static_cast<std::size_t>(i)]]; x >= box.west && x <= box.east)
                found.push_back(order[static_cast<std::size_t>(i)]);
    }
};

// An array of doubles as the library takes it; it is only read.
tavo_vec vector_of(const std::vector<double> &values) {
    tavo_vec vec{};
    vec.data = const_cast<double *>(values.data());
    vec.size = static_cast<ub4>(values.size());
    return vec;
}

struct axes {
    std::vector<double> x, y, z;
    tavo_vec records[3];

    axes(std::span<const double> longitude, std::span<const double> latitude) {
        for (std::size_t i = 0; i < longitude.size(); i++) {
            const unit_vector v = on_unit_sphere(longitude[i], latitude[i]);
            x.push_back(v.x);
            y.push_back(v.y);
            z.push_back(v.z);
        }
        records[0] = vector_of(x);
        records[1] = vector_of(y);
        records[2] = vector_of(z);
    }
};

} // namespace

unit_vector on_unit_sphere(double longitude, double latitude) {
    const double degree = std::numbers::pi / 180, lambda = longitude * degree, phi = latitude * degree;
    return {std::cos(phi) * std::cos(lambda), std::cos(phi) * std::sin(lambda), std::sin(phi)};
}

located locate_in_plane(session &session, const point_span &points, const std::vector<place> &places,
                        std::vector<query_step> &steps) {
    if (session.kernels().ctx().spatial_pip == nullptr)
        throw error("this library has no operation for points in polygons");
    const auto start = std::chrono::steady_clock::now();
    const by_latitude sorted(points);
    located found(places.size());
    std::vector<ub1> inside(points.size());
    std::vector<ub4> candidates;
    ub8 all = 0, tested = 0, odd = 0;
    double in_kernel = 0;
    for (std::size_t i = 0; i < places.size(); i++) {
        std::vector<ub4> touched;
        for (const place_ring &ring : places[i].rings) {
            all += points.size();
            sorted.within(ring.box, points, candidates);
            if (candidates.empty())
                continue;
            const closed_ring closed(ring);
            tavo_vec xs = vector_of(closed.x), ys = vector_of(closed.y), result{}, x{}, y{};
            ub4 count = 0;
            result.data = &count;
            const auto kernel_start = std::chrono::steady_clock::now();
            for (const ub4 p : candidates) {
                x.data = const_cast<double *>(&points.longitude[p]);
                y.data = const_cast<double *>(&points.latitude[p]);
                session.kernels().ctx().spatial_pip(&result, &xs, &ys, &x, &y);
                inside[p] ^= count & 1; // holes and islands: the parity of all rings together
                odd += count & 1;
            }
            in_kernel += seconds_since(kernel_start);
            tested += candidates.size();
            touched.insert(touched.end(), candidates.begin(), candidates.end());
        }
        for (const ub4 p : touched)
            if (inside[p] != 0) {
                found[i].push_back(p);
                inside[p] = 0; // also a point that several rings touched is taken once
            }
        std::sort(found[i].begin(), found[i].end());
    }
    session.throw_raised();
    steps.push_back({"", "", 0, "points times rings, by boxes: " + rings_in_words(places), capped(all), capped(tested),
                     seconds_since(start) - in_kernel});
    steps.push_back(
        {"tavo_spatial_pip_dydi", "", 64, "an odd number of crossings", capped(tested), capped(odd), in_kernel});
    return found;
}

located locate_on_sphere(session &session, const point_span &points, const std::vector<place> &places,
                         std::vector<query_step> &steps) {
    if (session.kernels().ctx().spheric_pip == nullptr)
        throw error("this library has no operation for points in polygons on the sphere");
    const auto start = std::chrono::steady_clock::now();
    axes where(points.longitude, points.latitude);
    located found(places.size());
    std::vector<ub1> result(points.size()), inside(points.size());
    ub8 all = 0, tested = 0, odd = 0, borders = 0;
    double in_kernel = 0;
    for (std::size_t i = 0; i < places.size(); i++) {
        std::fill(inside.begin(), inside.end(), 0);
        for (const place_ring &ring : places[i].rings) {
            axes vertices(ring.longitude, ring.latitude);
            tavo_vec res{};
            res.data = result.data();
            const auto kernel_start = std::chrono::steady_clock::now();
            const ub4 status = session.kernels().ctx().spheric_pip(&res, vertices.records, where.records, nullptr,
                                                                   nullptr, border_tolerance);
            in_kernel += seconds_since(kernel_start);
            if (status != TAVO_DONE)
                throw error(fmt::format("{} does not fit in a circle of less than a hemisphere, which --sphere needs",
                                        in_words(places[i], ring)));
            all += points.size();
            for (ub4 p = 0; p < points.size(); p++) {
                // Bit 1: on a border. It stays, whatever other rings say.
                if (TAVO_PIP_ON_BORDER(result[p]))
                    inside[p] |= 2;
                else
                    inside[p] ^= TAVO_PIP_INSIDE(result[p]);
                tested += result[p] != TAVO_PIP_OUTSIDE;
                odd += TAVO_PIP_INSIDE(result[p]);
                borders += TAVO_PIP_ON_BORDER(result[p]);
            }
        }
        for (ub4 p = 0; p < points.size(); p++)
            if (inside[p] != 0)
                found[i].push_back(p);
    }
    session.throw_raised();
    const double around = seconds_since(start) - in_kernel;
    steps.push_back({"", "", 0, "degrees to unit vectors, parities: " + rings_in_words(places), points.size(),
                     points.size(), around});
    steps.push_back({"tavo_spheric_pip_dydi", "", 64,
                     fmt::format("points times rings; {} within the circles, {} on borders", tested, borders),
                     capped(all), capped(odd + borders), in_kernel});
    return found;
}

} // namespace host
