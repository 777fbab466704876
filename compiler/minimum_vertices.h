// Which points of a line must stay so that straight edges between them do for the others.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

// Returns the positions of the points of `line` that stay, in order: the first, the last, and as
// few between them as will do. `line` has at least two points, consecutive ones distinct. An edge
// may skip points when each of them lies within `tolerance` metres of it and `isClear(from, to)`
// agrees, which is asked about edges between two positions that skip at least one.
//
// Of several choices of equally few points it takes one that the database stores in the fewest
// bytes, and of those one whose edges move the least area from one side of the line to the other.
//
// An edge reaches at most kReach points ahead. What stays is gone over again in the same manner,
// until all of it must stay. So only where edges reach further than kReach points might there be
// more points than the fewest.
std::vector<size_t> MinimumVertices(const std::vector<GridPoint>& line, const Grid& grid,
                                    double tolerance,
                                    const std::function<bool(size_t from, size_t to)>& isClear);

// Measured on the world: at 20 m one point in 18,000 more than without a bound. Time grows with
// it where the tolerance is large.
constexpr size_t kReach = 64;

}  // namespace offlinetz
