// A picture of places and points.
#pragma once

#include <string>
#include <vector>

#include "host/place/geojson.h"
#include "host/place/locate.h"

namespace host {

// The text of an SVG file: places in one colour, points in another, those in no place hollow. Points that span half the
// world or more are shown on the whole of it, in the Equal Earth projection of Savric, Patterson and Jenny (2018);
// others on a map of their surroundings.
std::string svg_map(const point_span &, const std::vector<place> &, const located &);

} // namespace host
