#include "safe_radius.h"

#include <reader/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "decode.h"

namespace offlinetz {

namespace {

constexpr double kKilometresPerDegree = 111.195;
constexpr double kBandDegrees = 15.0;  // Width of a nautical zone, centred on a multiple of it.

// How far from an edge, in units of latitude, the reader may answer for the other side. A query is
// truncated by up to a unit in each direction, and a whole unit of longitude counts as border. The
// longitude of a crossing has, in single precision, an error of up to a quarter of a unit at
// precision 21 and a unit at 23. That makes 2.25 or 3 units of longitude, which count twice, and a
// little more than one of latitude.
double MarginUnits(int precision) {
    return precision <= zonedetect::kNauticalPrecision ? 5.0 : 8.0;
}

double Sine(double degrees) {
    return std::sin(degrees / kDegreesPerRadian);
}

// Degrees of longitude to the nearest meridian at which another nautical zone begins.
double DegreesToBandEdge(double lon) {
    return kBandDegrees / 2 - std::fabs(std::remainder(lon, kBandDegrees));
}

// The radius, in degrees of arc, of the largest circle around a point at the latitude `lat` whose
// points all lie within `plane` degrees of it in the plane of latitude and longitude.
//
// A point on the circle of radius r differs by x degrees of latitude and y of longitude. By the
// haversine formula, sin^2(r/2) >= cos^2(|lat| + r) * (sin^2(x/2) + sin^2(y/2)). For a given x^2 +
// y^2 that sum is smallest if x or y is 0.
double ArcRadius(double lat, double plane) {
    double low = 0.0;
    double high = std::min(plane, 90.0 - std::fabs(lat));
    for (int i = 0; i < 50; ++i) {
        const double r = (low + high) / 2;
        const bool fits = Sine(r / 2) <= Sine(90.0 - std::fabs(lat) - r) * Sine(plane / 2);
        (fits ? low : high) = r;
    }
    return low;
}

// The distance in units of latitude from a point to the nearest edge of the rings in its tile, a
// degree of longitude counted as one of latitude. 0 if a ring cannot be read, and in a table whose
// boxes overlap so much that a lookup would come to its limits.
double UnitsToBorder(const ZDDatabase& database, double lat, double lon) {
    const float scale = zonedetect::Scale(database);
    const zonedetect::Point point = {zonedetect::LatitudeUnits(static_cast<float>(lat), scale),
                                     zonedetect::LongitudeUnits(static_cast<float>(lon), scale)};
    const double pointLat = lat / 90.0 * static_cast<double>(scale);
    const double pointLon = lon / 180.0 * static_cast<double>(scale);
    zonedetect::ReadBudget budget(database.length);
    double squared = std::numeric_limits<double>::infinity();
    GridRing ring;
    for (const DecodedEntry& entry : EntriesAt(database, point)) {
        uint32_t end;
        if (budget.IsSpent() || !DecodeRing(database, entry.ring, &ring, &end)) return 0.0;
        budget.Spend(int64_t{end} - entry.ring);
        for (size_t i = 0; i < ring.size(); ++i) {
            const GridPoint& a = ring[i];
            const GridPoint& b = ring[NextIndex(i, ring.size())];
            squared = std::min(
                    squared,
                    SquaredDistanceToSegment(0.0, 0.0, a.lat - pointLat, 2.0 * (a.lon - pointLon),
                                             b.lat - pointLat, 2.0 * (b.lon - pointLon)));
        }
    }
    return std::isinf(squared) ? 0.0 : std::sqrt(squared);
}

}  // namespace

bool IsTiled(const ZDDatabase& database) {
    return ZDGetTableType(&database) == zonedetect::kTiledTable;
}

double SafeRadiusKilometres(const ZDDatabase& database, double lat, double lon,
                            const Answer& answer) {
    if (!answer.error.empty() ||
        (answer.isNautical && database.precision != zonedetect::kNauticalPrecision)) {
        return 0.0;
    }
    const double unit = 90.0 / std::ldexp(1.0, database.precision - 1);
    double plane = (UnitsToBorder(database, lat, lon) - MarginUnits(database.precision)) * unit;
    // The plane ends at the antimeridian, where longitudes wrap around.
    plane = std::min(plane, 180.0 - std::fabs(lon));
    if (answer.isNautical) plane = std::min(plane, DegreesToBandEdge(lon) - 2.0 * unit);
    return plane > 0.0 ? ArcRadius(lat, plane) * kKilometresPerDegree : 0.0;
}

}  // namespace offlinetz
