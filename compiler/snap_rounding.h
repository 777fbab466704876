// Snap rounding (Hobby, "Practical segment intersection with finite precision output", 1999): bends
// edges to grid points so that they meet only in their ends.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "database/grid.h"
#include "progress_callback.h"

namespace offlinetz {

struct Edge {
    GridPoint a;
    GridPoint b;
};

// A grid point to which an edge is bent.
struct SnapPoint {
    uint32_t edge;  // Its index.
    GridPoint at;
};

// Returns the snap points of `edges`, which must be distinct. Edges bent to their snap points do
// not cross or overlap, and touch only in ends of both. The snap points are sorted by edge, and
// along each edge from a to b. An edge is bent only if it clashes with another edge, or with one
// that was bent. No point of an edge moves by more than half a unit in latitude and in longitude.
//
// `progress` receives the number of the round. Throws TooManySnapPoints if there would be more than
// `maxSnapPoints`. Time and memory grow with the number of crossings; n edges may have n^2 / 2.
std::vector<SnapPoint> SnapRound(const std::vector<Edge>& edges, size_t maxSnapPoints,
                                 const ProgressCallback& progress);

struct TooManySnapPoints {
    uint32_t edges[2];  // The indexes of the two edges that met last.
    GridPoint at;       // An end of a part of the first one, near where they met.
};

// Calls `visit` with the indexes of each two edges that meet elsewhere than in ends of both: that
// cross, overlap, or touch. Stops when it returns false. May visit a pair more than once, such as
// two long edges close to each other.
void VisitClashes(const std::vector<Edge>& edges,
                  const std::function<bool(uint32_t, uint32_t)>& visit);

// Whether more than `count` pairs of edges meet elsewhere than in ends of both; pairs are counted
// as VisitClashes visits them. Stops as soon as that is known.
bool CrossingsExceed(const std::vector<Edge>& edges, size_t count);

// Calls `visit(edge, from, to)` for each part of each edge, in order. `edge` is the index;
// `snapPoints` are as SnapRound returns them.
template <typename PartFunction>
void VisitParts(const std::vector<Edge>& edges, const std::vector<SnapPoint>& snapPoints,
                PartFunction visit) {
    auto snapPoint = snapPoints.begin();
    for (size_t i = 0; i < edges.size(); ++i) {
        GridPoint from = edges[i].a;
        for (; snapPoint != snapPoints.end() && snapPoint->edge == i; ++snapPoint) {
            visit(i, from, snapPoint->at);
            from = snapPoint->at;
        }
        visit(i, from, edges[i].b);
    }
}

}  // namespace offlinetz
