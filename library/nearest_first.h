// Visits the leaves of the tree in the order of their distance from a point: best-first search
// (Hjaltason and Samet, "Distance browsing in spatial databases", 1999).
#pragma once

#include <reader/run_tree.h>

#include <algorithm>
#include <cstdint>

#include "sphere.h"
#include "sphere_units.h"

namespace offlinetz {

// A search has a limit, which may shrink while it runs: leaves further away are not visited. It
// keeps up to kRoom parts of the tree, on the stack. Where that is not enough, it visits the leaves
// of a further part at once, out of order. That takes recursion, but only into smaller parts of the
// same part.
class NearestFirst {
  public:
    // Borrows the arguments.
    // cppcheck-suppress uninitMemberVar ; entries from mCount on are never read.
    NearestFirst(const zonedetect::RunTree& tree, const SphereUnits& units, const Origin& origin)
        : mTree(tree), mUnits(units), mOrigin(origin) {}

    // Calls visitor.Visit(leaf, haversine), which returns false to end the search, for the leaves
    // that may be within visitor.Limit(), a haversine. `haversine` is a lower bound of that to the
    // leaf. Returns false if a visit did.
    template <typename Visitor>
    bool Run(Visitor* visitor) {
        mCount = 0;
        Entry next = {0.0f, mTree.Whole()};
        for (;;) {
            if (!Descend(next, true, visitor)) return false;
            if (mCount == 0) return true;
            std::pop_heap(mEntries, mEntries + mCount, IsFurther);
            next = mEntries[--mCount];
            if (static_cast<double>(next.haversine) > visitor->Limit()) return true;
        }
    }

  private:
    static constexpr size_t kRoom = 256;

    struct Entry {
        float haversine;  // A lower bound.
        zonedetect::RunTree::Part part;
    };
    static bool IsFurther(const Entry& a, const Entry& b) { return a.haversine > b.haversine; }

    // Divides a part, goes on with the nearest of the new parts and keeps the others. If
    // `mayExchange` is set, it goes on with a kept part where that is nearer.
    template <typename Visitor>
    bool Descend(Entry entry, bool mayExchange, Visitor* visitor) {
        while (!mTree.IsLeaf(entry.part)) {
            Entry nearest = {3.0f, {}};
            bool isDone = true;
            mTree.Divide(entry.part, [&](const zonedetect::RunTree::Part& part) {
                Entry other = {LowerBound(part.area), part};
                if (other.haversine < nearest.haversine) std::swap(other, nearest);
                if (static_cast<double>(other.haversine) > visitor->Limit()) return;
                if (mCount < kRoom) {
                    mEntries[mCount++] = other;
                    std::push_heap(mEntries, mEntries + mCount, IsFurther);
                } else {
                    isDone = isDone && Descend(other, false, visitor);
                }
            });
            if (!isDone) return false;
            if (static_cast<double>(nearest.haversine) > visitor->Limit()) return true;
            if (mayExchange && mCount > 0 && mEntries[0].haversine < nearest.haversine) {
                std::pop_heap(mEntries, mEntries + mCount, IsFurther);
                std::swap(mEntries[mCount - 1], nearest);
                std::push_heap(mEntries, mEntries + mCount, IsFurther);
            }
            entry = nearest;
        }
        return visitor->Visit(entry.part, static_cast<double>(entry.haversine));
    }

    // Of the haversine to an area, which is taken a unit larger on each side, as its borders are.
    float LowerBound(const zonedetect::Box& area) const {
        const LatLonBox box = {mUnits.Lat(area.minLat - 1), mUnits.Lon(area.minLon - 1),
                               mUnits.Lat(area.maxLat + 1), mUnits.Lon(area.maxLon + 1)};
        return static_cast<float>(mOrigin.LeastHaversineTo(box)) * (1.0f - 0x1p-20f);
    }

    const zonedetect::RunTree& mTree;
    const SphereUnits& mUnits;
    const Origin& mOrigin;
    size_t mCount = 0;
    Entry mEntries[kRoom];  // A heap: the nearest is first.
};

}  // namespace offlinetz
