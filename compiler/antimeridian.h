// Polygons that are drawn across the antimeridian without a cut there.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "geometry.h"

namespace offlinetz {

// The positions of a closed ring, longitude and latitude in turn, the first one again at the end.
using Positions = std::vector<double>;

// Edges of more than 180 degrees of longitude, which may be meant to go the short way, across the
// antimeridian. An edge of exactly 180 degrees is as long both ways and goes as it is drawn.
struct LongEdges {
    size_t crossing = 0;
    size_t firstCrossing = 0;  // The index of its first position; its second one is the next.
    // From -180 to 180 along a parallel: either a crossing without length, as where each of the
    // parts of a cut ring was closed along the antimeridian and then joined, or drawn so, as in a
    // rectangle around the world or in an area around a pole, closed along it. It is drawn so
    // unless the ring crosses elsewhere, or the polygon is valid only if it crosses here.
    size_t aroundTheWorld = 0;
};

LongEdges CountLongEdges(const Positions& ring);

// Moves positions of a ring by whole turns, so that all long edges go the short way, past 180 or
// -180 degrees. False, with the reason, where that cannot be: the ring goes round a pole, or is
// wider than the world.
bool Unwrap(Positions* ring, std::string* reason);

// A valid area of which some lies up to a turn past 180 or -180 degrees, cut there, with all of it
// where it belongs. Null where the geometry library fails.
GeometryPtr CutAtAntimeridian(const GEOSGeometry* area);

}  // namespace offlinetz
