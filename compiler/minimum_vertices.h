// Minimum-vertex simplification of a line (Imai and Iri, "Computational-geometric methods for
// polygonal approximations of a curve", 1986).
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

// Returns the positions of the points of `line` that stay, in order: the first, the last, and as
// few between them as possible. `line` has at least two points, and consecutive ones are distinct.
//
// An edge may skip points if each of them lies within `tolerance` metres of it, and if
// `isClear(from, to)` returns true. It is asked about edges between two positions that skip at
// least one point; what it throws passes through.
//
// Of several choices of equally few points, the result is one that the database stores in the
// fewest bytes; of those, one whose edges move the least area from one side of the line to the
// other.
//
// The points are the vertices of a graph, the allowed edges its edges, and the result is a cheapest
// path. Edges reach at most kReach points ahead. The search is repeated on its own result until all
// points of that must stay, so the result may have more points than the minimum only where edges
// could reach further than kReach points. Time grows with the points times kReach; wedges of
// directions reject most edges that pass a point too far away.
std::vector<size_t> MinimumVertices(const std::vector<GridPoint>& line, const Grid& grid,
                                    double tolerance,
                                    const std::function<bool(size_t from, size_t to)>& isClear);

// The greatest number of points that an edge reaches ahead in one search. On the world at 20 m this
// bound costs one point in 18,000. Where the tolerance is large, time grows with it.
constexpr size_t kReach = 64;

}  // namespace offlinetz
