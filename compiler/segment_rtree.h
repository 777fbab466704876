// Finds where the borders are that a growing rectangle meets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/grid.h"
#include "rebuild_rings.h"

namespace offlinetz {

enum class Side { kNorth, kEast, kSouth, kWest };

// The edges of all zones' rings.
class SegmentRTree {
  public:
    explicit SegmentRTree(const std::vector<ZoneRings>& zones);

    // Moves one side of `*box` outward, to `limit` (a latitude or longitude) or to just before the
    // first edge in the way. Edges that touch `ignored` are not in the way; no other edge may touch
    // the box. Returns whether an edge stopped it.
    bool Grow(GridBox* box, Side side, int32_t limit, const GridBox& ignored) const;

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

    std::vector<Segment> mSegments;  // Those that lie near each other stand near each other.
    std::vector<GridBox> mBoxes;     // A binary tree: node i has the children 2i + 1 and 2i + 2.
    size_t mFirstLeaf = 0;
};

}  // namespace offlinetz
