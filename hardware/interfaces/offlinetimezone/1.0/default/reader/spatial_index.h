// The spatial index of the box table: finds the entries whose bounding box may contain a point.
//
// Structure. A grid of 64 x 64 cells covers all bounding boxes. Each cell is a k-d tree by
// bisection (Bentley, 1975): a node halves its part of the world across the longer side. The leaves
// list runs. A run is a sequence of consecutive entries with one bounding box, such as the zones of
// one tile.
//
// Use. The first lookup of an open database builds the index; other lookups scan the box table
// meanwhile. Later lookups read only the runs that the index lists for their point, in the order of
// the table. The answers are those of a scan of the whole table.
//
// Cost. The index keeps at most 22 bytes per run and 280 KB. Building it takes at most 72 bytes per
// run and 1 MB more, and time proportional to the number of runs. Trees have at most 52 levels of
// bisection.
//
// Without memory for the index, lookups scan the table. Building is then tried again, after 1, 2,
// 4, 8, ... further lookups.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "box_table.h"
#include "growing_array.h"

namespace zonedetect {

// The index of one table. Bisection of a cell stops at a part that meets only one run, and where it
// would take more memory than the bounds above. The compiler makes tiles by the same bisection, so
// each tile ends up in leaves with one run. After Build the index is immutable: any thread may
// query it.
class SpatialIndex {
  public:
    // A list of runs, in the order of the table. Borrowed from the index.
    struct Runs {
        const uint32_t* list;  // Null if `single` is the only run.
        uint32_t count;
        uint32_t single;

        uint32_t At(uint32_t i) const { return list != nullptr ? list[i] : single; }
    };

    enum class Outcome {
        kBuilt,
        // No index is possible: the table is not sorted by minimum latitude, so the index could not
        // reproduce where a scan stops, or its boxes overlap too much.
        kUseless,
        kNoMemory,  // A later attempt may succeed.
    };

    // Builds the index of the table of `db`. Call it once, on a new object. Unless it returns
    // kBuilt, the object may only be destroyed.
    Outcome Build(const ZDDatabase& db);

    // Returns the runs whose bounding box may contain `point`.
    Runs RunsAt(const Point& point) const;

    // The place before the first entry of a run, and the position behind its last entry.
    const TablePlace& PlaceOf(uint32_t run) const { return mPlaces[run]; }
    uint32_t EndOf(uint32_t run) const { return mPlaces[run + 1].position; }

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

    GrowingArray<TablePlace> mPlaces;  // Of each run, and behind the last run.
    Axis mLat;
    Axis mLon;
    uint32_t mRoots[kCellsPerAxis * kCellsPerAxis];  // The root node of each cell, row by row.
    // The nodes. An inner node is the index of its second child; its first child follows it. A leaf
    // is one run, or a count followed by that many runs.
    GrowingArray<uint32_t> mNodes;
};

}  // namespace zonedetect

// The spatial index of one open database, built by the first lookup. Any number of threads may call
// Get at the same time; no call may be in progress when the object is destroyed.
struct ZDSpatialIndex {
    ~ZDSpatialIndex();

    // Returns the index, which belongs to this object. Builds it if it does not exist yet. Never
    // waits for another thread. Returns null if the caller must scan the table: while another
    // thread builds the index, if there was no memory for it (tried again after 1, 2, 4, 8, ...
    // lookups), or if the table allows no index.
    const zonedetect::SpatialIndex* Get(const ZDDatabase& db);

  private:
    enum State { kNone, kBusy, kReady, kUseless };
    // Acts as the lock of the members below: the thread that changes kNone to kBusy owns them until
    // it stores another state. The store of kReady publishes mIndex, which is then immutable.
    std::atomic<State> mState{kNone};
    uint32_t mLookupsToWait = 0;
    uint32_t mNextWait = 1;
    zonedetect::SpatialIndex* mIndex = nullptr;  // Owned. Read only in state kReady.
};
