// Areas as GeoJSON (RFC 7946), which any geographic program opens and the compiler takes in.
#pragma once

#include <geos_c.h>

#include <nlohmann/json.hpp>
#include <string>

#include "differences.h"

namespace offlinetz {

// A Feature on one line, with these properties and the polygons of a geometry in degrees, seven
// decimals each.
std::string FeatureOf(const nlohmann::ordered_json& properties, const GEOSGeometry* area);

// A part of the land that changes hands: "from" and "to" (null for no zone), "km2", "box" (west,
// south, east, north) and "sample" (latitude, longitude).
nlohmann::ordered_json ChangeJson(const Change& change);

// `value` rounded to a multiple of 1 / `parts`, for writing.
double Rounded(double value, double parts);

}  // namespace offlinetz
