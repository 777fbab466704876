// Areas on a sphere of the earth's mean radius. Edges are straight in latitude and longitude.
#pragma once

#include <geos_c.h>

#include <vector>

namespace offlinetz {

// The area of a ring in square kilometres, negative if the ring runs counterclockwise. `xy` holds
// longitude and latitude in turn, in degrees, without a repeated last point. Exact but for
// rounding: it is the integral of the sine of the latitude over the longitude.
double ClockwiseSquareKilometres(const std::vector<double>& xy);

// The area in square kilometres of polygons in degrees: exterior rings minus holes, in whatever
// direction they run.
double SquareKilometres(const GEOSGeometry* area);

}  // namespace offlinetz
