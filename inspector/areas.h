// Rings on the grid as areas on the earth.
#pragma once

#include <array>

#include "compiler/geometry.h"
#include "compiler/rebuild_rings.h"
#include "compiler/sphere_area.h"

namespace offlinetz {

// The degrees of a coordinate: `span` is 90 for latitudes and 180 for longitudes, `scale` the units
// that they have. The middle of what the grid truncates to the coordinate, so that it is truncated
// there again; where rings reach past the world's edge, the edge.
double DegreesOf(int32_t units, int32_t scale, double span);

// West, south, east and north of all rings, in degrees. `rings` must not be empty.
std::array<double, 4> BoundsOf(const ZoneRings& rings, int32_t scale);

// The area in square kilometres on a sphere of the earth's size, along edges that are straight in
// latitude and longitude. Outlines count, holes are taken off.
double SquareKilometres(const ZoneRings& rings, int32_t scale);

// The valid area, in degrees, that is inside an odd number of the rings. Throws std::runtime_error
// where the geometry library fails.
GeometryPtr AreaOf(const ZoneRings& rings, int32_t scale);

}  // namespace offlinetz
