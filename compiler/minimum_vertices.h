// Minimum-vertex simplification of a line (Imai and Iri, "Computational-geometric methods for
// polygonal approximations of a curve", 1986).
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

// A line to be simplified, and what its edges may be.
struct LineToSimplify {
    struct Offset {  // In units.
        double lat;
        double lon;
    };

    std::vector<GridPoint> points;  // At least two; consecutive ones are distinct.

    // The places where a vertex may stand for point i: places[firstPlace[i]] to
    // places[firstPlace[i + 1] - 1]. The first of them is the point itself. The first and the last
    // point of the line have no other.
    std::vector<GridPoint> places;
    std::vector<size_t> firstPlace;

    // Positions relative to point i. Only edges whose lines pass within `metres` of them may skip
    // the point: passing[firstPassing[i]] to passing[firstPassing[i + 1] - 1].
    std::vector<Offset> passing;
    std::vector<size_t> firstPassing;
    double metres = 0.0;
    double reachLat = 0.0;  // In units.
    double reachLon = 0.0;
};

// A vertex of the simplified line: where it stands, and for which point of the line.
struct LineVertex {
    size_t position;
    GridPoint at;
};

using EdgeTest = std::function<bool(const LineVertex& from, const LineVertex& to)>;

// Returns the vertices of the simplified line: the first and the last point, and as few between
// them as possible.
//
// An edge from one vertex to another is possible if `isAllowed` returns true; what it throws passes
// through. Edges between the points themselves that skip no point are allowed without being asked
// for. Most edges whose lines do not pass where `passing` says are rejected without asking, so
// `isAllowed` must reject all of them, or the result may have a few points too many.
//
// Of several choices of equally few points, the result is one that the database stores in the
// fewest bytes; of those, one whose edges move the least area from one side of the line to the
// other.
//
// The possible vertices are the vertices of a graph, the allowed edges its edges, and the result is
// a cheapest path. Edges reach at most kReach points ahead. The search is repeated on its own
// result until all points of that must stay, so the result may have more points than the minimum
// only where edges could reach further than kReach points. Time grows with the number of places
// times kReach; wedges of directions reject most edges that pass a point too far away.
std::vector<LineVertex> MinimumVertices(const LineToSimplify& line, const Grid& grid,
                                        const EdgeTest& isAllowed);

// The greatest number of points that an edge reaches ahead in one search. On the world at 40 m this
// bound costs one point in 5,000. Where edges may be further off, time grows with it.
constexpr size_t kReach = 64;

}  // namespace offlinetz
