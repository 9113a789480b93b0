#include "host/place/geojson.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <set>

#include "host/column/names.h"
#include "host/column/text_file.h"
#include "host/error.h"

namespace host {

using nlohmann::json;

void degree_box::add(double longitude, double latitude) {
    west = std::min(west, longitude);
    east = std::max(east, longitude);
    south = std::min(south, latitude);
    north = std::max(north, latitude);
}

std::string in_words(const place &of, const place_ring &ring) {
    return fmt::format("polygon {}, ring {} of {}", ring.polygon, ring.number, of.name);
}

namespace {

// Reads one file. The message of every error begins with the file and the place in it.
class geojson_reader {
public:
    geojson_reader(const std::string &path, const std::string &field) : path_(path), field_(field) {}

    std::vector<place> read() {
        const block<char> text = read_text_file(path_);
        json file;
        try {
            file = json::parse(text.data(), text.data() + text.size());
        } catch (const json::exception &e) {
            fail("not JSON", without_number(e.what()));
        }
        const std::string type = type_of(file, "the file");
        if (type == "FeatureCollection") {
            const json &features = array_in(file, "features", "the file");
            for (std::size_t i = 0; i < features.size(); i++)
                feature(features[i], i + 1);
        } else if (type == "Feature") {
            feature(file, 1);
        } else {
            places_.push_back({"place 1", {}});
            geometry(file, "the geometry");
        }
        if (!field_.empty() && !field_found_)
            throw error(fmt::format("{}: no feature has the property '{}'{}", path_, field_,
                                    instead_of(field_, {properties_.begin(), properties_.end()}, "properties")));
        std::erase_if(places_, [](const place &p) { return p.rings.empty(); });
        if (places_.empty())
            throw error(path_ + ": there is no polygon in it");
        return std::move(places_);
    }

private:
    [[noreturn]] void fail(const std::string &where, const std::string &what) const {
        throw error(fmt::format("{}: {}: {}", path_, where, what));
    }
    // The parser's words: "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ..."
    static std::string without_number(const std::string &what) {
        const std::size_t end = what.find("] ");
        return end == std::string::npos ? what : what.substr(end + 2);
    }

    std::string type_of(const json &object, const std::string &where) const {
        if (!object.is_object())
            fail(where, "not an object of GeoJSON");
        const auto type = object.find("type");
        if (type == object.end() || !type->is_string())
            fail(where, "it has no type, and so is no GeoJSON");
        return *type;
    }
    const json &array_in(const json &object, const char *name, const std::string &where) const {
        const auto found = object.find(name);
        if (found == object.end() || !found->is_array())
            fail(where, fmt::format("it has no array '{}'", name));
        return *found;
    }

    void feature(const json &of, std::size_t number) {
        std::string where = fmt::format("feature {}", number);
        if (const std::string type = type_of(of, where); type != "Feature")
            fail(where, fmt::format("a {} and no Feature", type));
        std::string name = where;
        if (const auto properties = of.find("properties"); properties != of.end() && properties->is_object()) {
            std::vector<std::string> names;
            for (const auto &[key, value] : properties->items())
                names.push_back(key);
            properties_.insert(names.begin(), names.end());
            const auto wanted = find_name(field_.empty() ? "name" : field_, names);
            if (wanted) {
                field_found_ = true;
                const json &value = (*properties)[names[*wanted]];
                name = value.is_string() ? value.get<std::string>() : value.is_null() ? where : value.dump();
                where += fmt::format(" ({})", name);
            }
        }
        const auto shape = of.find("geometry");
        if (shape == of.end())
            fail(where, "it has no geometry");
        places_.push_back({name, {}});
        if (!shape->is_null())
            geometry(*shape, where);
    }

    void geometry(const json &of, const std::string &where) {
        const std::string type = type_of(of, where);
        if (type == "Polygon") {
            polygon(array_in(of, "coordinates", where), where);
        } else if (type == "MultiPolygon") {
            const json &all = array_in(of, "coordinates", where);
            for (std::size_t i = 0; i < all.size(); i++)
                polygon(all[i], fmt::format("{}, polygon {}", where, i + 1));
        } else if (type == "GeometryCollection") {
            const json &all = array_in(of, "geometries", where);
            for (std::size_t i = 0; i < all.size(); i++) {
                if (all[i].is_object() && all[i].contains("geometries"))
                    fail(where, "a collection of geometries within another");
                geometry(all[i], fmt::format("{}, geometry {}", where, i + 1));
            }
        } else {
            fail(where, fmt::format("a {} and no polygon", type));
        }
    }

    void polygon(const json &rings, const std::string &where) {
        if (!rings.is_array())
            fail(where, "not an array of rings");
        place &to = places_.back();
        const ub4 number = to.rings.empty() ? 1 : to.rings.back().polygon + 1;
        for (std::size_t i = 0; i < rings.size(); i++)
            to.rings.push_back(
                ring(rings[i], fmt::format("{}, ring {}", where, i + 1), number, static_cast<ub4>(i + 1)));
    }

    place_ring ring(const json &points, const std::string &where, ub4 polygon, ub4 number) const {
        if (!points.is_array())
            fail(where, "not an array of points");
        if (points.size() < 4)
            fail(where, fmt::format("{} points; a ring has at least 4, the last being the first again", points.size()));
        if (points.size() > 0x40000000)
            fail(where, fmt::format("{} points are too many", points.size()));
        place_ring made;
        made.polygon = polygon;
        made.number = number;
        for (std::size_t i = 0; i < points.size(); i++) {
            const json &p = points[i];
            const auto bad = [&](const std::string &what) { fail(fmt::format("{}, point {}", where, i + 1), what); };
            if (!p.is_array() || p.size() < 2 || !p[0].is_number() || !p[1].is_number())
                bad("not an array of longitude and latitude");
            const double longitude = p[0], latitude = p[1];
            if (!(longitude >= -180 && longitude <= 180))
                bad(fmt::format("longitude {} is not from -180 to 180", longitude));
            if (!(latitude >= -90 && latitude <= 90))
                bad(fmt::format("latitude {} is not from -90 to 90", latitude));
            made.longitude.push_back(longitude);
            made.latitude.push_back(latitude);
            made.box.add(longitude, latitude);
        }
        if (made.longitude.front() != made.longitude.back() || made.latitude.front() != made.latitude.back())
            fail(where, "it is not closed: the last point is not the first");
        made.longitude.pop_back();
        made.latitude.pop_back();
        return made;
    }

    const std::string &path_, &field_;
    std::vector<place> places_;
    std::set<std::string> properties_;
    bool field_found_ = false;
};

} // namespace

std::vector<place> read_places(const std::string &path, const std::string &field) {
    return geojson_reader(path, field).read();
}

} // namespace host
