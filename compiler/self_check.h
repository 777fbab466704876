// Compares a compiled database with the polygons that it was made from.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "database/grid.h"
#include "source.h"

namespace offlinetz {

// Answers from the source polygons themselves.
class SourceLookup {
  public:
    explicit SourceLookup(const Source& source);
    ~SourceLookup();
    SourceLookup(const SourceLookup&) = delete;
    SourceLookup& operator=(const SourceLookup&) = delete;

    // The tzids of the zones that contain a point, border included, sorted.
    std::vector<std::string> ZonesAt(double lat, double lon) const;

    // Metres from a point to the nearest border of the zone `tzid`; infinite beyond `within` metres
    // or for an unknown zone.
    double MetresToBorder(double lat, double lon, const std::string& tzid, double within) const;

    // A point within `metres` of a border, by four numbers from 0 to 1 (1 excluded).
    void PointNearBorder(double metres, const double (&random)[4], double* lat, double* lon) const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

// The identifiers of the zones that a database has at a point, sorted; none at sea.
std::vector<std::string> ZonesAt(const ZDDatabase& database, float lat, float lon);

struct SelfCheckResult {
    size_t points = 0;
    size_t nearBorder = 0;        // Points drawn near a border.
    size_t differences = 0;       // Answers that differ from the source ...
    double greatestMetres = 0.0;  // ... and how far from a border of a zone in dispute at most.
    std::vector<std::string> failures;  // One line for each that lies further than allowed.
};

// Looks up `points` points, half of them within 100 m of a border, or within one and a half times
// the distance that is allowed where that is more; the others anywhere on the sphere. A different
// answer fails where each zone in dispute has its border further away than `tolerance` metres and
// what Grid::RoundingMetres says. The same seed gives the same points.
SelfCheckResult SelfCheck(const Source& source, const ZDDatabase& database, const Grid& grid,
                          double tolerance, size_t points, uint64_t seed,
                          const ProgressCallback& progress);

}  // namespace offlinetz
