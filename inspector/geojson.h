// Areas as GeoJSON (RFC 7946), which geographic programs open and the compiler reads.
#pragma once

#include <geos_c.h>

#include <nlohmann/json.hpp>
#include <string>

#include "differences.h"

namespace offlinetz {

// A Feature on one line, with the given properties and the polygons of `area`, which is in degrees.
// Coordinates have seven decimals.
std::string FeatureOf(const nlohmann::ordered_json& properties, const GEOSGeometry* area);

// An object with "from" and "to" (null for no zone), "km2", "box" (west, south, east, north in
// degrees) and "sample" (latitude, longitude).
nlohmann::ordered_json ChangeJson(const Change& change);

// `value` rounded to the nearest multiple of 1 / `parts`, for output.
double Rounded(double value, double parts);

}  // namespace offlinetz
