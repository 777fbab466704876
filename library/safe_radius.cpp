#include <reader/exact_floats.h>  // Must be the first include.

#include "safe_radius.h"

#include <reader/format.h>

#include <algorithm>
#include <cmath>

#include "segment_distance.h"

namespace offlinetz {

namespace {

constexpr double kKilometresPerDegree = 111.195;
constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr double kBandDegrees = 15.0;  // Width of a nautical zone, centred on a multiple of it.
constexpr int kMaxPrecision = 23;

// How far from an edge, in units of latitude, the reader may answer for the other side. A query is
// truncated by up to a unit in each direction, and a whole unit of longitude counts as border. The
// longitude of a crossing has, in single precision, an error of up to a quarter of a unit at
// precision 21 and a unit at 23. That makes 2.25 or 3 units of longitude, which count twice, and a
// little more than one of latitude.
double MarginUnits(int precision) {
    return precision <= zonedetect::kNauticalPrecision ? 5.0 : 8.0;
}

// Degrees of longitude to the nearest meridian at which another nautical zone begins.
double DegreesToBandEdge(double lon) {
    // From the western edge of the band of Greenwich, whole bands left out.
    const double east = std::fabs(lon) + kBandDegrees / 2;
    const double inBand = east - kBandDegrees * static_cast<int>(east * (1.0 / kBandDegrees));
    return std::min(inBand, kBandDegrees - inBand);
}

// The sine and the cosine of an angle from 0 to 90 degrees, with an error of at most kTrigError: by
// Taylor's series for half the angle, because the functions of C libraries differ in their last
// bits.
constexpr double kTrigError = 1e-9;
struct SineAndCosine {
    double sine;
    double cosine;

    explicit SineAndCosine(double degrees) {
        const double half = degrees * (0.5 / kDegreesPerRadian);
        const double x = half * half;
        double s = 1.0;
        for (const double next : {1.0 / 110, 1.0 / 72, 1.0 / 42, 1.0 / 20, 1.0 / 6})
            s = 1.0 - x * next * s;
        s *= half;
        double c = 1.0;
        for (const double next : {1.0 / 90, 1.0 / 56, 1.0 / 30, 1.0 / 12, 1.0 / 2})
            c = 1.0 - x * next * c;
        sine = 2.0 * s * c;
        cosine = 1.0 - 2.0 * s * s;
    }
};

// The radius, in degrees of arc, of a circle around a point at the latitude `lat` whose points all
// lie within `plane` degrees of it in the plane of latitude and longitude, which is at most 90. It
// is at most a thousandth smaller than the largest one for radii of up to five degrees.
//
// A point on the circle of radius r differs by u degrees of latitude and v of longitude. By the
// haversine formula, sin^2(r/2) >= cos^2(|lat| + r) * (sin^2(u/2) + sin^2(v/2)). For a given u^2 +
// v^2 that sum is smallest if u or v is 0. So every r is right for which sin(r/2) is at most
// S * cos(|lat| + r), where S = sin(plane/2).
//
// With x = sin(r/2), cos(|lat| + r) is at least cos|lat| * (1 - 2 x^2) - 2 x sin|lat|. So x may be
// the solution of x = S * (cos|lat| * (1 - 2 x^2) - 2 x sin|lat|), or smaller. With a = S *
// cos|lat| and b = 1 + 2 S sin|lat| that is 2 a / (b + sqrt(b^2 + 8 a^2)), which is at least a b /
// (b^2 + 2 a^2). Lower bounds replace S, too, and the arc sine of x.
double ArcRadius(double lat, double plane) {
    const SineAndCosine at(std::fabs(lat));
    const double t = plane * (0.5 / kDegreesPerRadian);
    const double s = t - t * t * t * (1.0 / 6.0);
    const double a = s * (at.cosine - kTrigError);
    const double b = 1.0 + 2.0 * s * (at.sine + kTrigError);
    const double x = a * b / (b * b + 2.0 * a * a);
    // Less what rounding may have added.
    return std::max(2.0 * kDegreesPerRadian * (x + x * x * x * (1.0 / 6.0)) * (1.0 - 1e-12), 0.0);
}

}  // namespace

bool HasSafeRadius(const ZDDatabase& database) {
    return ZDGetTableType(&database) == zonedetect::kTiledTable && database.precision >= 1 &&
           database.precision <= kMaxPrecision;
}

double SafeRadiusKilometres(const ZDDatabase& database, double lat, double lon, double squaredUnits,
                            bool isNautical) {
    if (std::isinf(squaredUnits)) return 0.0;
    const double unit = 90.0 / static_cast<double>(int32_t{1} << (database.precision - 1));
    double plane =
            (std::sqrt(squaredUnits) - SegmentDistance::kError - MarginUnits(database.precision)) *
            unit;
    // The plane ends at the antimeridian, where longitudes wrap around.
    plane = std::min({plane, 180.0 - std::fabs(lon), 90.0});
    if (isNautical) plane = std::min(plane, DegreesToBandEdge(lon) - 2.0 * unit);
    return plane > 0.0 ? ArcRadius(lat, plane) * kKilometresPerDegree : 0.0;
}

}  // namespace offlinetz
