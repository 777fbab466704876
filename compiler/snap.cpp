#include "snap.h"

#include <algorithm>
#include <cstdlib>

#include "rebuild_rings.h"

namespace offlinetz {

namespace {

void RemoveRepeats(GridRing* ring) {
    ring->erase(std::unique(ring->begin(), ring->end()), ring->end());
    while (ring->size() > 1 && ring->front() == ring->back())
        ring->pop_back();
}

// Whether a ring encloses nothing: its points lie on a line, or, for a small ring, no exterior ring
// can be rebuilt from its edges.
bool IsFlat(const GridRing& ring, bool isSmall) {
    if (!isSmall) {
        return std::all_of(ring.begin(), ring.end(),
                           [&ring](const GridPoint& p) { return Cross(ring[0], ring[1], p) == 0; });
    }
    // A hole alone has no area, so it is tested as an exterior ring.
    std::vector<ZoneRings> alone = {
            {DoubleArea(ring) > 0 ? GridRing(ring.rbegin(), ring.rend()) : ring}};
    RebuildRings(&alone, [](const char*, size_t, size_t) {});
    return alone[0].empty();
}

GridRing ClockwiseBox(const GridBox& box) {
    return {box.min, {box.max.lat, box.min.lon}, box.max, {box.min.lat, box.max.lon}};
}

// Moves each stretch of a ring that runs along the world's edge in one coordinate past that edge,
// by kWorldMargin.
GridRing ExtendPastEdge(const GridRing& ring, int32_t GridPoint::*coordinate, int32_t scale) {
    const auto edgeOf = [&](const GridPoint& p) {
        return std::abs(p.*coordinate) == scale ? p.*coordinate : 0;
    };
    const size_t count = ring.size();
    const auto onStretch =
            [&](size_t from) {  // Whether the edge from `from` runs along the world's edge.
                const int32_t edge = edgeOf(ring[from % count]);
                return edge != 0 && edge == edgeOf(ring[(from + 1) % count]);
            };
    size_t start = 0;
    while (start < count && onStretch(start))
        ++start;
    if (start == count) return ring;  // All on the edge: nothing to extend.

    GridRing extended;
    extended.reserve(count + 8);
    for (size_t k = 1; k <= count; ++k) {
        const size_t i = start + k;
        const GridPoint& p = ring[i % count];
        const bool before = onStretch(i + count - 1);
        const bool after = onStretch(i);
        if (!before && !after) {
            extended.push_back(p);
            continue;
        }
        GridPoint outside = p;
        outside.*coordinate += p.*coordinate > 0 ? kWorldMargin : -kWorldMargin;
        if (!before) extended.push_back(p);
        extended.push_back(outside);
        if (!after) extended.push_back(p);
    }
    return extended;
}

}  // namespace

std::vector<GridRing> SnapToGrid(const GEOSGeometry* area, const Grid& grid, SnapCounts* counts) {
    std::vector<GridRing> rings;
    VisitRings(area, [&](const std::vector<double>& xy, bool isHole, bool isClockwise) {
        GridRing ring;
        ring.reserve(xy.size() / 2);
        for (size_t i = 0; i < xy.size(); i += 2) {
            ring.push_back(grid.FromDegrees(xy[i + 1], xy[i]));
        }
        // The area lies on the right of a stored ring's direction.
        if (isHole == isClockwise) std::reverse(ring.begin(), ring.end());
        RemoveRepeats(&ring);
        GridBox box = BoxOf(ring);
        const bool isSmall = box.max.lat - box.min.lat <= kIsletUnits &&
                             box.max.lon - box.min.lon <= kIsletUnits;
        if (IsFlat(ring, isSmall)) {
            if (!isSmall) {
                ++counts->dropped;
                return;
            }
            if (box.max.lat == box.min.lat) ++box.max.lat;
            if (box.max.lon == box.min.lon) ++box.max.lon;
            ring = ClockwiseBox(box);
            if (isHole) std::reverse(ring.begin(), ring.end());
            ++counts->boxed;
        }
        ring = ExtendPastEdge(ring, &GridPoint::lon, grid.Scale());
        ring = ExtendPastEdge(ring, &GridPoint::lat, grid.Scale());
        rings.push_back(std::move(ring));
    });
    return rings;
}

}  // namespace offlinetz
