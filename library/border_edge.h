// Borders: edges of rings, as far as they are in the world.
#pragma once

#include <reader/run_tree.h>

#include "sphere_units.h"
#include "zone_index.h"

namespace offlinetz {

inline bool IsSame(const zonedetect::Point& a, const zonedetect::Point& b) {
    return a.lat == b.lat && a.lon == b.lon;
}

// In the order of latitude, then longitude.
inline bool IsBefore(const zonedetect::Point& a, const zonedetect::Point& b) {
    return a.lat != b.lat ? a.lat < b.lat : a.lon < b.lon;
}

// An edge between two grid points: `from` comes before `to`.
struct BorderEdge {
    zonedetect::Point from;
    zonedetect::Point to;

    BorderEdge(const zonedetect::Point& a, const zonedetect::Point& b)
        : from(IsBefore(b, a) ? b : a), to(IsBefore(b, a) ? a : b) {}

    bool IsParallel() const { return from.lat == to.lat; }  // Along a parallel.
    // The place at a share of the edge: exact at 0 and 1.
    UnitPlace At(double share) const;
};

// The part of an edge in the world, between two shares of it. An edge along a side of the world or
// outside has none: the antimeridian is no border by itself. An edge with an end beyond twice the
// world has none either: no compiler makes it.
struct WorldPart {
    double first;
    double last;

    WorldPart(const BorderEdge& edge, double scale);
    bool IsEmpty() const { return !(first < last); }
};

// The area of a leaf in which a tile has all borders, whole: every edge that touches it is one. It
// reaches a unit beyond the leaf's grid points, so that no gap is between tiles. Closing paths are
// further away.
class BorderArea {
  public:
    // `step` is the first of a run in the leaf.
    BorderArea(const ZoneIndex& index, const zonedetect::Box& leaf, const ZoneIndex::Step& step);

    const zonedetect::Box& Sides() const { return mBox; }
    // Whether the run has no point in the leaf.
    bool IsEmpty() const { return mBox.minLat > mBox.maxLat || mBox.minLon > mBox.maxLon; }
    // Exact for coordinates of less than 2^25 units.
    bool Touches(const zonedetect::Point& a, const zonedetect::Point& b) const;

  private:
    zonedetect::Box mBox;
};

// Calls visit(first, area) for each run in a leaf that may have borders there, as long as it
// returns true, and returns whether it did for all. `first` is the first step of the run.
template <typename Visit>
bool ForEachRun(const ZoneIndex& index, const zonedetect::RunTree::Part& leaf, const Visit& visit) {
    const zonedetect::RunTree::Runs runs = index.Tree().RunsOf(leaf);
    for (uint32_t i = 0; i < runs.count; ++i) {
        const ZoneIndex::Step* const first = index.StepsFrom(runs.At(i));
        if (first->IsAnswer()) continue;
        const BorderArea area(index, leaf.area, *first);
        if (!area.IsEmpty() && !visit(first, area)) return false;
    }
    return true;
}

}  // namespace offlinetz
