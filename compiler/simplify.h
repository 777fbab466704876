// Removes points of borders, as long as answers stay right up to a distance from the source.
#pragma once

#include <vector>

#include "database/grid.h"
#include "originals.h"
#include "rebuild_rings.h"

namespace offlinetz {

// A vertex of simplified rings that stands beside the vertex that it was.
struct MovedVertex {
    GridPoint at;
    GridPoint was;

    friend bool operator<(const MovedVertex& x, const MovedVertex& y) { return x.at < y.at; }
};

// Removes points of the zones' rings, which must be as RebuildRings leaves them and stay so, and
// moves others by up to a unit in latitude and in longitude, where that saves points. Returns the
// moved vertices, sorted. No two vertices stand in one place.
//
// An arc is the part of a border between two vertices where borders meet. Each arc is simplified
// once for all zones along it, so no gap or overlap opens. A straight edge may replace a stretch of
// an arc only if no answer differs further than `metres` from the source because of it (EdgeError,
// edge_error.h), and if no vertex of any border lies on the edge or between the edge and the
// stretch. For that reason an island beside a border stays on its side. Two such edges cannot cross
// if they end where their stretches do: one stretch would have to hold a vertex of the other on its
// far side. Edges between moved vertices are compared; where they cross, the vertices may not move.
// Within these bounds an arc keeps the minimum of vertices (minimum_vertices.h).
//
// Without `originals` the distance that counts is that of each point of the stretch from the edge,
// and no vertex moves.
//
// These vertices always stay, and do not move:
// - Vertices on or past the world's edge.
// - In a ring that meets other borders in one vertex at most: an extreme vertex in each direction,
//   and a third vertex if these are only two. So an island of any size keeps its extent.
// - An inner vertex of each of two arcs between the same vertices.
//
// 0 metres without originals removes only points in the middle of straight lines.
std::vector<MovedVertex> Simplify(std::vector<ZoneRings>* zones, const Grid& grid, double metres,
                                  const Originals* originals = nullptr);

}  // namespace offlinetz
