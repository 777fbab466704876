// Compares a compiled database with the polygons from which it was made.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "certify.h"
#include "database/grid.h"
#include "progress_callback.h"
#include "source.h"

namespace offlinetz {

// Looks points up in the source polygons themselves, by R-trees over polygons and over parts of
// borders. Borrows the source, which must outlive it. Needs StartGeometry (geometry.h) and its
// thread. Points are in degrees.
class SourceLookup {
  public:
    explicit SourceLookup(const Source& source);
    ~SourceLookup();
    SourceLookup(const SourceLookup&) = delete;
    SourceLookup& operator=(const SourceLookup&) = delete;

    // The tzids of the zones that contain a point, border included; sorted, each once.
    std::vector<std::string> ZonesAt(double lat, double lon) const;

    // The metres from a point to the nearest border of the zone `tzid`; infinite if there is none
    // within `within` metres.
    double MetresToBorder(double lat, double lon, const std::string& tzid, double within) const;

    // Sets `*lat` and `*lon` to a point within `metres` of a border. The four numbers, each at
    // least 0 and below 1, determine the point. All edges of borders are equally likely.
    void PointNearBorder(double metres, const double (&random)[4], double* lat, double* lon) const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

// The identifiers of the zones that a database has at a point, sorted; none if the nautical
// fallback answers.
std::vector<std::string> ZonesAt(const ZDDatabase& database, float lat, float lon);

// A distance of a difference from a border, as a text.
std::string DifferenceText(double metres);

struct SelfCheckResult {
    size_t points = 0;
    size_t nearBorder = 0;   // Points chosen near a border.
    size_t probes = 0;       // Points chosen beside the worst edges; not in `points`.
    size_t differences = 0;  // Answers that differ from the source.
    // Greatest distance of a difference from a disputed border; infinite if it is more than ten
    // times the certified error.
    double greatestMetres = 0.0;
    std::vector<std::string> failures;  // One line for each difference further away than allowed.
};

// Looks up `points` points in the source and in the database and compares the answers. Half of the
// points lie within 100 m of a border, or within one and a half times the certified error if that
// is more. The others are spread evenly over the sphere. Further points lie beside each of the
// worst edges that the certificate lists, where it expects the reader to be wrong. The same seed
// gives the same points.
//
// A zone is in dispute if only one of both answers has it. A different answer is a failure if the
// border of a zone in dispute is further away than the certificate says.
SelfCheckResult SelfCheck(const Source& source, const ZDDatabase& database, const Grid& grid,
                          const Certificate& certificate, size_t points, uint64_t seed,
                          const ProgressCallback& progress);

}  // namespace offlinetz
