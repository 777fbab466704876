// Boundary polygons as the compiler takes them in: read from GeoJSON, checked, united per zone.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "geometry.h"
#include "input_error.h"
#include "progress.h"

namespace offlinetz {

// One zone with its valid, possibly multiple polygon in degrees (x longitude, y latitude).
struct Zone {
    std::string tzid;
    GeometryPtr area;
    std::string where;  // File and number of the first feature with this tzid.
};

// What the zones lack because it is bad in the input.
struct LeftOut {
    size_t features = 0;
    size_t polygons = 0;       // Of features that were kept without them.
    size_t zones = 0;          // Zones of which nothing is left.
    double km2 = 0.0;          // The area of all of these, ...
    size_t ofUnknownArea = 0;  // ... but for so many of them.
};

struct Source {
    std::vector<Zone> zones;  // Sorted by tzid, each once.
    size_t features = 0;      // Features read, sea zones and bad ones left out.
    size_t seaFeatures = 0;   // Features of sea zones, which the nautical fallback answers.
    LeftOut leftOut;
    size_t points = 0;  // Points of the features' rings.
};

// One gibibyte: six times the world's boundaries.
constexpr uint64_t kDefaultMaxInputBytes = uint64_t{1} << 30;

struct SourceOptions {
    uint64_t maxInputBytes = kDefaultMaxInputBytes;  // Of each file, unpacked.
    size_t maxTzidBytes = 255;
    std::string tzidProperty = "tzid";
    // Take edges of more than 180 degrees of longitude to go the short way, across the
    // antimeridian, and cut polygons there. Else a polygon with such an edge is bad: it may as well
    // be meant to go the long way.
    bool crossAntimeridian = false;
    bool skipBad = false;  // Leave bad polygons and features out, with a warning for each.
};

// Reads GeoJSON FeatureCollections, text sequences or newline-delimited features (plain or gzip;
// the path "-" is standard input) whose features carry a `tzid` property and a Polygon or
// MultiPolygon. `warn` receives one line for each polygon that was mended and for each polygon,
// feature or zone left out, `progress` a step's name with the parts done and in all. Throws
// InputError, which lists all that is bad in all files.
//
// A polygon whose rings cross is mended: what its rings enclose becomes a valid one. It is bad
// where that changes areas by more than a slip of the pen, measured against the whole feature.
Source ReadSource(const std::vector<std::string>& paths,
                  const std::function<void(const std::string&)>& warn,
                  const ProgressCallback& progress, const SourceOptions& options = {});

// Whether the nautical fallback answers for this zone: Etc/GMT, Etc/GMT+5, ...
bool IsSeaZone(std::string_view tzid);

}  // namespace offlinetz
