// The tree over the runs of a box table: finds the runs whose bounding box may contain a point. A
// run is a sequence of consecutive entries with one bounding box, such as the zones of one tile.
//
// Structure. A grid of 64 x 64 cells covers all bounding boxes. Each cell is a k-d tree by
// bisection (Bentley, 1975): a node halves its part of the world across the longer side. The leaves
// list runs.
//
// Cost. The tree keeps at most 10 bytes per run and 280 KB. Building it takes time proportional to
// the number of runs, and at most 44 bytes per run and 1 MB more. Trees have at most 52 levels of
// bisection.
#pragma once

#include <cstddef>
#include <cstdint>

#include "box_table.h"
#include "growing_array.h"

namespace zonedetect {

// Bisection of a cell stops at a part that meets only one run, and where it would take more memory
// than the bounds above. The compiler makes tiles by the same bisection, so each tile ends up in
// leaves with one run. After Build the tree is immutable: any thread may query it.
class RunTree {
  public:
    // A list of runs, in the order of the table. Borrowed from the tree.
    struct Runs {
        const uint32_t* list;  // Null if `single` is the only run.
        uint32_t count;
        uint32_t single;

        uint32_t At(uint32_t i) const { return list != nullptr ? list[i] : single; }
    };

    enum class Outcome {
        kBuilt,
        kUseless,   // No tree is possible: the boxes overlap too much.
        kNoMemory,  // A later attempt may succeed.
    };

    // Builds the tree over runs with these bounding boxes, whose indexes are the runs. Call it
    // once, on a new object. Unless it returns kBuilt, the object may only be destroyed.
    Outcome Build(const GrowingArray<Box>& boxes);

    // Returns the runs whose bounding box may contain `point`.
    Runs RunsAt(const Point& point) const;

  private:
    static constexpr uint32_t kCellsPerAxis = 64;

    // A closed interval of units, bisected as the compiler bisects a tile.
    struct Interval {
        int64_t min;
        int64_t max;

        int64_t Middle() const { return min + (max - min) / 2; }
    };

    // One axis of the grid. Any monotonic function from units to cells is correct; this one makes
    // the cell borders match the tile borders of a tiled database.
    struct Axis {
        int32_t min = 0;
        uint32_t cellUnits = 1;

        uint8_t CellOf(int32_t units) const;
        uint8_t CellFrom(uint8_t cell, int32_t units) const;
        Interval IntervalOf(size_t cell) const;
    };

    class Builder;

    Axis mLat;
    Axis mLon;
    uint32_t mRoots[kCellsPerAxis * kCellsPerAxis];  // The root node of each cell, row by row.
    // The nodes. An inner node is the index of its second child; its first child follows it. A leaf
    // is one run, or a count followed by that many runs.
    GrowingArray<uint32_t> mNodes;
};

}  // namespace zonedetect
