// The index of the library: the box table, decoded, with the ids of the zones, below the tree of
// the reader (reader/run_tree.h).
//
// Cost. The index of the world takes 0.7 MB. In general it keeps at most 8 bytes per entry, 42
// bytes per run and 280 KB. Building it takes time in proportion to the table, to the names of the
// zones and to the rings of tiles without a border.
#pragma once

#include <reader/box_table.h>
#include <reader/run_tree.h>
#include <zonedetect.h>

#include <cstdint>
#include <vector>

#include "zone_names.h"

namespace offlinetz {

// Immutable after it is built, so any number of threads may use it.
class ZoneIndex {
  public:
    enum class Kind : uint32_t {
        kRing,  // A ring, which must be compared with the point.
        // As kRing, and known: at every point of its leaf of the tree the zone is the only answer,
        // and no border is met (proved_tile.h). The first step of its run.
        kAnswer,
        kNoAnswer,  // As kAnswer, but no zone is.
        // The run counts only for points in a box (BoxOf), which has the first ring, too.
        kBox,
    };

    // A step of a lookup. The steps of a run are the entries of the box table with one bounding
    // box, without those that a lookup skips.
    class Step {
      public:
        Step(Kind kind, uint32_t place, uint32_t zone, bool isLast)
            : mPlace(place | (isLast ? kLast : 0)),
              mZone(zone | static_cast<uint32_t>(kind) << kKindShift) {}

        Kind KindOf() const { return static_cast<Kind>(mZone >> kKindShift); }
        // Whether one answer holds in the whole leaf, and no border touches it.
        bool IsAnswer() const { return KindOf() == Kind::kAnswer || KindOf() == Kind::kNoAnswer; }
        // The position of the ring in the content; for kBox the number of the box.
        uint32_t Place() const { return mPlace & ~kLast; }
        // The id of the zone; from Unreadable on: a zone whose record cannot be read.
        uint32_t Zone() const { return mZone & ~(~uint32_t{0} << kKindShift); }
        bool IsLast() const { return (mPlace & kLast) != 0; }  // Of its run.

      private:
        friend class ZoneIndex;

        void SetLast() { mPlace |= kLast; }

        static constexpr uint32_t kLast = 0x80000000u;  // A file is shorter.
        static constexpr unsigned kKindShift = 30;      // A file has fewer entries.

        uint32_t mPlace;
        uint32_t mZone;
    };

    // Reads the table and the names of the zones. `names` receives the zones of the database, and
    // then the nautical ones. Returns false for a database that no compiler makes: the sizes in its
    // header overflow, or the names of its zones take more reading than honest ones. Throws
    // std::bad_alloc.
    bool Build(const ZDDatabase& database, ZoneNames* names);

    // The first steps of the runs that may contain a point, in the order of the table. Without a
    // tree (HasTree) the list is empty, and a lookup takes all steps, up to the first box that
    // begins north of the point.
    zonedetect::RunTree::Runs RunsAt(const zonedetect::Point& point) const {
        if (!mHasTree || !mTree.World().Contains(point)) return {nullptr, 0, 0};
        return mTree.RunsAt(point);
    }
    bool HasTree() const { return mHasTree; }
    // Its leaves list first steps of runs.
    const zonedetect::RunTree& Tree() const { return mTree; }
    const Step* StepsFrom(uint32_t first) const { return mSteps.data() + first; }
    size_t StepCount() const { return mSteps.size() - 1; }
    // A box that lookups compare, and the first ring of its run.
    struct BoxedRing {
        zonedetect::Box box;
        Step ring;
    };
    // Of a step of kBox.
    const BoxedRing& BoxOf(const Step& step) const { return mBoxes[step.Place()]; }
    uint32_t Unreadable() const { return mUnreadable; }

  private:
    class Builder;

    std::vector<Step> mSteps;  // And one behind the last.
    std::vector<BoxedRing> mBoxes;
    zonedetect::RunTree mTree;
    bool mHasTree = false;
    uint32_t mUnreadable = 0;
};

}  // namespace offlinetz
