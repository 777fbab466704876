#include "run_tree.h"

#include <algorithm>
#include <memory>
#include <new>

namespace zonedetect {

namespace {

// The limit of the node array in words. A tiled world needs two words per run; the rest lets small
// tables of overlapping boxes have a good index too.
constexpr size_t NodeWordsFor(size_t runs) {
    return 2 * runs + runs / 2 + 65536;
}

// The limit of the run lists on the path from a cell with `runs` runs down to a node, in runs. It
// stops the bisection if the children keep nearly all runs; in the world's table it stops almost no
// node.
constexpr size_t ChildListRoom(size_t runs) {
    return 6 * runs + 64;
}

// The size of a leaf in words.
constexpr size_t LeafWords(size_t runs) {
    return runs == 1 ? 1 : 1 + runs;
}

}  // namespace

// Same as CellOf, for units that lie in `cell` or not far above it: searches upward instead of
// dividing.
uint8_t RunTree::Axis::CellFrom(uint8_t cell, int32_t units) const {
    while (cell + 1u < kCellsPerAxis && units > IntervalOf(cell).max)
        ++cell;
    return cell;
}

// Builds a tree. Holds the data that only the building needs.
class RunTree::Builder {
  public:
    Builder(const GrowingArray<Box>& boxes, RunTree* tree)
        : mBoxes(boxes), mTree(*tree), mLimit(NodeWordsFor(boxes.Size())) {}

    Outcome Build() {
        if (mLimit > kPayloadMask) return Outcome::kUseless;
        SetAxes();
        const Outcome outcome = ListRunsByCell();
        if (outcome != Outcome::kBuilt) return outcome;
        mTree.mWorld = mWorld;
        return AddCells();
    }

  private:
    // The range of cells that a run's box meets.
    struct Cells {
        uint8_t south;
        uint8_t north;
        uint8_t west;
        uint8_t east;
    };

    // A list of runs, in the order of the table.
    struct Range {
        uint32_t* begin;
        size_t count;
    };

    // The rectangle of a node.
    struct Region {
        Interval lat;
        Interval lon;
    };

    // Makes the grid cover all boxes.
    void SetAxes() {
        Box& all = mWorld;
        if (mBoxes.Size() > 0) all = mBoxes[0];
        for (const Box& box : mBoxes) {
            all.minLat = std::min(all.minLat, box.minLat);
            all.minLon = std::min(all.minLon, box.minLon);
            all.maxLat = std::max(all.maxLat, box.maxLat);
            all.maxLon = std::max(all.maxLon, box.maxLon);
        }
        const auto axis = [](int32_t min, int32_t max) {
            const int64_t units = std::max<int64_t>(int64_t{max} - min + 1, 1);
            return Axis{min, static_cast<uint32_t>((units + kCellsPerAxis - 1) / kCellsPerAxis)};
        };
        mTree.mLat = axis(all.minLat, all.maxLat);
        mTree.mLon = axis(all.minLon, all.maxLon);
    }

    Cells CellsOf(const Box& box) const {
        if (box.minLat > box.maxLat || box.minLon > box.maxLon) return {1, 0, 1, 0};  // Empty box.
        const Axis& lat = mTree.mLat;
        const Axis& lon = mTree.mLon;
        const uint8_t south = lat.CellOf(box.minLat);
        const uint8_t west = lon.CellOf(box.minLon);
        return {south, lat.CellFrom(south, box.maxLat), west, lon.CellFrom(west, box.maxLon)};
    }

    template <typename Visit>
    static void VisitCells(const Cells& cells, const Visit& visit) {
        for (size_t row = cells.south; row <= cells.north; ++row) {
            for (size_t column = cells.west; column <= cells.east; ++column)
                visit(row * kCellsPerAxis + column);
        }
    }

    // Fills mListed with the runs of each cell, cell by cell (a counting sort).
    Outcome ListRunsByCell() {
        GrowingArray<Cells> cells;
        if (!cells.Reserve(mBoxes.Size())) return Outcome::kNoMemory;
        size_t listed = 0;
        for (const Box& box : mBoxes) {
            cells.Push(CellsOf(box));
            VisitCells(cells.end()[-1], [&](size_t cell) {
                ++mBegins[cell + 1];
                ++listed;
            });
            if (listed > mLimit) return Outcome::kUseless;
        }
        for (size_t cell = 0; cell < kCells; ++cell)
            mBegins[cell + 1] += mBegins[cell];
        if (!mListed.Reserve(listed)) return Outcome::kNoMemory;
        mListed.SetSize(listed);
        std::copy_n(mBegins, kCells, mNext);
        for (uint32_t run = 0; run < cells.Size(); ++run)
            VisitCells(cells[run], [&](size_t cell) { mListed[mNext[cell]++] = run; });
        return Outcome::kBuilt;
    }

    Outcome AddCells() {
        GrowingArray<uint32_t>& words = mTree.mNodes;
        size_t needed = 0;  // For leaves of the cells that follow.
        size_t most = 0;
        for (size_t cell = 0; cell < kCells; ++cell) {
            const size_t count = mBegins[cell + 1] - mBegins[cell];
            needed += LeafWords(count);
            most = std::max(most, count);
        }
        if (needed > mLimit) return Outcome::kUseless;
        if (!words.Reserve(mLimit) || !mChildLists.Reserve(ChildListRoom(most)))
            return Outcome::kNoMemory;
        for (size_t cell = 0; cell < kCells; ++cell) {
            const Range runs = {mListed.begin() + mBegins[cell], mBegins[cell + 1] - mBegins[cell]};
            // Each cell gets a share of the spare words in proportion to its runs.
            const size_t own = LeafWords(runs.count);
            const uint64_t spare = mLimit - words.Size() - needed;
            const size_t left = std::max<size_t>(mListed.Size() - mBegins[cell], 1);
            needed -= own;
            mTree.mRoots[cell] = static_cast<uint32_t>(words.Size());
            mChildListsEnd = mChildLists.begin() + ChildListRoom(runs.count);
            AddNode({mTree.mLat.IntervalOf(cell / kCellsPerAxis),
                     mTree.mLon.IntervalOf(cell % kCellsPerAxis)},
                    runs, mChildLists.begin(),
                    words.Size() + own + static_cast<size_t>(spare * runs.count / left));
        }
        words.Trim();
        return Outcome::kBuilt;
    }

    // Appends the node of `region`, whose runs are `runs`, and all nodes below it. The run lists of
    // its children are stored from `room` up to mChildListsEnd. The node array must not grow past
    // `limit`, which leaves space for a leaf at least.
    void AddNode(const Region& region, const Range& runs, uint32_t* room, size_t limit) {
        GrowingArray<uint32_t>& words = mTree.mNodes;
        if (runs.count == 1) {
            const uint32_t run = *runs.begin;
            words.Push(kSingleRun | (Covers(mBoxes[run], region) ? kIsInBox : 0u) | run);
            return;
        }
        const bool isSplitByLat = region.lat.max - region.lat.min > region.lon.max - region.lon.min;
        const Interval& whole = isSplitByLat ? region.lat : region.lon;
        const int64_t middle = whole.Middle();
        Range first = {room, 0};
        Range second = {room + runs.count, 0};
        if (runs.count > 0 && whole.min < whole.max &&
            2 * runs.count <= static_cast<size_t>(mChildListsEnd - room)) {
            const auto split = [&](auto least, auto most) {
                for (size_t i = 0; i < runs.count; ++i) {
                    const uint32_t run = runs.begin[i];
                    first.begin[first.count] = run;
                    second.begin[second.count] = run;
                    first.count += mBoxes[run].*least <= middle ? 1u : 0u;
                    second.count += mBoxes[run].*most > middle ? 1u : 0u;
                }
            };
            isSplitByLat ? split(&Box::minLat, &Box::maxLat) : split(&Box::minLon, &Box::maxLon);
        }
        const size_t needed = words.Size() + 1 + LeafWords(first.count) + LeafWords(second.count);
        if (first.count + second.count == 0 || needed > limit) {
            words.Push(kRunList | static_cast<uint32_t>(runs.count));
            for (size_t i = 0; i < runs.count; ++i)
                words.Push(runs.begin[i]);
            return;
        }
        const size_t node = words.Size();
        words.Push(0);
        const Interval lower = {whole.min, middle};
        const Interval upper = {middle + 1, whole.max};
        room = second.begin + second.count;
        AddNode(isSplitByLat ? Region{lower, region.lon} : Region{region.lat, lower}, first, room,
                words.Size() + LeafWords(first.count) + (limit - needed) / 2);
        words[node] = static_cast<uint32_t>(words.Size());
        AddNode(isSplitByLat ? Region{upper, region.lon} : Region{region.lat, upper}, second, room,
                limit);
    }

    // Whether all points of a region that lie in the grid are in a box. The grid's last cells reach
    // beyond its boxes.
    bool Covers(const Box& box, const Region& region) const {
        return box.minLat <= region.lat.min && box.minLon <= region.lon.min &&
               box.maxLat >= std::min<int64_t>(region.lat.max, mWorld.maxLat) &&
               box.maxLon >= std::min<int64_t>(region.lon.max, mWorld.maxLon);
    }

    static constexpr size_t kCells = size_t{kCellsPerAxis} * kCellsPerAxis;

    const GrowingArray<Box>& mBoxes;  // The bounding box of each run.
    RunTree& mTree;
    const size_t mLimit;                // Of the node array, in words.
    Box mWorld = {0, 0, 0, 0};          // Covers all boxes.
    uint32_t mBegins[kCells + 1] = {};  // Start of each cell's runs in mListed.
    uint32_t mNext[kCells] = {};        // Where the cell's next run goes.
    GrowingArray<uint32_t> mListed;
    GrowingArray<uint32_t> mChildLists;  // Run lists on the path from the cell to the node.
    uint32_t* mChildListsEnd = nullptr;  // End of the space for the current cell.
};

RunTree::Outcome RunTree::Build(const GrowingArray<Box>& boxes) {
    const std::unique_ptr<Builder> builder(new (std::nothrow) Builder(boxes, this));
    return builder != nullptr ? builder->Build() : Outcome::kNoMemory;
}

}  // namespace zonedetect
