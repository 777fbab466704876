#include "snap.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "edge_error.h"
#include "rebuild_rings.h"

namespace offlinetz {

namespace {

void RemoveRepeats(GridRing* ring) {
    ring->erase(std::unique(ring->begin(), ring->end()), ring->end());
    while (ring->size() > 1 && ring->front() == ring->back())
        ring->pop_back();
}

// Whether a ring encloses nothing: its points lie on a line, or, for a small ring, no exterior ring
// can be rebuilt from its edges, because rounding closed it or turned it inside out.
bool IsFlat(const GridRing& ring, bool isSmall, bool isHole) {
    if (!isSmall) {
        return std::all_of(ring.begin(), ring.end(),
                           [&ring](const GridPoint& p) { return Cross(ring[0], ring[1], p) == 0; });
    }
    // A hole alone has no area, so it is tested as an exterior ring.
    std::vector<ZoneRings> alone = {{isHole ? GridRing(ring.rbegin(), ring.rend()) : ring}};
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

RingExtent ExtentOf(const std::vector<double>& xy) {
    RingExtent extent = {xy[0], xy[1], xy[0], xy[1]};
    for (size_t i = 0; i < xy.size(); i += 2) {
        extent = {std::min(extent[0], xy[i]), std::min(extent[1], xy[i + 1]),
                  std::max(extent[2], xy[i]), std::max(extent[3], xy[i + 1])};
    }
    return extent;
}

bool IsIslet(const GridBox& box) {
    return box.max.lat - box.min.lat <= kIsletUnits && box.max.lon - box.min.lon <= kIsletUnits;
}

// A box that stands for an islet.
struct IsletBox {
    GridBox box;
    double lat;  // The point of the islet's ring that counts as original of the corners, in units.
    double lon;
    double error;  // Because of that point, in metres; see BoxError.
};

// Takes the point of the ring `xy` that is nearest to the middle of what the reader finds in the
// box.
IsletBox WithMiddlePoint(const GridBox& box, const std::vector<double>& xy, const Grid& grid) {
    // Where truncation has put the points that the reader finds.
    const auto middle = [](int32_t min, int32_t max) {
        return 0.5 * (static_cast<double>(min) + max + (max > 0 ? 1.0 : -1.0));
    };
    const double lat = middle(box.min.lat, box.max.lat);
    const double lon = middle(box.min.lon, box.max.lon);
    IsletBox islet = {box, 0.0, 0.0, 0.0};
    double least = std::numeric_limits<double>::infinity();
    for (size_t i = 0; i < xy.size(); i += 2) {
        const size_t next = NextIndex(i / 2, xy.size() / 2) * 2;
        const double y = grid.LatitudeUnits(xy[i + 1]) - lat;
        const double x = 2.0 * (grid.LongitudeUnits(xy[i]) - lon);
        const double dy = grid.LatitudeUnits(xy[next + 1]) - lat - y;
        const double dx = 2.0 * (grid.LongitudeUnits(xy[next]) - lon) - x;
        const double length2 = std::max(dy * dy + dx * dx, 1e-12);  // Points may be repeated.
        const double t = std::clamp(-(y * dy + x * dx) / length2, 0.0, 1.0);
        const double awayLat = y + t * dy;
        const double awayLon = x + t * dx;
        const double squared = awayLat * awayLat + awayLon * awayLon;
        if (squared >= least) continue;
        least = squared;
        islet.lat = lat + awayLat;
        islet.lon = lon + 0.5 * awayLon;
    }
    islet.error = BoxError(grid, box, islet.lat, islet.lon);
    return islet;
}

// The box that stands for an islet with the ring `xy`. The reader finds it from every unit in which
// the islet has a point, if the greatest error permits that; otherwise from fewer units, one at
// least.
IsletBox BoxOfIslet(const std::vector<double>& xy, const Grid& grid, double maxErrorMetres) {
    GridRing units;
    for (size_t i = 0; i < xy.size(); i += 2)
        units.push_back(grid.UnitAt(xy[i + 1], xy[i]));
    GridBox box = BoxOf(units);
    // A point on the western or southern side of a ring is outside, but for the world's edge, past
    // which rings are extended.
    for (const auto axis : {&GridPoint::lat, &GridPoint::lon}) {
        box.min.*axis = std::max(box.min.*axis - 1, -grid.Scale());
        box.max.*axis = std::max(box.max.*axis, box.min.*axis + 1);
    }
    IsletBox islet = WithMiddlePoint(box, xy, grid);
    while (islet.error > maxErrorMetres) {
        std::vector<IsletBox> cuts;
        for (const auto axis : {&GridPoint::lat, &GridPoint::lon}) {
            GridBox low = islet.box;
            GridBox high = islet.box;
            if ((low.min.*axis += 1) == low.max.*axis) continue;
            high.max.*axis -= 1;
            cuts.push_back(WithMiddlePoint(low, xy, grid));
            cuts.push_back(WithMiddlePoint(high, xy, grid));
        }
        if (cuts.empty()) break;
        islet = *std::min_element(
                cuts.begin(), cuts.end(),
                [](const IsletBox& x, const IsletBox& y) { return x.error < y.error; });
    }
    return islet;
}

}  // namespace

FilledHoles TinyFilledHoles(const std::vector<const GEOSGeometry*>& areas, const Grid& grid) {
    std::set<RingExtent> exteriors;
    std::set<RingExtent> holes;
    for (const GEOSGeometry* area : areas) {
        VisitRings(area, [&](const std::vector<double>& xy, bool isHole, bool) {
            const RingExtent extent = ExtentOf(xy);
            const GridBox box = {grid.VertexAt(extent[1], extent[0]),
                                 grid.VertexAt(extent[3], extent[2])};
            if (IsIslet(box)) (isHole ? holes : exteriors).insert(extent);
        });
    }
    FilledHoles filled;
    std::set_intersection(exteriors.begin(), exteriors.end(), holes.begin(), holes.end(),
                          std::inserter(filled, filled.end()));
    return filled;
}

std::vector<GridRing> SnapToGrid(const GEOSGeometry* area, const Grid& grid,
                                 const FilledHoles& filledHoles, double maxErrorMetres,
                                 SnapCounts* counts, Originals* originals) {
    std::vector<GridRing> rings;
    VisitRings(area, [&](const std::vector<double>& xy, bool isHole, bool isClockwise) {
        GridRing ring;
        ring.reserve(xy.size() / 2);
        for (size_t i = 0; i < xy.size(); i += 2) {
            ring.push_back(grid.VertexAt(xy[i + 1], xy[i]));
        }
        // The area lies on the right of a stored ring's direction.
        if (isHole == isClockwise) std::reverse(ring.begin(), ring.end());
        RemoveRepeats(&ring);
        const bool isSmall = IsIslet(BoxOf(ring));
        if (IsFlat(ring, isSmall, isHole)) {
            if (!isSmall || filledHoles.count(ExtentOf(xy)) > 0) {
                ++counts->dropped;
                for (const GridPoint& p : ring)
                    counts->droppedMetres =
                            std::max(counts->droppedMetres, grid.UnitDiagonal(p.lat));
                return;
            }
            const IsletBox islet = BoxOfIslet(xy, grid, maxErrorMetres);
            ring = ClockwiseBox(islet.box);
            for (const GridPoint& corner : ring)
                originals->Add(corner, islet.lat, islet.lon);
            if (isHole) std::reverse(ring.begin(), ring.end());
            ++counts->boxed;
        } else {
            for (size_t i = 0; i < xy.size(); i += 2) {
                originals->Add(grid.VertexAt(xy[i + 1], xy[i]), grid.LatitudeUnits(xy[i + 1]),
                               grid.LongitudeUnits(xy[i]));
            }
        }
        ring = ExtendPastEdge(ring, &GridPoint::lon, grid.Scale());
        ring = ExtendPastEdge(ring, &GridPoint::lat, grid.Scale());
        rings.push_back(std::move(ring));
    });
    return rings;
}

}  // namespace offlinetz
