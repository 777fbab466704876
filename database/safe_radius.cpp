#include "safe_radius.h"

#include <reader/format.h>

#include <algorithm>
#include <cmath>

namespace offlinetz {

namespace {

constexpr double kKilometresPerDegree = 111.195;
constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr double kBandDegrees = 15.0;  // Width of a nautical zone, centred on a multiple of it.

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
    double plane = kSafeShare * static_cast<double>(answer.distance) - kSafeMarginUnits * unit;
    // The plane ends at the antimeridian, where longitudes wrap around.
    plane = std::min(plane, 180.0 - std::fabs(lon));
    if (answer.isNautical) plane = std::min(plane, DegreesToBandEdge(lon) - 2.0 * unit);
    return plane > 0.0 ? ArcRadius(lat, plane) * kKilometresPerDegree : 0.0;
}

}  // namespace offlinetz
