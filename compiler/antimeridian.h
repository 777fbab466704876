// Polygons that lie across the antimeridian and are not cut there.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "geometry.h"

namespace offlinetz {

// The positions of a closed ring, longitude and latitude in turn, the first one again at the end.
using Positions = std::vector<double>;

// The greatest longitude east or west that CutAtAntimeridian takes: a turn past the antimeridian.
constexpr double kMaxLongitude = 540.0;

// The number of edges of more than 180 degrees of longitude. Such an edge may be meant to go the
// short way, across the antimeridian. An edge of exactly 180 degrees is as long both ways; it is
// not counted and goes as its coordinates say.
struct LongEdges {
    size_t crossing = 0;
    size_t firstCrossing = 0;  // The index of the first one's first position.
    // Edges of exactly 360 degrees along a parallel. Such an edge has no length if it crosses the
    // antimeridian, as where the two parts of a cut ring were each closed along the antimeridian
    // and then joined. Otherwise it goes around the world, as in a rectangle around the world or an
    // area around a pole. It goes around the world unless the ring crosses elsewhere, or unless the
    // polygon is valid only if the edge crosses.
    size_t aroundTheWorld = 0;
};

LongEdges CountLongEdges(const Positions& ring);

// Moves positions of a ring by whole turns, so that all long edges go the short way, past 180 or
// -180 degrees. Returns false and sets the reason if the ring goes round a pole; its positions are
// changed then too.
bool Unwrap(Positions* ring, std::string* reason);

// Whether CutAtAntimeridian takes a ring: it is not wider than a turn and stays within
// kMaxLongitude. If not, sets the reason.
bool CanBeCut(const Positions& ring, std::string* reason);

// Cuts a valid area at 180 and -180 degrees and moves the parts beyond by whole turns to where they
// belong. All longitudes must be within kMaxLongitude. Returns null if the geometry library fails.
// Vertices between -180 and 180 degrees stay as they are.
GeometryPtr CutAtAntimeridian(const GEOSGeometry* area);

}  // namespace offlinetz
