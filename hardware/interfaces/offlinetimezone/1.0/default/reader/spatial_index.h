// Where in the bounding-box table a point's entries stand, remembered after the first lookup.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "box_table.h"
#include "growing_array.h"

namespace zonedetect {

// A spatial index of the table. Runs are stretches of entries with the same box, such as the zones
// of one tile. For each point the index lists, in the table's order, the runs whose box may
// contain it; reading those alone gives what a scan of the whole table gives.
//
// A grid of 64 by 64 cells spans all boxes; each cell is halved across its longer side until a part
// meets one run, or until halving takes more memory than the table is worth (a k-d tree by
// bisection). Boxes that were made by halving, as the compiler makes them, then end up alone.
//
// It keeps at most 22 bytes a run and 280 KB. Making it takes at most 72 bytes a run and 1 MB more,
// and time in proportion to the runs, with at most 52 halvings.
class SpatialIndex {
  public:
    // Some runs, in the table's order.
    struct Runs {
        const uint32_t* list;  // Null: `alone` is the only one.
        uint32_t count;
        uint32_t alone;

        uint32_t At(uint32_t i) const { return list != nullptr ? list[i] : alone; }
    };

    enum class Outcome {
        kBuilt,
        kUseless,   // The table is not sorted, so that a scan need not read all of it, or its boxes
                    // overlap too much.
        kNoMemory,  // Another time it may be built.
    };

    // Makes the index of `db`'s table; to be called once. Only after kBuilt may it be asked.
    Outcome Build(const ZDDatabase& db);

    Runs RunsAt(const Point& point) const;

    // The place before a run, and the position behind it.
    const TablePlace& PlaceOf(uint32_t run) const { return mPlaces[run]; }
    uint32_t EndOf(uint32_t run) const { return mPlaces[run + 1].position; }

  private:
    static constexpr uint32_t kTopCells = 64;  // In each direction.

    // An interval of units, halved like a tile.
    struct Part {
        int64_t min;
        int64_t max;

        int64_t Middle() const { return min + (max - min) / 2; }
    };

    // One axis of the grid. Any rising function from units to cells serves; this one meets the
    // halves of a tiled world.
    struct Axis {
        int32_t min = 0;
        uint32_t cellUnits = 1;

        uint8_t CellOf(int32_t units) const;
        uint8_t CellFrom(uint8_t cell, int32_t units) const;
        Part PartOf(size_t cell) const;
    };

    class Builder;

    GrowingArray<TablePlace> mPlaces;  // Of each run, and behind the last one.
    Axis mLat;
    Axis mLon;
    uint32_t mTop[kTopCells * kTopCells];  // The node of each cell, row by row.
    // Nodes. One that is halved holds the place of its second half; its first half follows it. One
    // that is not is a run alone, or a count with so many runs behind it.
    GrowingArray<uint32_t> mWords;
};

}  // namespace zonedetect

// A handle's index, made by the first lookup. Any number of threads may ask for it.
struct ZDSpatialIndex {
    ~ZDSpatialIndex();

    // The index, or null where a scan must answer: while another thread makes it, when there
    // was no memory, or when the table is not one for it. Where memory was short it is tried again
    // after 1, 2, 4, 8, ... lookups.
    const zonedetect::SpatialIndex* Get(const ZDDatabase& db);

  private:
    enum State { kNone, kBusy, kReady, kUseless };
    std::atomic<State> mState{kNone};
    // Guarded by mState: changed only by the thread that has made it kBusy.
    uint32_t mLookupsToWait = 0;
    uint32_t mNextWait = 1;
    zonedetect::SpatialIndex* mIndex = nullptr;  // Written before mState becomes kReady.
};
