// Points in a polygon on the sphere: vertices a second, beside the plain loop and S2 with and without its index.
//
// A call tests 64 points, or one (the preparation, two reads of the vertices, is then for it alone), or 64 beyond the
// bounding circle. Counters: items/s = vertices/s (points times vertices); ns_per_point; of_plain = the speed beside
// the plain loop's for the same points.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/kit/plain.h"
#include "bench/spatial/points.h"
#include "bench/spatial/s2_baseline.h"
#include "frame/tavo.h"

namespace {

using namespace tavo::bench;

constexpr double tolerance = 1e-9;

struct xyz {
    double x, y, z;
};
inline double dot(const xyz &a, const xyz &b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline xyz minus(const xyz &a, const xyz &b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline xyz cross(const xyz &a, const xyz &b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double squared(const xyz &a) { return dot(a, a); }

// The same test vertex by vertex, as one writes it. The preparation is not in it.
struct plain_polygon {
    const sphere_ring &ring;
    xyz p{}, q{};
    double limit = 0;

    xyz vertex(std::size_t i) const { return {ring.x[i], ring.y[i], ring.z[i]}; }
    explicit plain_polygon(const sphere_ring &of) : ring(of) {
        xyz low{2, 2, 2}, high{-2, -2, -2};
        for (std::size_t i = 0; i < of.x.size(); i++) {
            const xyz v = vertex(i);
            low = {std::min(low.x, v.x), std::min(low.y, v.y), std::min(low.z, v.z)};
            high = {std::max(high.x, v.x), std::max(high.y, v.y), std::max(high.z, v.z)};
        }
        const xyz c{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
        xyz f = vertex(0);
        for (std::size_t i = 1; i < of.x.size(); i++)
            if (squared(minus(vertex(i), c)) > squared(minus(f, c)))
                f = vertex(i);
        const double s = dot(c, f) / dot(c, c);
        p = {s * c.x, s * c.y, s * c.z};
        q = {2 * f.x - p.x, 2 * f.y - p.y, 2 * f.z - p.z};
        limit = squared(minus(p, f)) + tolerance;
    }
    [[gnu::noinline]] ub1 test(const xyz &point) const {
        const double t = tolerance;
        if (squared(minus(point, p)) > limit)
            return TAVO_PIP_OUTSIDE;
        xyz h = cross(point, q);
        const double scale = 1 / std::sqrt(squared(h));
        h = {h.x * scale, h.y * scale, h.z * scale};
        const double w = squared(minus(point, q));
        ub4 count = 0;
        xyz a = vertex(ring.x.size() - 1);
        double before = dot(h, a);
        for (std::size_t i = 0; i < ring.x.size(); i++) {
            const xyz b = vertex(i);
            if (squared(minus(b, point)) < t * t)
                return static_cast<ub1>(TAVO_PIP_ON_VERTEX | count);
            const double e = dot(h, b);
            if (std::fabs(e) < t && std::fabs(before) < t) {
                const bool a_beyond = squared(minus(a, q)) > w, b_beyond = squared(minus(b, q)) > w;
                if (a_beyond != b_beyond)
                    return static_cast<ub1>(TAVO_PIP_ON_EDGE | count);
                count += !a_beyond && (e < 0) != (before < 0);
            } else if ((e < 0) != (before < 0)) {
                const xyz m = cross(a, b);
                const double s1 = dot(point, m);
                if (t * t * squared(m) > s1 * s1)
                    return static_cast<ub1>(TAVO_PIP_ON_EDGE | count);
                count += (s1 > 0) != (dot(q, m) > 0);
            }
            a = b;
            before = e;
        }
        return static_cast<ub1>(count & TAVO_PIP_COUNT);
    }
};

struct sphere {
    sphere_ring ring, points;
    ub1 found[point_count];
    tavo_vec res{}, polygon[3]{}, where[3]{};

    sphere(shape kind, std::size_t n, std::size_t m, bool far_away)
        : ring(on_sphere(make_ring(kind, n))), points(on_sphere(make_points())) {
        points.x.resize(m);
        points.y.resize(m);
        points.z.resize(m);
        if (far_away)
            for (double &x : points.x)
                x = -x;
        res.data = found;
        std::vector<double> *const of[2][3] = {{&ring.x, &ring.y, &ring.z}, {&points.x, &points.y, &points.z}};
        for (int axis = 0; axis < 3; axis++) {
            polygon[axis].data = of[0][axis]->data();
            where[axis].data = of[1][axis]->data();
        }
        polygon[0].size = static_cast<ub4>(n);
        where[0].size = static_cast<ub4>(m);
    }
    void call() { tavo_global_specialized_ctx.spheric_pip(&res, polygon, where, nullptr, nullptr, tolerance); }
    std::size_t tested() const { return ring.x.size() * points.x.size(); }
    double plain_seconds() const {
        const plain_polygon plain(ring);
        return best_seconds([&] {
            for (std::size_t i = 0; i < points.x.size(); i++)
                benchmark::DoNotOptimize(plain.test({points.x[i], points.y[i], points.z[i]}));
        });
    }
};

template <class F>
void report(benchmark::State &state, sphere &with, F &&call) {
    const double seconds = report_best(state, with.tested() * 24, with.tested(), call);
    state.counters["ns_per_point"] = seconds / static_cast<double>(with.points.x.size()) * 1e9;
    state.counters["of_plain"] = with.plain_seconds() / seconds;
}

void kernel(benchmark::State &state, shape kind, std::size_t n, std::size_t m, bool far_away) {
    sphere with(kind, n, m, far_away);
    with.call();
    const plain_polygon plain(with.ring);
    for (std::size_t i = 0; i < m; i++)
        if (TAVO_PIP_INSIDE(with.found[i]) !=
            TAVO_PIP_INSIDE(plain.test({with.points.x[i], with.points.y[i], with.points.z[i]}))) {
            std::fprintf(stderr, "the plain loop answers otherwise\n");
            std::abort();
        }
    report(state, with, [&] { with.call(); });
}

void s2(benchmark::State &state, shape kind, std::size_t n, bool index) {
    sphere with(kind, n, point_count, false);
    const s2_polygon polygon(with.ring);
    benchmark::DoNotOptimize(polygon.contained(with.points)); // makes the index
    report(state, with, [&] {
        benchmark::DoNotOptimize(index ? polygon.contained(with.points) : polygon.contained_without_index(with.points));
    });
}

const int registered = [] {
    for (const shape kind : {shape::coast, shape::star})
        for (const std::size_t n : {8, 100, 1000, 40000}) {
            const std::string of = std::string("sphere/") + name_of(kind) + "/" + std::to_string(n) + "/";
            const auto add = [&](const char *what, auto f) {
                benchmark::RegisterBenchmark((of + what).c_str(), f)->Apply(by_best_time);
            };
            add("tavo", [=](benchmark::State &s) { kernel(s, kind, n, point_count, false); });
            add("s2_index", [=](benchmark::State &s) { s2(s, kind, n, true); });
            if (kind == shape::star)
                continue;
            add("tavo_one_point", [=](benchmark::State &s) { kernel(s, kind, n, 1, false); });
            add("tavo_outside", [=](benchmark::State &s) { kernel(s, kind, n, point_count, true); });
            add("s2_without_index", [=](benchmark::State &s) { s2(s, kind, n, false); });
        }
    return 0;
}();

} // namespace

BENCHMARK_MAIN();
