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

#include <algorithm>
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
        const uint32_t* list;  // Null: the runs from `first` on.
        uint32_t count;
        uint32_t first;

        uint32_t At(uint32_t i) const { return list != nullptr ? list[i] : first + i; }
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
    Runs RunsAt(const Point& point) const {
        const size_t row = mLat.CellOf(point.lat);
        const size_t column = mLon.CellOf(point.lon);
        Interval lat = mLat.IntervalOf(row);
        Interval lon = mLon.IntervalOf(column);
        size_t node = mRoots[row * kCellsPerAxis + column];
        while (!IsLeaf(node)) {
            const bool isSplitByLat = lat.max - lat.min > lon.max - lon.min;
            Interval& part = isSplitByLat ? lat : lon;
            const int64_t middle = part.Middle();
            const bool isSecond = (isSplitByLat ? point.lat : point.lon) > middle;
            part = isSecond ? Interval{middle + 1, part.max} : Interval{part.min, middle};
            node = isSecond ? mNodes[node] : node + 1;
        }
        return RunsOf(node);
    }

    // A part of the world, for searches that do not lead to one point: a square of cells, a cell,
    // or a part of a cell. All parts together require that the world's sides are less than 2^30
    // units from 0.
    struct Part {
        Box area;
        uint32_t node;  // Which part it is.
    };

    // The part that holds all others.
    Part Whole() const { return SquareOf(0, 0, kCellsPerAxis); }
    // Whether a part is divided no further.
    bool IsLeaf(const Part& part) const { return (part.node & kSquare) == 0 && IsLeaf(part.node); }
    // The runs that may have points in a leaf.
    Runs RunsOf(const Part& leaf) const { return RunsOf(leaf.node); }
    // Greater than Part::node of every leaf.
    size_t NodeCount() const { return mNodes.Size(); }

    // Calls visit(part) for each of the two or four parts that `part` is divided into.
    template <typename Visit>
    void Divide(const Part& part, const Visit& visit) const {
        if ((part.node & kSquare) != 0) {
            const size_t half = (part.node >> kSquareSizeShift & 0xFFu) / 2;
            const size_t row = part.node >> kSquareRowShift & 0xFFu;
            const size_t column = part.node & 0xFFu;
            for (const size_t north : {size_t{0}, half}) {
                for (const size_t east : {size_t{0}, half})
                    visit(SquareOf(row + north, column + east, half));
            }
            return;
        }
        Part first = {part.area, part.node + 1};
        Part second = {part.area, mNodes[part.node]};
        const Box& area = part.area;
        if (area.maxLat - area.minLat > area.maxLon - area.minLon) {
            first.area.maxLat = area.minLat + (area.maxLat - area.minLat) / 2;
            second.area.minLat = first.area.maxLat + 1;
        } else {
            first.area.maxLon = area.minLon + (area.maxLon - area.minLon) / 2;
            second.area.minLon = first.area.maxLon + 1;
        }
        visit(first);
        visit(second);
    }

    // The smallest box that covers all bounding boxes; it contains no point before Build.
    const Box& World() const { return mWorld; }

    // Replaces the runs in the leaves by numbers, which RunsAt returns from then on: run i by
    // numbers[i], which must be less than 2^30. Calls mayLieOutside(run) for each run in a leaf
    // that lists another run, too, or that has points outside the bounding box of its run.
    template <typename Visit>
    void Renumber(const uint32_t* numbers, const Visit& mayLieOutside) {
        for (size_t node = 0; node < mNodes.Size(); ++node) {
            const uint32_t word = mNodes[node];
            // Without a branch for most words: their order is unpredictable.
            const uint32_t isSingle = 0u - (word >> 31);
            mNodes[node] = word ^ ((word ^ (kSingleRun | numbers[word & kPayloadMask & isSingle])) &
                                   isSingle);
            const uint32_t kind = word & ~kPayloadMask;
            if (kind == kSingleRun) {
                mayLieOutside(word & kPayloadMask);
            } else if (kind == kRunList) {
                for (uint32_t i = word & kPayloadMask; i > 0; --i) {
                    mayLieOutside(mNodes[++node]);
                    mNodes[node] = numbers[mNodes[node]];
                }
            }
        }
    }

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

        uint8_t CellOf(int32_t units) const {
            if (units <= min) return 0;
            const uint32_t above = static_cast<uint32_t>(units) - static_cast<uint32_t>(min);
            return static_cast<uint8_t>(std::min(above / cellUnits, kCellsPerAxis - 1));
        }
        uint8_t CellFrom(uint8_t cell, int32_t units) const;
        Interval IntervalOf(size_t cell) const {
            const int64_t from = min + static_cast<int64_t>(cell * cellUnits);
            return {from, from + cellUnits - 1};
        }
    };

    class Builder;

    // The square of `size` cells on each side whose first cell is given.
    Part SquareOf(size_t row, size_t column, size_t size) const {
        const auto side = [](int64_t units) { return static_cast<int32_t>(units); };
        return {{side(mLat.IntervalOf(row).min), side(mLon.IntervalOf(column).min),
                 side(mLat.IntervalOf(row + size - 1).max),
                 side(mLon.IntervalOf(column + size - 1).max)},
                size == 1 ? mRoots[row * kCellsPerAxis + column]
                          : kSquare | static_cast<uint32_t>(size << kSquareSizeShift |
                                                            row << kSquareRowShift | column)};
    }

    bool IsLeaf(size_t node) const { return (mNodes[node] & (kSingleRun | kRunList)) != 0; }
    Runs RunsOf(size_t leaf) const {
        const uint32_t payload = mNodes[leaf] & kPayloadMask;
        if ((mNodes[leaf] & kSingleRun) != 0) return {nullptr, 1, payload};
        return {&mNodes[leaf + 1], payload, 0};
    }

    static constexpr uint32_t kSingleRun = 0x80000000u;  // A leaf; the payload is a run.
    static constexpr uint32_t kRunList = 0x40000000u;    // A leaf; the payload is a count.
    // With kSingleRun: the whole leaf lies in the bounding box of its run.
    static constexpr uint32_t kIsInBox = 0x40000000u;
    static constexpr uint32_t kPayloadMask = 0x3FFFFFFFu;
    // Part::node of a square of cells, with its size, first row and first column. Other parts have
    // the index of their node.
    static constexpr uint32_t kSquare = 0x80000000u;
    static constexpr unsigned kSquareSizeShift = 16;
    static constexpr unsigned kSquareRowShift = 8;

    Box mWorld = {0, 0, -1, -1};
    Axis mLat;
    Axis mLon;
    uint32_t mRoots[kCellsPerAxis * kCellsPerAxis] = {};  // The root node of each cell, row by row.
    // The nodes. An inner node is the index of its second child; its first child follows it. A leaf
    // is one run, or a count followed by that many runs.
    GrowingArray<uint32_t> mNodes;
};

}  // namespace zonedetect
