// Where in the bounding-box table a point's entries stand, remembered after the first lookup.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "box_table.h"

namespace zonedetect {

// Runs are stretches of entries with the same box, such as the zones of one tile. For each point
// the directory lists, in the table's order, the runs whose box may contain it; reading those alone
// gives what a scan of the whole table gives.
//
// A top grid of 64 by 64 cells spans all boxes; each cell is halved across its longer side until a
// part meets one run, or until the halves would list more than the table is worth. Boxes that were
// made by halving, as the compiler makes them, then end up alone. Besides twelve bytes a run it
// holds a few words a run and 16 KB.
class Directory {
  public:
    // Some runs, in the table's order.
    struct Runs {
        const uint32_t* list;  // Null: `alone` is the only one.
        uint32_t count;
        uint32_t alone;

        uint32_t At(uint32_t i) const { return list != nullptr ? list[i] : alone; }
    };

    // Makes the directory of `db`'s table. False where it would not serve: for a table that is not
    // sorted, which a scan need not read to its end, or one whose boxes overlap too much. Throws
    // std::bad_alloc.
    bool Build(const ZDDatabase& db);

    Runs RunsAt(const Point& point) const;

    // The place before a run, and the position behind it.
    const TablePlace& PlaceOf(uint32_t run) const { return mPlaces[run]; }
    uint32_t EndOf(uint32_t run) const { return mPlaces[run + 1].position; }

  private:
    // A node is a run alone, a place in mLists, or the index of its second half, behind the first
    // half, which follows it.
    using Node = uint32_t;

    // An interval of units, halved like a tile.
    struct Part {
        int64_t min;
        int64_t max;

        int64_t Middle() const { return min + (max - min) / 2; }
    };

    // One axis of the top grid. Any rising function from units to cells serves; this one meets the
    // halves of a tiled world.
    struct Axis {
        int32_t min = 0;
        uint32_t cellUnits = 1;

        uint8_t CellOf(int32_t units) const;
        uint8_t CellFrom(uint8_t cell, int32_t units) const;
        Part PartOf(size_t cell) const;
    };

    struct Draft;  // What is needed while it is made.

    bool ReadRuns(const ZDDatabase& db, std::vector<Box>* boxes);
    void AddNode(Draft* draft, const Part& lat, const Part& lon, size_t first, size_t count,
                 size_t end, size_t budget);

    std::vector<TablePlace> mPlaces;  // Of each run, and behind the last one.
    Axis mLat;
    Axis mLon;
    std::vector<uint32_t> mTop;  // The node of each cell, row by row.
    std::vector<Node> mNodes;
    std::vector<uint32_t> mLists;  // Counts, each with so many runs behind it.
};

}  // namespace zonedetect

// A handle's directory, made by the first lookup. Any number of threads may ask for it.
class ZDDirectory {
  public:
    ~ZDDirectory();

    // The directory, or null where a scan must answer: while another thread makes it, when there is
    // no memory, or when the table is not one for it.
    const zonedetect::Directory* Get(const ZDDatabase& db);

  private:
    enum State { kNone, kBusy, kReady, kUseless };
    std::atomic<State> mState{kNone};
    zonedetect::Directory* mDirectory = nullptr;  // Written before mState becomes kReady.
};
