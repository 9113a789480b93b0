// Points in polygons of the plane: the crossing count edge by edge, the edges that are and are not looked at, and the
// way in which a host closes a ring.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "frame/tavo.h"
#include "tests/kit/guarded.h"

namespace tavo::test {
namespace {

struct xy {
    double x, y;
};
using ring = std::vector<xy>;

ub4 crossings(const ring &of, xy p, guard side = guard::behind) {
    const guarded xs(of.size() * 8, side), ys(of.size() * 8, side), px(8, side), py(8, side), result(4, side);
    for (std::size_t i = 0; i < of.size(); i++) {
        xs.as<double>()[i] = of[i].x;
        ys.as<double>()[i] = of[i].y;
    }
    *px.as<double>() = p.x;
    *py.as<double>() = p.y;
    tavo_vec res{}, x{}, y{}, vx{}, vy{};
    res.data = result.data();
    x.data = xs.data();
    x.size = static_cast<ub4>(of.size());
    y.data = ys.data();
    y.size = 0; // not read
    vx.data = px.data();
    vy.data = py.data();
    EXPECT_EQ(tavo_global_specialized_ctx.spatial_pip(&res, &x, &y, &vx, &vy), TAVO_DONE);
    return *result.as<ub4>();
}

// The rule, edge by edge.
ub4 told(const ring &v, xy p) {
    const std::size_t n = v.size(), chain = n < 4 ? 0 : 4 * (n / 4 - 1);
    const auto straddles = [&](const xy &a, const xy &b) { return (a.y > p.y) != (b.y > p.y); };
    ub4 count = 0;
    for (std::size_t i = 0; i < chain; i++)
        if (straddles(v[i], v[i + 1])) {
            const double dy = v[i + 1].y - v[i].y, dx = v[i + 1].x - v[i].x;
            const double l = (p.x - v[i].x) * dy, r = (p.y - v[i].y) * dx;
            count += dy < 0 ? l > r : l < r;
        }
    for (std::size_t i = chain, j = n - 1; i < n; j = i++)
        if (straddles(v[i], v[j]))
            count += (v[j].x - v[i].x) * (p.y - v[i].y) / (v[j].y - v[i].y) + v[i].x > p.x;
    return count;
}

std::vector<std::size_t> ring_sizes() {
    std::vector<std::size_t> sizes;
    for (std::size_t n = 0; n <= 48; n++)
        sizes.push_back(n);
    for (const std::size_t n : {63, 64, 65, 67, 68, 71, 72, 127, 128, 129, 255, 256, 257, 513, 1000, 4097})
        sizes.push_back(n);
    return sizes;
}

// Few different coordinates, so that points lie on vertices, on edges and on the line of horizontal ones; many; and
// those that arithmetic fails on.
struct coordinates {
    const char *what;
    double (*draw)(std::mt19937_64 &);
};
const coordinates kinds[] = {
    {"grid", [](std::mt19937_64 &r) { return static_cast<double>(r() % 7); }},
    {"random", [](std::mt19937_64 &r) { return std::uniform_real_distribution<>(-180, 180)(r); }},
    {"wild",
     [](std::mt19937_64 &r) {
         using limits = std::numeric_limits<double>;
         const double of[] = {0.0,
                              -0.0,
                              1.0,
                              -1.0,
                              limits::infinity(),
                              -limits::infinity(),
                              limits::max(),
                              limits::lowest(),
                              limits::min(),
                              -limits::min(),
                              limits::denorm_min(),
                              -limits::denorm_min(),
                              limits::quiet_NaN(),
                              0x1p-540,
                              3 * limits::denorm_min(),
                              0x1p1000};
         return of[r() % std::size(of)];
     }},
    {"subnormal",
     [](std::mt19937_64 &r) {
         return (static_cast<double>(r() % 64) - 32) * std::numeric_limits<double>::denorm_min();
     }},
};

TEST(PlanarPip, CountsTheEdgesThatTheRuleCounts) {
    std::mt19937_64 random(10);
    for (const coordinates &kind : kinds) {
        ub4 counted = 0;
        for (const std::size_t n : ring_sizes()) {
            ring of(n);
            for (xy &v : of)
                v = {kind.draw(random), kind.draw(random)};
            for (int i = 0; i < 30; i++) {
                xy p{kind.draw(random), kind.draw(random)};
                if (n != 0 && i % 3 == 1)
                    p = of[random() % n];
                if (n != 0 && i % 3 == 2)
                    p.y = of[random() % n].y;
                const ub4 expected = told(of, p);
                counted += expected;
                ASSERT_EQ(crossings(of, p, i % 2 ? guard::behind : guard::before), expected)
                    << kind.what << ", " << n << " vertices, point " << p.x << " " << p.y;
            }
        }
        EXPECT_GT(counted, 1000u) << kind.what;
    }
}

// A spiral that goes far off between dense runs: blocks without, with few and with only straddling edges.
TEST(PlanarPip, BlocksWithFewAndManyStraddlingEdges) {
    std::mt19937_64 random(11);
    for (int round = 0; round < 40; round++) {
        ring of;
        while (of.size() < 700) {
            const double y = random() % 3 == 0 ? 0 : random() % 2 ? 5 : -5;
            for (std::size_t run = random() % 40; run-- != 0;)
                of.push_back(
                    {static_cast<double>(random() % 1000) / 10, y + static_cast<double>(random() % 64) / 64 - 0.5});
        }
        for (int i = 0; i < 20; i++) {
            const xy p{static_cast<double>(random() % 1000) / 10, static_cast<double>(random() % 64) / 64 - 0.5};
            ASSERT_EQ(crossings(of, p), told(of, p)) << round;
        }
    }
}

TEST(PlanarPip, SquareAndVerticesOnTheLine) {
    const ring square{{0, 0}, {4, 0}, {4, 4}, {0, 4}};
    EXPECT_EQ(crossings(square, {2, 2}), 1u);
    EXPECT_EQ(crossings(square, {-1, 2}), 2u);
    EXPECT_EQ(crossings(square, {5, 2}), 0u);
    EXPECT_EQ(crossings(square, {2, 5}), 0u);
    // A vertex on the line counts as below it: the lower border belongs to the square's inside, the upper one does not.
    EXPECT_EQ(crossings(square, {2, 0}), 1u);
    EXPECT_EQ(crossings(square, {2, 4}), 0u);
    // Strictly to the right: so does the left border, and not the right one.
    EXPECT_EQ(crossings(square, {0, 2}), 1u);
    EXPECT_EQ(crossings(square, {4, 2}), 0u);
    const ring tip{{0, 0}, {2, 2}, {4, 0}, {2, -2}};
    EXPECT_EQ(crossings(tip, {-1, 0}) % 2, 0u);
    EXPECT_EQ(crossings(tip, {1, 0}), 1u);
}

// From eight vertices on the last edge leads to vertex 4 * (n / 4 - 1).
TEST(PlanarPip, TheEdgeFromTheLastVertexToTheFirstIsNotLookedAt) {
    // Up and down on the left, so that every point's ray crosses what it crosses by the edges behind vertex 4.
    const ring octagon{{9, 0}, {9, 1}, {9, 2}, {9, 3}, {9, 4}, {-9, 4}, {-9, 3.5}, {-9, 3}};
    // 7 to 0 would pass at y = 1.5 through x = 0; 7 to 4 passes at y = 3.5 through x = 0.
    EXPECT_EQ(crossings(octagon, {-5, 0.5}), 1u);       // the edge 0 to 1 alone; the ring has two
    EXPECT_EQ(crossings(octagon, {-5, 3.75}), 1u + 1u); // 3 to 4 and 7 to 4
    const ring heptagon(octagon.begin() + 1, octagon.end());
    EXPECT_EQ(crossings(heptagon, {-5, 1.5}), 2u); // closed: 7 to 1 and 1 to 2
}

// Parity by the angle that a walk around the ring turns through, seen from the point.
bool inside_by_angles(const ring &of, xy p) {
    double turns = 0;
    for (std::size_t i = 0; i < of.size(); i++) {
        const xy a{of[i].x - p.x, of[i].y - p.y};
        const xy b{of[(i + 1) % of.size()].x - p.x, of[(i + 1) % of.size()].y - p.y};
        turns += std::atan2(a.x * b.y - a.y * b.x, a.x * b.x + a.y * b.y);
    }
    return std::lround(turns / (2 * std::numbers::pi)) % 2 != 0;
}

TEST(PlanarPip, RingsThatAHostHasClosed) {
    std::mt19937_64 random(12);
    std::uniform_real_distribution<> share(0, 1);
    ub4 insides = 0, wrong_unclosed = 0, wrong_once = 0;
    for (std::size_t k = 3; k <= 75; k++)
        for (int round = 0; round < 5; round++) {
            ring of(k); // a star around the origin
            for (std::size_t i = 0; i < k; i++) {
                const double angle =
                    (static_cast<double>(i) + 0.9 * share(random)) / static_cast<double>(k) * 2 * std::numbers::pi;
                const double radius = 0.2 + share(random);
                of[i] = {radius * std::cos(angle), radius * std::sin(angle)};
            }
            ring closed = of, once = of;
            once.push_back(of[0]);
            if (k >= 8)
                closed.resize(4 * ((k + 3) / 4 + 1), of[0]);
            for (int i = 0; i < 10; i++) {
                const xy p{2.4 * share(random) - 1.2, 2.4 * share(random) - 1.2};
                const bool inside = inside_by_angles(of, p);
                insides += inside;
                ASSERT_EQ(crossings(closed, p) % 2 != 0, inside) << k;
                wrong_unclosed += (crossings(of, p) % 2 != 0) != inside;
                wrong_once += (crossings(once, p) % 2 != 0) != inside;
            }
        }
    EXPECT_GT(insides, 500u);
    EXPECT_GT(wrong_unclosed, 100u); // left as it is, or closed by one vertex, a ring gives other answers
    EXPECT_GT(wrong_once, 100u);
}

} // namespace
} // namespace tavo::test
