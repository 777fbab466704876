// Rings on the grid as degrees, areas and polygons.
#pragma once

#include <array>

#include "compiler/geometry.h"
#include "compiler/rebuild_rings.h"
#include "compiler/sphere_area.h"

namespace offlinetz {

// The degrees of a point of a unit. `span` is 90 for latitudes and 180 for longitudes; `scale` is
// the number of units in it. Returns the middle of the interval that the grid truncates to `units`,
// so truncation gives `units` again. Rings may reach beyond the world's edge: the result is clamped
// to -span and span.
double DegreesOf(int32_t units, int32_t scale, double span);

// Where a vertex stands, in degrees, clamped to the world: its latitude is the middle of its unit,
// its longitude is the multiple of the unit. Grid::VertexAt (grid.h) gives the vertex again.
double VertexLatitude(int32_t units, int32_t scale);
double VertexLongitude(int32_t units, int32_t scale);

// The bounding box of all rings: west, south, east and north in degrees. `rings` must not be empty.
std::array<double, 4> BoundsOf(const ZoneRings& rings, int32_t scale);

// The area in square kilometres on a sphere of the earth's size, with edges that are straight in
// latitude and longitude. Exterior rings (clockwise) count, holes (counterclockwise) are
// subtracted.
double SquareKilometres(const ZoneRings& rings, int32_t scale);

// The valid polygons, in degrees, of the points inside an odd number of the rings. Needs
// StartGeometry (geometry.h). Throws std::runtime_error if the geometry library fails, as it does
// for rings that cross, and std::bad_alloc.
GeometryPtr AreaOf(const ZoneRings& rings, int32_t scale);

}  // namespace offlinetz
