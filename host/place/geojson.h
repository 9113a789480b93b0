// Places: polygons with names, read from GeoJSON.
#pragma once

#include <string>
#include <vector>

#include <tavo/tavo_types.h>

namespace host {

// A range of longitudes and one of latitudes, in degrees.
struct degree_box {
    double west = 180, south = 90, east = -180, north = -90;

    void add(double longitude, double latitude);
    bool holds(double longitude, double latitude) const {
        return longitude >= west && longitude <= east && latitude >= south && latitude <= north;
    }
    bool meets(const degree_box &other) const {
        return west <= other.east && other.west <= east && south <= other.north && other.south <= north;
    }
};

// Vertices in degrees. The first is not repeated at the end.
struct place_ring {
    std::vector<double> longitude, latitude;
    degree_box box;
    ub4 polygon, number; // of the place and within its polygon, from 1, for messages

    ub4 size() const { return static_cast<ub4>(longitude.size()); }
};

// Outlines, holes and islands alike: what an odd number of rings holds is in the place.
struct place {
    std::string name;
    std::vector<place_ring> rings;
};

// The polygons of a GeoJSON file: a collection of features, a feature or a geometry. A place is called by its feature's
// property `field`; if that is empty, by `name` or by its number. Features without a geometry are left out. Throws,
// with the place in the file, for all that is no polygon on the globe.
std::vector<place> read_places(const std::string &path, const std::string &field);

// "polygon 2, ring 1 of France"
std::string in_words(const place &, const place_ring &);

} // namespace host
