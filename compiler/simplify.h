// Removes points of borders without moving a border further than a tolerance.
#pragma once

#include <vector>

#include "database/grid.h"
#include "rebuild_rings.h"

namespace offlinetz {

// Removes points of the zones' rings, which must be as RebuildRings leaves them and stay so.
//
// An arc is the part of a border between two vertices where borders meet. Each arc is simplified
// once for all zones along it, so no gap or overlap opens. A straight edge may replace a stretch of
// an arc only if each point of the stretch lies within `tolerance` metres of the edge, and if no
// vertex of any border lies on the edge or between the edge and the stretch. Two such edges cannot
// cross: one stretch would have to hold a vertex of the other on its far side. For the same reason
// an island beside a border stays on its side. Within these bounds an arc keeps the minimum of
// vertices (minimum_vertices.h).
//
// These vertices always stay:
// - Vertices on or past the world's edge.
// - In a ring that meets other borders in one vertex at most: an extreme vertex in each direction,
//   and a third vertex if these are only two. So an island of any size keeps its extent.
// - An inner vertex of each of two arcs between the same vertices.
//
// Returns the greatest distance in metres that a border moved. A tolerance of 0 removes only points
// in the middle of straight lines.
double Simplify(std::vector<ZoneRings>* zones, const Grid& grid, double tolerance);

}  // namespace offlinetz
