// Leads edges through grid points so that they meet in ends only.
#pragma once

#include <cstdint>
#include <vector>

#include "database/grid.h"
#include "progress.h"

namespace offlinetz {

struct Edge {
    GridPoint a;
    GridPoint b;
};

// A grid point that an edge is led through.
struct SnapPoint {
    uint32_t edge;  // Its index.
    GridPoint at;
};

// What distinct edges must be led through so that the parts between no longer cross, overlap, or
// touch elsewhere than in ends of both; for each edge in order, and along it from a to b. Only
// edges that do so now, or come to do so, are bent, by no more than half a unit in latitude and in
// longitude.
//
// `progress` receives the number of the round and of the points so far. Throws TooManySnapPoints
// where there would be more than `maxSnapPoints`.
std::vector<SnapPoint> SnapRound(const std::vector<Edge>& edges, size_t maxSnapPoints,
                                 const ProgressCallback& progress);

struct TooManySnapPoints {
    uint32_t edges[2];  // The indexes of the two that met last, ...
    GridPoint at;       // ... and an end of one of them near there.
};

// Whether edges meet in ends of both only.
bool AreNoded(const std::vector<Edge>& edges);

// Whether pairs of edges meet elsewhere than in ends of both more than `count` times. It ends as
// soon as that is known. A pair may count more than once, as long edges do that lie close together.
bool CrossingsExceed(const std::vector<Edge>& edges, size_t count);

// Calls `visit(edge, from, to)` for each part of each edge; `snapPoints` as SnapRound gives them.
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
