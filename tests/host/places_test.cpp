// Places: GeoJSON, points, and the answers of the library beside GEOS and beside what is known of the world.
#include <cmath>
#include <random>

#ifdef TAVO_WITH_GEOS
#include <geos_c.h>
#endif

#include "host/error.h"
#include "host/place/locate.h"
#include "host/place/point_file.h"
#include "tests/host/command_fixture.h"

namespace {

using namespace host;

const std::vector<place> &countries() {
    static const std::vector<place> all = read_places(TAVO_DATA "/countries.geojson", "");
    return all;
}
const point_file &cities() {
    static const point_file all(TAVO_DATA "/cities.csv", "", "");
    return all;
}

class Places : public ::testing::Test {
protected:
    located in_plane(const point_span &points, const std::vector<place> &places) {
        std::vector<query_step> steps;
        return locate_in_plane(session_, points, places, steps);
    }
    located on_sphere(const point_span &points, const std::vector<place> &places) {
        std::vector<query_step> steps;
        return locate_on_sphere(session_, points, places, steps);
    }
    library library_{TAVO_LIBRARY_PATH};
    session session_{library_};
};

place made_place(const std::vector<std::vector<std::pair<double, double>>> &rings) {
    place made{"made", {}};
    for (const auto &points : rings) {
        place_ring ring;
        ring.polygon = ring.number = 1;
        for (const auto &[x, y] : points) {
            ring.longitude.push_back(x);
            ring.latitude.push_back(y);
            ring.box.add(x, y);
        }
        made.rings.push_back(ring);
    }
    return made;
}

// Rings of every size around 8 vertices and beyond, with holes and islands in them: every answer against windings,
// which look at each edge of each ring.
TEST_F(Places, RingsOfEverySizeWithHoles) {
    std::mt19937_64 random(30);
    std::uniform_real_distribution<> share(0, 1);
    ub8 inside = 0;
    for (std::size_t n = 3; n <= 40; n++) {
        std::vector<std::vector<std::pair<double, double>>> rings;
        for (const double size : {40.0, 20.0, 10.0, 4.0}) {
            rings.emplace_back();
            for (std::size_t i = 0; i < n; i++) {
                const double angle = (static_cast<double>(i) + 0.8 * share(random)) / static_cast<double>(n) * 2 * M_PI;
                const double radius = size * (0.7 + 0.3 * share(random));
                rings.back().push_back({10 + radius * std::cos(angle), 5 + radius * std::sin(angle)});
            }
        }
        const std::vector<place> places{made_place(rings), made_place({rings[1]})};
        std::vector<double> x, y;
        for (int i = 0; i < 200; i++) {
            x.push_back(10 + 45 * (2 * share(random) - 1));
            y.push_back(5 + 45 * (2 * share(random) - 1));
        }
        const located plane = in_plane({x, y}, places), sphere = on_sphere({x, y}, places);
        EXPECT_EQ(check_located({x, y}, places, plane, false).difference, "") << n;
        EXPECT_EQ(check_located({x, y}, places, sphere, true).difference, "") << n;
        inside += plane[0].size();
        // And the check notices an answer that is wrong by one point, missing or too much.
        for (const bool spherical : {false, true})
            for (const bool missing : {false, true}) {
                located wrong = spherical ? sphere : plane;
                if (missing)
                    wrong[0].pop_back();
                else
                    for (ub4 p = 0; p < x.size(); p++)
                        if (!std::binary_search(wrong[1].begin(), wrong[1].end(), p)) {
                            wrong[1].insert(std::lower_bound(wrong[1].begin(), wrong[1].end(), p), p);
                            break;
                        }
                EXPECT_NE(check_located({x, y}, places, wrong, spherical).difference, "");
            }
    }
    EXPECT_GT(inside, 1000u);
}

TEST_F(Places, PolesAndTheDateLine) {
    const std::vector<place> places{
        made_place({{{0, 80}, {90, 80}, {180, 80}, {-90, 80}}}),           // holds the pole, on the sphere
        made_place({{{170, -20}, {-170, -20}, {-170, -10}, {170, -10}}})}; // over the date line
    const std::vector<double> x{10, 55, 179, -179, 0, 175}, y{90, 85, -15, -15, -15, -15};
    EXPECT_EQ(on_sphere({x, y}, places), (located{{0, 1}, {2, 3, 5}}));
    // In the plane the second one is the long way around.
    EXPECT_EQ(in_plane({x, y}, places)[1], (std::vector<ub4>{4}));
    // More than a hemisphere is refused, by name.
    const std::vector<place> large{made_place({{{0, -60}, {90, -60}, {180, 60}, {-90, -60}}})};
    EXPECT_THROW(on_sphere({x, y}, large), error);
}

TEST_F(Places, RealCountriesAgreeInPlaneAndOnSphereAndWithWindings) {
    const point_span points{cities().longitude(), cities().latitude()};
    const located plane = in_plane(points, countries()), sphere = on_sphere(points, countries());
    std::size_t in_plane_all = 0, differ = 0;
    for (std::size_t i = 0; i < countries().size(); i++) {
        in_plane_all += plane[i].size();
        std::vector<ub4> only;
        std::set_symmetric_difference(plane[i].begin(), plane[i].end(), sphere[i].begin(), sphere[i].end(),
                                      std::back_inserter(only));
        differ += only.size();
    }
    EXPECT_GT(in_plane_all, cities().size() * 95 / 100);
    EXPECT_LT(differ, 10u); // edges of at most a degree run within 130 m of one another
    // A part of the world: the plain loops take their time.
    const std::vector<place> some(countries().begin() + 150, countries().begin() + 190);
    for (const bool spherical : {false, true}) {
        const located &all = spherical ? sphere : plane;
        const place_check checked = check_located(points, some, {all.begin() + 150, all.begin() + 190}, spherical);
        EXPECT_EQ(checked.difference, "") << spherical;
    }
}

#ifdef TAVO_WITH_GEOS
// Cities, and points that lie thick along the borders.
TEST_F(Places, RealCountriesAgreeWithGeos) {
    std::vector<double> x(cities().longitude()), y(cities().latitude());
    std::mt19937_64 random(31);
    std::normal_distribution<> off(0, 0.05);
    for (const place &p : countries())
        for (const place_ring &r : p.rings)
            for (ub4 i = 0; i < r.size(); i += 17) {
                x.push_back(std::clamp(r.longitude[i] + (i % 2 ? off(random) : 0), -180.0, 180.0));
                y.push_back(std::clamp(r.latitude[i] + (i % 3 ? off(random) : 0), -90.0, 90.0));
            }
    const located found = in_plane({x, y}, countries());

    const GEOSContextHandle_t geos = GEOS_init_r();
    ub8 tested = 0, inside = 0, on_edges = 0;
    for (std::size_t c = 0; c < countries().size(); c++) {
        // All rings at once, by parity: lines of one boundary, and a point in a polygon made of each ring.
        std::vector<ub1> odd(x.size());
        std::vector<bool> near_edge(x.size());
        for (const place_ring &r : countries()[c].rings) {
            GEOSCoordSequence *line = GEOSCoordSeq_create_r(geos, r.size() + 1, 2);
            for (ub4 i = 0; i <= r.size(); i++)
                GEOSCoordSeq_setXY_r(geos, line, i, r.longitude[i % r.size()], r.latitude[i % r.size()]);
            GEOSGeometry *ring = GEOSGeom_createLinearRing_r(geos, line);
            GEOSGeometry *polygon = GEOSGeom_createPolygon_r(geos, GEOSGeom_clone_r(geos, ring), nullptr, 0);
            const GEOSPreparedGeometry *prepared = GEOSPrepare_r(geos, polygon), *edges = GEOSPrepare_r(geos, ring);
            for (std::size_t p = 0; p < x.size(); p++) {
                if (!r.box.holds(x[p], y[p]))
                    continue;
                GEOSGeometry *point = GEOSGeom_createPointFromXY_r(geos, x[p], y[p]);
                odd[p] ^= GEOSPreparedContains_r(geos, prepared, point) == 1;
                tested++;
                if (GEOSPreparedDistanceWithin_r(geos, edges, point, 1e-12) == 1)
                    near_edge[p] = true;
                GEOSGeom_destroy_r(geos, point);
            }
            GEOSPreparedGeom_destroy_r(geos, edges);
            GEOSPreparedGeom_destroy_r(geos, prepared);
            GEOSGeom_destroy_r(geos, polygon);
            GEOSGeom_destroy_r(geos, ring);
        }
        for (ub4 p = 0; p < x.size(); p++) {
            const bool told = std::binary_search(found[c].begin(), found[c].end(), p);
            inside += told;
            on_edges += near_edge[p];
            if (!near_edge[p]) {
                ASSERT_EQ(told, odd[p] != 0) << countries()[c].name << " " << x[p] << " " << y[p];
            }
        }
    }
    GEOS_finish_r(geos);
    EXPECT_GT(tested, 20000u);
    EXPECT_GT(inside, 10000u);
    EXPECT_LT(on_edges, inside / 4);
}
#endif

class PlacesCommand : public Command {
protected:
    const std::string countries_ = "'" TAVO_DATA "/countries.geojson'", cities_ = "'" TAVO_DATA "/cities.csv'";
    const std::string square_ =
        R"({"type":"Polygon","coordinates":[[[0,0],[4,0],[4,4],[0,4],[0,0]],[[1,1],[2,1],[2,2],[1,2],[1,1]]]})";

    std::string feature(const std::string &properties, const std::string &geometry) const {
        return R"({"type":"Feature","properties":)" + properties + R"(,"geometry":)" + geometry + "}";
    }
    std::string points() const {
        return file("points.csv", "id,lat,lon\na,0.5,0.5\nb,1.5,1.5\nc,,\nd,9,9\n\"e,f\", 3 ,+3\n");
    }
};

TEST_F(PlacesCommand, AirportsInCountries) {
    outcome o = run("places " + airports_ + " --in " + countries_ + " --count --explain --check");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_TRUE(o.out.starts_with("place,points\nUnited States of America,")) << o.out;
    for (const char *part :
         {"\nPuerto Rico,", "tavo_spatial_pip_dydi", "check: 3376 points in 241 places", ": agrees\n"})
        EXPECT_NE((o.out + o.err).find(part), std::string::npos) << part << o.out << o.err;
    EXPECT_NE(o.err.find(" of 3376 points lie in no place\n"), std::string::npos) << o.err;
    o = run("places " + airports_ + " --in " + countries_ + " --count --limit 1 --sphere --explain --check");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.err.find("tavo_spheric_pip_dydi"), std::string::npos) << o.err;
    EXPECT_NE(o.err.find("the first 1 of "), std::string::npos) << o.err;
}

TEST_F(PlacesCommand, RowsHolesNamesAndPictures) {
    const std::string one = file("one.geojson", square_);
    for (const std::string sphere : {"", " --sphere"}) {
        outcome o = run("places " + points() + " --check --in " + one + sphere);
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_TRUE(o.out.starts_with("id,lat,lon,place\na,0.5,0.5,place 1\n\"e,f\", 3 ,+3,place 1\n")) << o.out;
        EXPECT_TRUE(o.err.starts_with("tavo: 2 of 4 points lie in no place\ntavo: 1 rows without a position\ncheck: "))
            << o.err;
    }
    // The name: a property that may be a number; without one the feature's number; two features hold the points.
    const std::string two = file("two.geojson", R"({"type":"FeatureCollection","features":[)" +
                                                    feature(R"({"Name":"x, y","code":7})", square_) + "," +
                                                    feature("null", square_) + "," + feature("{}", "null") + "]}");
    EXPECT_EQ(run("places " + points() + " --count --in " + two).out, "place,points\nfeature 2,2\n\"x, y\",2\n");
    EXPECT_EQ(run("places " + points() + " --limit 2 --name code --in " + two).out,
              "id,lat,lon,place\na,0.5,0.5,7\na,0.5,0.5,feature 2\n");
    EXPECT_EQ(run("places " + points() + " --count --latitude lon --longitude lat --in " + two).status, 0);

    const std::string picture = folder_ + "/map.svg";
    for (const std::string &in : {one, folder_ + "/../" + folder_.substr(5) + "/two.geojson"}) {
        EXPECT_EQ(run("places " + points() + " --in " + in + " --map " + picture).status, 0);
        const std::string svg = content(picture);
        EXPECT_TRUE(svg.starts_with("<svg ") && svg.ends_with("</svg>\n")) << svg;
        EXPECT_NE(svg.find("4 points: 2 in "), std::string::npos) << svg;
        EXPECT_EQ(svg.find("nan"), std::string::npos);
    }
}

TEST_F(PlacesCommand, BadInputIsToldWithItsPlace) {
    const auto refused = [&](const std::string &json, const std::string &message) {
        expect_refused("places " + points() + " --in " + file("bad.geojson", json), "bad.geojson: " + message);
    };
    refused("{\"type\":\n \"Polygon\",]", "not JSON: parse error at line 2, column 12");
    refused("", "not JSON: ");
    refused("[1, 2]", "the file: not an object of GeoJSON");
    refused(R"({"coordinates":[]})", "the file: it has no type");
    refused(R"({"type":"FeatureCollection"})", "the file: it has no array 'features'");
    refused(feature("{}", R"({"type":"Point","coordinates":[1,2]})"), "feature 1: a Point and no polygon");
    refused(R"({"type":"Polygon","coordinates":[[[0,0],[1,0],[0,0]]]})",
            "the geometry, ring 1: 3 points; a ring has at least 4");
    refused(R"({"type":"Polygon","coordinates":[[[0,0],[1,0],[1,1],[0,1]]]})",
            "the geometry, ring 1: it is not closed");
    refused(
        feature(R"({"name":"Here"})",
                R"({"type":"MultiPolygon","coordinates":[[[[0,0],[1,0],[1,1],[0,0]]],[[[0,0],[181,0],[1,1],[0,0]]]]})"),
        "feature 1 (Here), polygon 2, ring 1, point 2: longitude 181 is not from -180 to 180");
    refused(R"({"type":"Polygon","coordinates":[[[0,0],[1,0],["x",1],[0,0]]]})",
            "the geometry, ring 1, point 3: not an array");
    refused(R"({"type":"FeatureCollection","features":[]})", "there is no polygon in it");
    const std::string one = file("one.geojson", feature(R"({"name":"a"})", square_));
    expect_refused("places " + points() + " --name nome --in " + one,
                   "no feature has the property 'nome'; did you mean name?");
    expect_refused("places " + flights_ + " --in " + one, "no column is called longitude; name it with --longitude");
    const auto bad_points = [&](const std::string &csv, const std::string &message) {
        expect_refused("places " + file("bad.csv", csv) + " --in " + one, message);
    };
    bad_points("lat,lon\n1,2\n1,2x\n", "bad.csv line 3: longitude '2x' is no number");
    bad_points("lat,lon\n-90.5,2\n", "bad.csv line 2: latitude -90.5 is not from -90 to 90");
    bad_points("lat,lon\nnan,2\n", "bad.csv line 2: latitude");
    expect_refused("places " + points() + " --in " + folder_ + "/none.geojson", "none.geojson");
    expect_refused("places " + points() + " --in " + one + " --map " + folder_ + "/no/where.svg", "cannot write");
    const std::string large =
        file("large.geojson", R"({"type":"Polygon","coordinates":[[[0,-60],[90,-60],[180,60],[-90,-60],[0,-60]]]})");
    expect_refused("places " + points() + " --sphere --in " + large, "polygon 1, ring 1 of place 1 does not fit");
}

} // namespace
