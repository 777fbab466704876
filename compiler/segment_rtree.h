// A packed R-tree over the edges of all borders: where does a growing rectangle meet the first one?
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/grid.h"
#include "database/zone_rings.h"

namespace offlinetz {

// One side of a box, as the coordinate that is constant along it.
struct BoxSide {
    int32_t GridPoint::*axis;
    int32_t sign;  // Which way is outward: 1 for the box's maximum, -1 for its minimum.

    // Not `(sign > 0 ? max : min).*axis`: GCC 12 applies that to a copy.
    int32_t Of(const GridBox& box) const { return sign > 0 ? box.max.*axis : box.min.*axis; }
    int32_t& Of(GridBox* box) const { return sign > 0 ? box->max.*axis : box->min.*axis; }
    BoxSide Opposite() const { return {axis, -sign}; }

    // The coordinate that changes along the side.
    int32_t GridPoint::*CrossAxis() const {
        return axis == &GridPoint::lat ? &GridPoint::lon : &GridPoint::lat;
    }
};

// The distinct edges of all zones' rings in a static R-tree: the edges are sorted by the Morton
// order of their first end, kLeafSegments consecutive ones share a leaf, and a complete binary tree
// of bounding boxes stands over the leaves. Building it takes a sort of the edges. It copies them,
// so it does not refer to the rings afterwards. Const calls may run on several threads.
class SegmentRTree {
  public:
    explicit SegmentRTree(const std::vector<ZoneRings>& zones);

    // Moves one side of `*box` outward, to the coordinate `limit` or to one unit before the first
    // edge on the way, rounded toward the box. Edges that touch `ignored` are passed over. No other
    // edge may touch the box before the call; none does afterwards. Returns whether an edge stopped
    // the side.
    bool Grow(GridBox* box, const BoxSide& side, int32_t limit, const GridBox& ignored) const;

  private:
    struct Segment {
        GridPoint a;
        GridPoint b;

        friend bool operator<(const Segment& x, const Segment& y) {
            return x.a != y.a ? x.a < y.a : x.b < y.b;
        }
        friend bool operator==(const Segment& x, const Segment& y) {
            return x.a == y.a && x.b == y.b;
        }
    };

    struct Search;
    void Visit(size_t node, Search* search) const;

    std::vector<Segment> mSegments;  // a < b; by Morton order of a.
    std::vector<GridBox> mBoxes;     // A binary tree: node i has the children 2i + 1 and 2i + 2.
    size_t mFirstLeaf = 0;
};

}  // namespace offlinetz
