// The spatial index of the box table: finds the entries whose bounding box may contain a point, by
// a tree over the runs of the table (run_tree.h).
//
// The first lookup of an open database builds the index; other lookups scan the box table
// meanwhile. Later lookups read only the runs that the index lists for their point, in the order of
// the table. The answers are those of a scan of the whole table.
//
// The index keeps at most 22 bytes per run and 280 KB. Building it takes at most 72 bytes per run
// and 1 MB more, and time proportional to the number of runs.
//
// Without memory for the index, lookups scan the table. Building is then tried again, after 1, 2,
// 4, 8, ... further lookups.
#pragma once

#include <atomic>
#include <cstdint>

#include "box_table.h"
#include "growing_array.h"
#include "run_tree.h"

namespace zonedetect {

// The index of one table. After Build it is immutable: any thread may query it.
class SpatialIndex {
  public:
    using Runs = RunTree::Runs;
    using Outcome = RunTree::Outcome;

    // Builds the index of the table of `db`. Call it once, on a new object. Unless it returns
    // kBuilt, the object may only be destroyed. It returns kUseless also for a table that is not
    // sorted by minimum latitude: the index could not reproduce where a scan stops.
    Outcome Build(const ZDDatabase& db);

    // Returns the runs whose bounding box may contain `point`.
    Runs RunsAt(const Point& point) const { return mTree.RunsAt(point); }

    // The place before the first entry of a run, and the position behind its last entry.
    const TablePlace& PlaceOf(uint32_t run) const { return mPlaces[run]; }
    uint32_t EndOf(uint32_t run) const { return mPlaces[run + 1].position; }

  private:
    GrowingArray<TablePlace> mPlaces;  // Of each run, and behind the last run.
    RunTree mTree;
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
