// Thins out the points of mended rings without moving a border further than a tolerance.
#pragma once

#include "database/grid.h"
#include "rebuild_rings.h"

namespace offlinetz {

// Drops points of the zones' rings, which must be mended (see mend.h) and stay so.
//
// Borders are thinned once per arc, the stretch between two vertices where borders meet, for all
// zones along it: no gap or overlap opens. A stretch gives way to a straight edge only when each
// of its points lies within `tolerance` metres of that edge, and when no vertex of any border
// lies on the edge or between it and the stretch. Edges that take the place of two stretches then
// cannot cross: the first would have to swallow a vertex of the second, or the second one of the
// first. An island on one side of a border therefore stays on that side. Within these bounds an arc
// keeps the fewest vertices that it can (see minimum_vertices.h).
//
// A ring that meets no other border keeps the vertices that touch its box (and a third point
// where those are only two), so an island of any size keeps its extent. Vertices on or past the
// world's edge stay. Two arcs between the same vertices keep an inner point each.
//
// Returns the greatest distance in metres that a border moved. A tolerance of 0 drops points in
// the middle of straight lines only.
double Simplify(std::vector<ZoneRings>* zones, const Grid& grid, double tolerance);

}  // namespace offlinetz
