// Areas as GeoJSON (RFC 7946), which any geographic program opens and the compiler takes in.
#pragma once

#include <geos_c.h>

#include <nlohmann/json.hpp>
#include <string>

namespace offlinetz {

// A Feature on one line, with these properties and the polygons of a geometry in degrees, seven
// decimals each.
std::string FeatureOf(const nlohmann::ordered_json& properties, const GEOSGeometry* area);

}  // namespace offlinetz
