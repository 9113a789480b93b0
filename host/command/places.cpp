// `tavo places`: which points lie in which polygons.
#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <numeric>

#include "host/column/names.h"
#include "host/command/explain.h"
#include "host/command/output.h"
#include "host/command/subcommands.h"
#include "host/error.h"
#include "host/place/locate.h"
#include "host/place/map.h"
#include "host/place/point_file.h"

namespace host {

namespace {

struct places_options {
    std::string points, places, name, longitude, latitude, map, library;
    ub4 limit = 0xffffffff;
    bool count = false, sphere = false, explain = false, check = false;
};

void write_file(const std::string &path, const std::string &text) {
    std::FILE *const file = std::fopen(path.c_str(), "wb");
    const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (file == nullptr || std::fclose(file) != 0 || !written)
        throw error(fmt::format("cannot write {}", path));
}

// The places that hold points, those with most of them first.
void print_counts(output &out, const std::vector<place> &places, const located &found, ub4 limit) {
    std::vector<std::size_t> order(places.size());
    std::iota(order.begin(), order.end(), 0u);
    std::erase_if(order, [&](std::size_t i) { return found[i].empty(); });
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return found[a].size() != found[b].size() ? found[a].size() > found[b].size() : places[a].name < places[b].name;
    });
    std::string text = "place,points\n";
    for (std::size_t i = 0; i < order.size() && i < limit; i++) {
        append_csv(text, places[order[i]].name);
        text += fmt::format(",{}\n", found[order[i]].size());
    }
    out.write(text);
    if (order.size() > limit)
        tell(fmt::format("the first {} of {} places that hold points", limit, order.size()));
}

// The records of the points that lie in a place, once for each, with the place behind their fields.
void print_points(output &out, const point_file &points, const std::vector<place> &places, const located &found,
                  ub4 limit) {
    const csv_file &file = points.file();
    std::vector<std::vector<ub4>> places_of(points.size());
    for (std::size_t i = 0; i < places.size(); i++)
        for (const ub4 p : found[i])
            places_of[p].push_back(static_cast<ub4>(i));
    std::vector<std::string> header = file.columns(), notes;
    header.push_back("place");
    header = made_names(header, notes);
    std::string text;
    append_csv_line(text, header.size(), [&](std::size_t i) { return std::string_view(header[i]); });
    ub8 record = 0, lines = 0;
    ub4 next = 0;
    file.records([&](const std::vector<csv_field> &fields, const csv_reader &) {
        if (next < points.size() && points.record(next) == record) {
            for (const ub4 place_number : places_of[next])
                if (lines++ < limit)
                    append_csv_line(text, fields.size() + 1, [&](std::size_t i) {
                        return i < fields.size() ? fields[i].value() : places[place_number].name;
                    });
            next++;
        }
        record++;
        if (text.size() > 1 << 16) {
            out.write(text);
            text.clear();
        }
    });
    out.write(text);
    if (lines > limit)
        tell(fmt::format("the first {} of {} rows", limit, lines));
}

int run(const places_options &options) {
    library library(choose_library(options.library, this_processor()));
    library.check_and_start(this_processor());
    const std::vector<place> places = read_places(options.places, options.name);
    const point_file file(options.points, options.longitude, options.latitude);
    for (const std::string &note : file.file().notes())
        tell(note);
    const point_span points{file.longitude(), file.latitude()};

    session session(library);
    std::vector<query_step> steps;
    const located found = options.sphere ? locate_on_sphere(session, points, places, steps)
                                         : locate_in_plane(session, points, places, steps);
    place_check check;
    if (options.check) {
        check = check_located(points, places, found, options.sphere);
        if (!check.difference.empty()) {
            tell("the check fails: " + check.difference);
            return check_failed;
        }
    }

    if (!options.map.empty()) // before the answer, which would be no answer if this fails
        write_file(options.map, svg_map(points, places, found));
    output out;
    if (options.count)
        print_counts(out, places, found, options.limit);
    else
        print_points(out, file, places, found, options.limit);
    std::vector<bool> held(points.size());
    for (const std::vector<ub4> &of_place : found)
        for (const ub4 p : of_place)
            held[p] = true;
    if (const auto outside = std::count(held.begin(), held.end(), false); outside != 0)
        tell(fmt::format("{} of {} points lie in no place", outside, points.size()));
    if (file.rows_without() != 0)
        tell(fmt::format("{} rows without a position", file.rows_without()));
    out.finish();
    if (options.explain)
        show(explain(steps, library));
    if (options.check)
        show(fmt::format("check: {} points in {} places by windings, in plain loops, {} on a border: agrees\n",
                         points.size(), places.size(), check.either));
    return answered;
}

} // namespace

subcommand add_places(CLI::App &app) {
    CLI::App *places = app.add_subcommand("places", "Print which points lie in which polygons");
    const auto options = std::make_shared<places_options>();
    places->add_option("POINTS", options->points, "CSV file with columns of latitude and longitude")->required();
    places->add_option("--in", options->places, "GeoJSON file of polygons")->required();
    places->add_option("--name", options->name, "The property that names a polygon; otherwise `name`");
    places->add_flag("--count", options->count, "How many points each place holds, and not which");
    places->add_option("--limit", options->limit, "Only so many lines")->check(CLI::PositiveNumber);
    places->add_flag("--sphere", options->sphere,
                     "Edges are arcs of great circles; otherwise straight lines of longitude and latitude");
    places->add_option("--longitude", options->longitude, "The column; otherwise longitude, lon, lng or long");
    places->add_option("--latitude", options->latitude, "The column; otherwise latitude or lat");
    places->add_option("--map", options->map, "Draw points and polygons into this SVG file");
    places->add_flag("--explain", options->explain, "Show each step: kernel, points in and out, time");
    places->add_flag("--check", options->check, "Recompute the answer in plain C++ by another method and compare");
    places->add_option("--library,--lib", options->library,
                       "The kernel library; otherwise $TAVO_LIB, then the one beside the command");
    places->footer(
        "A point in a hole lies outside; one in several polygons is printed once for each. Degrees: longitude\n"
        "from -180 to 180, latitude from -90 to 90. Ends with status 0, with 1 if --check does not agree, with\n"
        "2 if there is something wrong with the input.");
    return {places, [options] { return run(*options); }};
}

} // namespace host
