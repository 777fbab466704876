// The differences between two databases: exact areas, not samples.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "compiler/geometry.h"
#include "compiler/progress_callback.h"
#include "zones.h"

namespace offlinetz {

// The area whose zone changes from `from` to `to`. An empty name means no zone.
struct Change {
    std::string from;
    std::string to;
    double km2;                    // Square kilometres.
    std::array<double, 4> box;     // Bounding box in degrees: west, south, east, north.
    std::array<double, 2> sample;  // A point in the area: latitude and longitude in degrees.
    GeometryPtr area;              // Polygons in degrees.
};

struct Differences {
    std::vector<std::string> added;    // Zones in the new database only.
    std::vector<std::string> removed;  // Zones in the old database only.
    // Old and new names of zones that have nearly the same area. They are not in `added` and
    // `removed`.
    std::vector<std::pair<std::string, std::string>> renamed;
    std::vector<Change> changes;  // The largest first.
};

// Compares two databases. `oldScale` and `newScale` are the numbers of units in 90 degrees of
// latitude. Zones are matched by identifier. Calls `progress` on the calling thread. Needs
// StartGeometry (geometry.h). Throws std::runtime_error if rings cross and so enclose no valid
// area, and std::bad_alloc.
Differences Compare(const InspectedDatabase& oldOne, int32_t oldScale,
                    const InspectedDatabase& newOne, int32_t newScale,
                    const ProgressCallback& progress);

}  // namespace offlinetz
