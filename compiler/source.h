// Reads boundary polygons from GeoJSON, checks them, and unites them zone by zone.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "geometry.h"
#include "input_error.h"
#include "progress_callback.h"
#include "zone_choice.h"

namespace offlinetz {

// One zone.
struct Zone {
    std::string tzid;
    GeometryPtr area;   // Valid; a polygon or several, in degrees (x longitude, y latitude).
    std::string where;  // File and index of the first feature with this tzid, for messages.
};

// The invalid parts of the input that were left out.
struct LeftOut {
    size_t features = 0;
    size_t polygons = 0;       // Of features that were otherwise kept.
    size_t zones = 0;          // Zones without any part left, for example on the grid.
    double km2 = 0.0;          // The area of all of these, as far as it is known.
    size_t ofUnknownArea = 0;  // How many of them have an unknown area.
};

struct Source {
    std::vector<Zone> zones;   // Sorted by tzid, each once.
    size_t features = 0;       // Features of land zones that were used.
    size_t seaFeatures = 0;    // Features of sea zones (IsSeaZone), which are ignored.
    size_t otherFeatures = 0;  // Features of zones that were not wanted.
    LeftOut leftOut;
    size_t points = 0;  // Of the rings of used features, as read.
};

// One gibibyte, six times the world's boundaries.
constexpr uint64_t kDefaultMaxInputBytes = uint64_t{1} << 30;

struct SourceOptions {
    uint64_t maxInputBytes = kDefaultMaxInputBytes;  // Of each file, unpacked.
    size_t maxTzidBytes = 255;
    // The property that names a feature's zone. If a feature does not have it, a member of the
    // feature itself with that name serves, such as "id".
    std::string tzidProperty = "tzid";
    // Edges of more than 180 degrees of longitude go the short way, across the antimeridian, and
    // polygons are cut there. Otherwise a polygon with such an edge is invalid, because the edge
    // may as well be meant to go the long way.
    bool crossAntimeridian = false;
    ZoneChoice zones;
    bool skipBad = false;  // Leave invalid polygons, features and zones out, with a warning.
};

// Reads GeoJSON FeatureCollections, single features, text sequences or newline-delimited features,
// plain or gzip; the path "-" is standard input. Each feature has a property that names its zone
// and a Polygon or MultiPolygon. Memory holds the text of one file at a time, and the polygons of
// all files.
//
// A polygon whose rings cross is repaired: the area that its rings enclose becomes a valid polygon.
// It is invalid if the repairs of its feature change too much area (kRepairShare in
// input_polygon.h). Longitudes may lie up to a turn beyond 180 or -180 degrees.
//
// `warn` receives one line for each polygon that was repaired, for each feature cut at the
// antimeridian, and for each polygon, feature or zone left out. Throws InputError with all faults
// of all files, also if no land zone is left.
Source ReadSource(const std::vector<std::string>& paths,
                  const std::function<void(const std::string&)>& warn,
                  const ProgressCallback& progress, const SourceOptions& options = {});

// Whether the nautical fallback answers for this zone, such as Etc/GMT or Etc/GMT+5. Databases do
// not hold such zones.
bool IsSeaZone(std::string_view tzid);

}  // namespace offlinetz
