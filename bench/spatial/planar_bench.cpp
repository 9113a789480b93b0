// Points in a polygon of the plane: edges a second, beside the plain loop and GEOS with and without an index.
//
// Each call tests 64 points one by one. Counters: items/s = edges/s (points times vertices); ns_per_point;
// of_plain = the speed beside the plain loop's.
#include <benchmark/benchmark.h>
#include <geos_c.h>

#include <memory>
#include <string>

#include "bench/kit/plain.h"
#include "bench/spatial/points.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

// As one writes it.
[[gnu::noinline]] ub4 plain_crossings(const double *x, const double *y, std::size_t n, double px, double py) {
    ub4 count = 0;
    for (std::size_t i = 0, j = n - 1; i < n; j = i++)
        if ((y[i] > py) != (y[j] > py) && px < (x[j] - x[i]) * (py - y[i]) / (y[j] - y[i]) + x[i])
            count++;
    return count;
}

struct plane {
    plane_ring ring, points = make_points();
    plane(shape kind, std::size_t n) : ring(make_ring(kind, n)) {}

    // Calls test(x, y) for each point and keeps what it returns.
    template <class F>
    static auto each(const plane_ring &points, F &&test) {
        return [&points, test] {
            for (std::size_t i = 0; i < point_count; i++)
                benchmark::DoNotOptimize(test(points.x[i], points.y[i]));
        };
    }
    auto plain() const {
        return each(points, [this](double px, double py) {
            return plain_crossings(ring.x.data(), ring.y.data(), ring.x.size(), px, py);
        });
    }
    std::size_t edges() const { return point_count * ring.x.size(); }
};

void report(benchmark::State &state, const plane &with, double seconds) {
    state.counters["ns_per_point"] = seconds / point_count * 1e9;
    state.counters["of_plain"] = best_seconds(with.plain()) / seconds;
}

void kernel(benchmark::State &state, shape kind, std::size_t n) {
    const plane with(kind, n);
    ub4 count = 0;
    tavo_vec res{}, xs{}, ys{}, x{}, y{};
    res.data = &count;
    xs.data = const_cast<double *>(with.ring.x.data());
    xs.size = static_cast<ub4>(n);
    ys.data = const_cast<double *>(with.ring.y.data());
    const auto call = plane::each(with.points, [&](double px, double py) {
        x.data = &px;
        y.data = &py;
        tavo_global_specialized_ctx.spatial_pip(&res, &xs, &ys, &x, &y);
        return count;
    });
    report(state, with, report_best(state, with.edges() * 16, with.edges(), call));
}

void plain(benchmark::State &state, shape kind, std::size_t n) {
    const plane with(kind, n);
    report(state, with, report_best(state, with.edges() * 16, with.edges(), with.plain()));
}

// The geometries are made before the clock runs; prepared, the index is, too.
void geos(benchmark::State &state, shape kind, std::size_t n, bool prepared) {
    const plane with(kind, n);
    const std::unique_ptr<GEOSContextHandle_HS, decltype(&GEOS_finish_r)> handle(GEOS_init_r(), GEOS_finish_r);
    GEOSCoordSequence *ring = GEOSCoordSeq_create_r(handle.get(), static_cast<unsigned>(n + 1), 2);
    for (unsigned i = 0; i <= n; i++)
        GEOSCoordSeq_setXY_r(handle.get(), ring, i, with.ring.x[i % n], with.ring.y[i % n]);
    GEOSGeometry *polygon =
        GEOSGeom_createPolygon_r(handle.get(), GEOSGeom_createLinearRing_r(handle.get(), ring), nullptr, 0);
    std::vector<GEOSGeometry *> points;
    for (std::size_t i = 0; i < point_count; i++)
        points.push_back(GEOSGeom_createPointFromXY_r(handle.get(), with.points.x[i], with.points.y[i]));
    const GEOSPreparedGeometry *index = prepared ? GEOSPrepare_r(handle.get(), polygon) : nullptr;
    const auto call = [&] {
        for (const GEOSGeometry *point : points)
            benchmark::DoNotOptimize(prepared ? GEOSPreparedContains_r(handle.get(), index, point)
                                              : GEOSContains_r(handle.get(), polygon, point));
    };
    call();
    report(state, with, report_best(state, with.edges() * 16, with.edges(), call));
    if (prepared)
        GEOSPreparedGeom_destroy_r(handle.get(), index);
    for (GEOSGeometry *point : points)
        GEOSGeom_destroy_r(handle.get(), point);
    GEOSGeom_destroy_r(handle.get(), polygon);
}

const int registered = [] {
    for (const shape kind : {shape::coast, shape::star, shape::comb})
        for (const std::size_t n : {8, 100, 1000, 40000}) {
            const std::string of = std::string("plane/") + name_of(kind) + "/" + std::to_string(n) + "/";
            const auto add = [&](const char *what, auto f) {
                benchmark::RegisterBenchmark((of + what).c_str(), f)->Apply(by_best_time);
            };
            add("tavo", [=](benchmark::State &s) { kernel(s, kind, n); });
            add("plain", [=](benchmark::State &s) { plain(s, kind, n); });
            if (kind != shape::comb) {
                if (n <= 1000 && kind == shape::coast) // without an index that many take minutes
                    add("geos_contains", [=](benchmark::State &s) { geos(s, kind, n, false); });
                add("geos_prepared", [=](benchmark::State &s) { geos(s, kind, n, true); });
            }
        }
    return 0;
}();

} // namespace
