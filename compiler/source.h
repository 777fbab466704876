// Boundary polygons as the compiler takes them in: read from GeoJSON, checked, united per zone.
#pragma once

#include <geos_c.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace offlinetz {

struct GeometryDeleter {
    void operator()(GEOSGeometry* geometry) const { GEOSGeom_destroy(geometry); }
};
using GeometryPtr = std::unique_ptr<GEOSGeometry, GeometryDeleter>;

// One zone with its valid, possibly multiple polygon in degrees (x longitude, y latitude).
struct Zone {
    std::string tzid;
    GeometryPtr area;
};

struct Source {
    std::vector<Zone> zones;  // Sorted by tzid, each once.
    size_t features = 0;      // Features read, sea zones left out.
    size_t seaFeatures = 0;   // Features of sea zones, which the nautical fallback answers.
    size_t points = 0;        // Points of the features' rings.
};

// Bad input: file, feature and reason in one text.
class InputError : public std::exception {
  public:
    explicit InputError(std::string message) : mMessage(std::move(message)) {}
    const char* what() const noexcept override { return mMessage.c_str(); }

  private:
    std::string mMessage;
};

// Must be called once before any other function here, on the main thread.
void StartGeometry();

// Reads GeoJSON FeatureCollections (plain or gzip) whose features carry a `tzid` property and a
// Polygon or MultiPolygon. `warn` receives one line for each polygon that was mended, `progress`
// a step's name with the parts done and in all. Throws InputError.
Source ReadSource(const std::vector<std::string>& paths,
                  const std::function<void(const std::string&)>& warn,
                  const std::function<void(const char*, size_t, size_t)>& progress);

// Whether the nautical fallback answers for this zone: Etc/GMT, Etc/GMT+5, ...
bool IsSeaZone(std::string_view tzid);

// Calls `visit` with each ring of a polygon or multipolygon: its points without the repeated
// last one, x then y, whether it cuts a hole, and whether it runs clockwise.
using RingVisitor =
        std::function<void(const std::vector<double>& xy, bool isHole, bool isClockwise)>;
void VisitRings(const GEOSGeometry* area, const RingVisitor& visit);

}  // namespace offlinetz
