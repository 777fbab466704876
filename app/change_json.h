// A part of the land that changed hands, as the commands write it.
#pragma once

#include <differences.h>

#include <nlohmann/json.hpp>

// "from" and "to", null for no zone, "km2", "box" (west, south, east, north) and "sample"
// (latitude, longitude).
nlohmann::ordered_json ChangeJson(const offlinetz::Change& change);
