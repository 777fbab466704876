// What changed from one database to the next, exactly: areas, not samples.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "compiler/geometry.h"
#include "compiler/progress.h"
#include "zones.h"

namespace offlinetz {

// Land that had one zone and has another; an empty name is none.
struct Change {
    std::string from;
    std::string to;
    double km2;
    std::array<double, 4> box;     // West, south, east, north.
    std::array<double, 2> sample;  // Latitude and longitude of a point in it.
    GeometryPtr area;              // Polygons in degrees.
};

struct Differences {
    std::vector<std::string> added;    // Zones of the new database alone, ...
    std::vector<std::string> removed;  // ... of the old one alone, ...
    // ... and old and new names of those that have nearly the same land.
    std::vector<std::pair<std::string, std::string>> renamed;
    std::vector<Change> changes;  // The largest first.
};

// Compares databases with the scales `oldScale` and `newScale` (units in 90 degrees of latitude).
// Needs StartGeometry (geometry.h). Throws
// std::runtime_error where rings bound no area.
Differences Compare(const InspectedDatabase& oldOne, int32_t oldScale,
                    const InspectedDatabase& newOne, int32_t newScale,
                    const ProgressCallback& progress);

}  // namespace offlinetz
