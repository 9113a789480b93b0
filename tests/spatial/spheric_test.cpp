// Points in polygons on the sphere: every byte against the walk as it is told, over every way that it can end.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"
#include "tests/spatial/spheric_model.h"

namespace tavo::test {
namespace {

constexpr ub1 untouched = 0x55;

// Three arrays, each ending at an unreadable page, and their records.
struct axes {
    std::vector<guarded> arrays;
    tavo_vec records[3]{};

    explicit axes(const spheric_ring &of) {
        const std::size_t bytes = of.size() * 8;
        for (int axis = 0; axis < 3; axis++) {
            arrays.emplace_back(bytes);
            for (std::size_t i = 0; i < of.size(); i++)
                arrays.back().as<double>()[i] = axis == 0 ? of[i].x : axis == 1 ? of[i].y : of[i].z;
            records[axis].data = arrays.back().data();
        }
        records[0].size = static_cast<ub4>(of.size()); // those of the others are not read
    }
};

struct answer {
    ub4 status;
    std::vector<ub1> bytes;
};
answer ask(const spheric_ring &polygon, const spheric_ring &points, double t) {
    axes ring(polygon), where(points);
    const guarded result(points.size(), guard::behind, untouched);
    tavo_vec res{};
    res.data = result.data();
    const ub4 status = tavo_global_specialized_ctx.spheric_pip(&res, ring.records, where.records, nullptr, nullptr, t);
    return {status, {result.data(), result.data() + points.size()}};
}

void expect_as_told(const spheric_ring &polygon, const spheric_ring &points, double t, spheric_visits &visits,
                    const std::string &what) {
    const answer got = ask(polygon, points, t);
    const auto with = prepare(polygon, t);
    if (!with) {
        ASSERT_EQ(got.status, TAVO_BAD_INPUT) << what;
        ASSERT_EQ(got.bytes, std::vector<ub1>(points.size(), untouched)) << what;
        return;
    }
    ASSERT_EQ(got.status, TAVO_DONE) << what;
    for (std::size_t i = 0; i < points.size(); i++)
        ASSERT_EQ(got.bytes[i], spheric_byte(polygon, *with, t, points[i], visits))
            << what << ", point " << i << ": " << points[i].x << " " << points[i].y << " " << points[i].z;
}

class drawn {
public:
    explicit drawn(ub4 seed) : random(seed) {}

    double share() { return std::uniform_real_distribution<>(0, 1)(random); }
    std::size_t below(std::size_t n) { return random() % n; }
    xyz direction() {
        std::normal_distribution<> normal;
        return unit({normal(random), normal(random), normal(random)});
    }
    // A star of n vertices about an axis, between angles a and b (in degrees) from it, as seen from outside.
    spheric_ring star(const xyz &axis, std::size_t n, double a, double b) {
        const double degree = std::numbers::pi / 180;
        const xyz helper = std::fabs(axis.z) < 0.9 ? xyz{0, 0, 1} : xyz{1, 0, 0};
        const xyz side = unit({axis.y * helper.z - axis.z * helper.y, axis.z * helper.x - axis.x * helper.z,
                               axis.x * helper.y - axis.y * helper.x});
        spheric_ring ring;
        for (std::size_t i = 0; i < n; i++) {
            const double around = (static_cast<double>(i) + 0.9 * share()) / static_cast<double>(n) * 360 * degree;
            ring.push_back(turned(axis, around, turned(side, (a + (b - a) * share()) * degree, axis)));
        }
        return ring;
    }
    // Points anywhere, near the polygon, on vertices, on edges, on their great circles beyond the edges, opposite.
    spheric_ring points(const spheric_ring &polygon, std::size_t m) {
        spheric_ring all;
        while (all.size() < m) {
            const xyz &a = polygon[below(polygon.size())], &b = polygon[below(polygon.size())];
            const std::size_t i = below(polygon.size());
            const xyz &from = polygon[i], &to = polygon[(i + 1) % polygon.size()];
            switch (below(8)) {
            case 0: all.push_back(direction()); break;
            case 1: all.push_back(a); break;
            case 2: all.push_back(unit(along(from, to, share()))); break;
            case 3: all.push_back(unit(along(from, to, 4 * share() - 2))); break;
            case 4: all.push_back({-a.x, -a.y, -a.z}); break;
            case 5: {
                const xyz off = direction();
                all.push_back(unit(along(a, off, std::pow(10, -14 * share()))));
                break;
            }
            default: all.push_back(unit(along(along(a, b, share()), polygon[below(polygon.size())], share())));
            }
        }
        return all;
    }

    std::mt19937_64 random;
};

const std::size_t ring_sizes[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12,  13,  14,  15,  16,
                                  17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,  29,  30,  31,  32,
                                  33, 34, 35, 36, 37, 38, 39, 40, 63, 64, 65, 127, 128, 129, 257, 1000};
const double tolerances[] = {0, 1e-200, 1e-15, 1e-12, 1e-9, 1e-6, 1e-3, 0.02, 0.1, 0.5, -1e-3};

TEST(SphericPip, EveryByteAsTold) {
    drawn draw(20);
    spheric_visits visits{};
    for (const std::size_t n : ring_sizes)
        for (const double t : tolerances)
            for (int round = 0; round < 3; round++) {
                const double b = round == 0 ? 89 : std::pow(10, 2 * draw.share() - 0.1);
                const spheric_ring polygon = draw.star(draw.direction(), n, b * draw.share(), b);
                ASSERT_NO_FATAL_FAILURE(expect_as_told(polygon, draw.points(polygon, 40 + draw.below(9)), t, visits,
                                                       std::to_string(n) + " vertices, t " + std::to_string(t)));
            }
    EXPECT_GT(visits.outside, 1000u);
    EXPECT_GT(visits.vertex_hits, 1000u);
    EXPECT_GT(visits.vertex_hits_after_crossings, 100u);
    EXPECT_GT(visits.lying_hits, 100u);
    EXPECT_GT(visits.lying_counted, 100u);
    EXPECT_GT(visits.lying_dropped, 100u);
    EXPECT_GT(visits.last_edge_lying, 10u);
    EXPECT_GT(visits.edge_hits, 1000u);
    EXPECT_GT(visits.crossed, 1000u);
    EXPECT_GT(visits.odd, 1000u);
}

// Smooth rings of many vertices, in which whole blocks have nothing to do with the arc, and points of every number.
TEST(SphericPip, LongSmoothRings) {
    drawn draw(21);
    spheric_visits visits{};
    for (std::size_t m = 0; m <= 33; m++)
        for (const std::size_t n : {500, 511, 513, 2000}) {
            const xyz axis = draw.direction();
            spheric_ring polygon = draw.star(axis, n, 30, 30);
            ASSERT_NO_FATAL_FAILURE(expect_as_told(polygon, draw.points(polygon, m), m % 2 ? 1e-9 : 1e-4, visits,
                                                   std::to_string(n) + " vertices, " + std::to_string(m) + " points"));
        }
    EXPECT_GT(visits.odd, 100u);
}

// Infinities, NaNs, zeros of either sign and sizes far from 1, among the vertices and, but for NaNs, among the points:
// of these only that they are tested is said.
TEST(SphericPip, WildCoordinates) {
    using limits = std::numeric_limits<double>;
    const double wild[] = {0.0,
                           -0.0,
                           1.0,
                           -1.0,
                           2.0,
                           -3.0,
                           limits::infinity(),
                           -limits::infinity(),
                           limits::quiet_NaN(),
                           1e300,
                           1e-300,
                           1e-160,
                           0x1p-540,
                           1e160,
                           limits::denorm_min(),
                           -limits::denorm_min()};
    drawn draw(22);
    spheric_visits visits{};
    ub4 accepted = 0;
    for (int round = 0; round < 3000; round++) {
        const std::size_t n = 1 + draw.below(70);
        spheric_ring polygon = draw.star(draw.direction(), n, 5, 60), points = draw.points(polygon, 16);
        const auto spoil = [&](xyz &v) {
            (draw.below(3) == 0 ? v.x : draw.below(2) ? v.y : v.z) = wild[draw.below(std::size(wild))];
        };
        const std::size_t spoiled = draw.below(3);
        for (std::size_t i = 0; i < spoiled; i++)
            spoil(polygon[draw.below(n)]);
        if (round % 4 == 0)
            for (spheric_ring *all : {&polygon, &points}) // on one great circle, with zeros of both signs
                for (xyz &v : *all)
                    v.z = draw.below(2) ? 0.0 : -0.0;
        for (std::size_t i = draw.below(8); i < points.size(); i += 3) {
            spoil(points[i]);
            if (std::isnan(points[i].x + points[i].y + points[i].z))
                points[i] = {0, 0, 0};
        }
        const double t = round % 8 == 0 ? 0 : tolerances[draw.below(std::size(tolerances))];
        accepted += prepare(polygon, t).has_value();
        ASSERT_NO_FATAL_FAILURE(expect_as_told(polygon, points, t, visits, "round " + std::to_string(round)));
    }
    EXPECT_GT(accepted, 500u);
}

// A polygon that has points of its own at many distances, so that the bounds that spare a comparison are put to the
// test: vertices at about the tolerance from the point, in all directions.
TEST(SphericPip, VerticesAtTheTolerance) {
    drawn draw(23);
    spheric_visits visits{};
    for (int round = 0; round < 600; round++) {
        const double t = std::pow(10, -1 - 14 * draw.share());
        spheric_ring polygon = draw.star(draw.direction(), 40, 10, 40);
        const xyz p = polygon[3];
        const xyz off = draw.direction();
        const double far = t * (0.9 + 0.2 * draw.share());
        polygon[8 + draw.below(32)] = {p.x + far * off.x, p.y + far * off.y, p.z + far * off.z};
        polygon[3] = polygon[2];
        ASSERT_NO_FATAL_FAILURE(expect_as_told(polygon, {p}, t, visits, "t " + std::to_string(t)));
    }
    EXPECT_GT(visits.vertex_hits, 200u);
    EXPECT_LT(visits.vertex_hits, 400u);
}

// A vertex near the arc's plane, 32 or more that have nothing to do with it, and one near it again, which has another
// before it than the first.
TEST(SphericPip, NearVerticesFarApart) {
    drawn draw(24);
    spheric_visits visits{};
    for (int round = 0; round < 2000; round++) {
        // These five hold the bounding box and so the reference point, whatever the others do within 40 degrees.
        spheric_ring polygon = draw.star({0, 0, 1}, 66 + draw.below(64), 5, 40);
        const xyz fixed[] = {
            from_degrees(0, 29), from_degrees(90, 30), from_degrees(180, 30), from_degrees(270, 30), {0, 0, 1}};
        std::copy(std::begin(fixed), std::end(fixed), polygon.begin());
        const double t = 0.01;
        const auto with = prepare(polygon, t);
        ASSERT_TRUE(with);
        const xyz p = draw.star({0, 0, 1}, 1, 1, 50)[0];
        const xyz n{p.y * with->q.z - p.z * with->q.y, p.z * with->q.x - p.x * with->q.z,
                    p.x * with->q.y - p.y * with->q.x};
        const xyz h = unit(n);
        const double side = draw.below(2) ? 1 : -1;
        for (std::size_t i = 31; i < 65; i++) {
            const bool near = i == 31 || i == 64;
            const double e = near ? 0.008 * (2 * draw.share() - 1) : side * (0.05 + 0.1 * draw.share());
            const double off = e - dot(h, polygon[i]);
            polygon[i] = unit({polygon[i].x + off * h.x, polygon[i].y + off * h.y, polygon[i].z + off * h.z});
        }
        ASSERT_NO_FATAL_FAILURE(expect_as_told(polygon, {p}, t, visits, "round " + std::to_string(round)));
    }
    EXPECT_GT(visits.odd, 100u);
}

// ---- What a host relies on ----

spheric_ring degrees(std::initializer_list<std::pair<double, double>> corners) {
    spheric_ring ring;
    for (const auto &[longitude, latitude] : corners)
        ring.push_back(from_degrees(longitude, latitude));
    return ring;
}

TEST(SphericPip, OverPolesAndTheDateLine) {
    const spheric_ring arctic = degrees({{0, 70}, {60, 70}, {120, 70}, {180, 70}, {-120, 70}, {-60, 70}});
    const answer north =
        ask(arctic, degrees({{0, 90}, {17, 89}, {-100, 80}, {30, 69}, {30, 75}, {0, -90}, {0, 69.9}}), 1e-9);
    EXPECT_EQ(north.status, TAVO_DONE);
    std::vector<bool> inside;
    for (const ub1 byte : north.bytes)
        inside.push_back(TAVO_PIP_INSIDE(byte));
    // The edges are arcs of great circles: half way between two corners they reach further north than 70 degrees.
    EXPECT_EQ(inside, (std::vector<bool>{true, true, true, false, true, false, false}));

    const spheric_ring pacific = degrees({{170, -10}, {-170, -10}, {-170, 10}, {170, 10}});
    const answer there = ask(pacific, degrees({{180, 0}, {-179, 5}, {175, -5}, {165, 0}, {-165, 0}, {0, 0}}), 1e-9);
    inside.clear();
    for (const ub1 byte : there.bytes)
        inside.push_back(TAVO_PIP_INSIDE(byte));
    EXPECT_EQ(inside, (std::vector<bool>{true, true, true, false, false, false}));
    EXPECT_EQ(there.bytes.back(), TAVO_PIP_OUTSIDE);

    // On a corner, on an edge (that of a meridian), on its great circle beyond it, where the arc does not get.
    const answer border = ask(pacific, degrees({{-170, 10}, {170, 3}}), 1e-9);
    EXPECT_EQ(border.bytes[0] & 0xc0, TAVO_PIP_ON_VERTEX);
    EXPECT_EQ(border.bytes[1] & 0xc0, TAVO_PIP_ON_EDGE);
    EXPECT_TRUE(TAVO_PIP_ON_BORDER(border.bytes[0]) && TAVO_PIP_ON_BORDER(border.bytes[1]));
    EXPECT_FALSE(TAVO_PIP_INSIDE(border.bytes[0]) || TAVO_PIP_INSIDE(border.bytes[1]));
}

TEST(SphericPip, RefusesWhatIsNoSmallCircle) {
    const spheric_ring point = degrees({{1, 2}});
    EXPECT_EQ(ask(degrees({{0, -20}, {120, -20}, {-120, -20}, {0, 1}}), point, 1e-9).status, TAVO_BAD_INPUT);
    // The equator: the middle of its box is the centre of the sphere.
    EXPECT_EQ(ask(degrees({{0, 0}, {90, 0}, {180, 0}, {-90, 0}}), point, 1e-9).status, TAVO_BAD_INPUT);
    EXPECT_EQ(ask({{1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, -1, 0}}, point, 0).status, TAVO_BAD_INPUT);
    EXPECT_EQ(ask({}, point, 1e-9).status, TAVO_BAD_INPUT);
    EXPECT_EQ(ask({}, point, 1e-9).bytes[0], untouched);
    const answer nothing = ask({}, point, 0); // no tolerance lets an empty polygon pass
    EXPECT_EQ(nothing.status, TAVO_DONE);
    EXPECT_EQ(nothing.bytes[0], 0);
    EXPECT_EQ(ask(degrees({{0, 80}, {120, 80}, {-120, 80}}), {}, 1e-9).status, TAVO_DONE);
}

// A comb with more than 63 crossings of one arc: the count runs into the flags' bits.
TEST(SphericPip, CountsBeyondTheirBits) {
    spheric_visits visits{};
    for (const int teeth : {40, 63, 64, 65, 70, 130, 260}) {
        spheric_ring comb;
        for (int i = 0; i <= teeth; i++)
            comb.push_back(from_degrees(0.1 * i, i % 2 ? 30 : -30));
        comb.push_back(from_degrees(0.1 * teeth, -35));
        comb.push_back(from_degrees(0, -35));
        spheric_ring points;
        for (int i = -10; i < 10 * teeth; i += 3)
            points.push_back(from_degrees(0.01 * i, 0.01 * (i % 17)));
        for (const double t : {1e-9, 1e-3})
            ASSERT_NO_FATAL_FAILURE(expect_as_told(comb, points, t, visits, std::to_string(teeth) + " teeth"));
    }
}

TEST(SphericPip, PointAtTheLimitIsTested) {
    const spheric_ring polygon = degrees({{0, 60}, {90, 60}, {180, 60}, {-90, 60}});
    const auto with = prepare(polygon, 0);
    ASSERT_TRUE(with);
    // Exactly as far from the circle's centre as the limit says, in the circle's plane.
    const xyz at{with->p.x + std::sqrt(with->rr), with->p.y, with->p.z};
    const xyz d{at.x - with->p.x, at.y - with->p.y, at.z - with->p.z};
    if (dot(d, d) == with->rr) {
        EXPECT_NE(ask(polygon, {at}, 0).bytes[0], TAVO_PIP_OUTSIDE);
    }
    spheric_visits visits{};
    spheric_ring around;
    for (double s = 0.999; s < 1.001; s += 1e-5)
        around.push_back({with->p.x + s * std::sqrt(with->rr), with->p.y, with->p.z});
    for (const double t : {0.0, 1e-9, 1e-3})
        expect_as_told(polygon, around, t, visits, "around the limit");
    EXPECT_GT(visits.outside, 10u);
}

} // namespace
} // namespace tavo::test
