#include "sphere_area.h"

#include <cmath>

#include "geometry.h"

namespace offlinetz {

namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;
constexpr double kEarthRadius = 6371.0088;  // Kilometres.

}  // namespace

double ClockwiseSquareKilometres(const std::vector<double>& xy) {
    double sum = 0.0;
    for (size_t i = 0; i < xy.size(); i += 2) {
        const size_t next = i + 2 < xy.size() ? i + 2 : 0;
        const double fromLat = xy[i + 1] * kRadiansPerDegree;
        const double toLat = xy[next + 1] * kRadiansPerDegree;
        // The mean of the sine of the latitude along the edge.
        const double half = (toLat - fromLat) / 2.0;
        const double mean =
                std::sin((fromLat + toLat) / 2.0) * (half != 0.0 ? std::sin(half) / half : 1.0);
        sum += (xy[next] - xy[i]) * kRadiansPerDegree * mean;
    }
    return sum * kEarthRadius * kEarthRadius;
}

double SquareKilometres(const GEOSGeometry* area) {
    double sum = 0.0;
    VisitRings(area, [&](const std::vector<double>& xy, bool isHole, bool) {
        const double ring = std::fabs(ClockwiseSquareKilometres(xy));
        sum += isHole ? -ring : ring;
    });
    return sum;
}

}  // namespace offlinetz
