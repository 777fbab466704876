// Areas on a sphere of the earth's size, along edges that are straight in latitude and longitude.
#pragma once

#include <geos_c.h>

#include <vector>

namespace offlinetz {

// The area in square kilometres of a ring, longitudes and latitudes in degrees in turn, without the
// repeated last point; negative where the ring runs counterclockwise.
double ClockwiseSquareKilometres(const std::vector<double>& xy);

// The area in square kilometres of polygons in degrees. Exterior rings count, holes are subtracted.
double SquareKilometres(const GEOSGeometry* area);

}  // namespace offlinetz
