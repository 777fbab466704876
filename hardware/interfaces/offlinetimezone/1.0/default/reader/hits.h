// The rings that a lookup hits, merged to zones.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "read_budget.h"
#include "zonedetect.h"

namespace zonedetect {

// Exempts the list of hits from compilers' automatic initialization of local variables: it would
// clear 32 KB in each lookup.
#if defined(__has_attribute)
#if __has_attribute(uninitialized)
#define OFFLINETZ_UNINITIALIZED __attribute__((uninitialized))
#endif
#endif
#ifndef OFFLINETZ_UNINITIALIZED
#define OFFLINETZ_UNINITIALIZED
#endif

// A ring that contains the point or has it on its border. After MergeZones: a zone.
struct Hit {
    int32_t result;  // A ZDLookupResult.
    uint32_t zone;   // What identifies the zone to the caller, such as the offset of its record.
};

// The hits of a lookup. Lives on the stack; a usual lookup touches only its first entries.
class HitList {
  public:
    // cppcheck-suppress uninitMemberVar ; entries from mCount on are never read.
    HitList() {}  // NOLINT(modernize-use-equals-default): a default would clear the array.

    // Returns false if the list is full, which happens with hostile tables only.
    bool Append(const Hit& hit) {
        if (mCount == kMaxHits) return false;
        mHits[mCount++] = hit;
        return true;
    }

    Hit* begin() { return mHits; }
    Hit* end() { return mHits + mCount; }
    void CutAt(const Hit* end) { mCount = static_cast<size_t>(end - mHits); }

  private:
    Hit mHits[kMaxHits];
    size_t mCount = 0;
};

// Combines the classifications of a zone's rings, in list order. If the point is on an edge or a
// vertex of any ring, the last such result is the result of the zone. Otherwise the zone contains
// the point if different numbers of exterior rings and holes contain it.
struct ZoneTally {
    int64_t net = 0;
    int32_t other = ZDLookupIgnore;

    void Add(int32_t result) {
        if (result == ZDLookupInZone) {
            ++net;
        } else if (result == ZDLookupInExcludedZone) {
            --net;
        } else {
            other = result;
        }
    }
    int32_t Result() const {
        if (other != ZDLookupIgnore) return other;
        return net != 0 ? ZDLookupInZone : ZDLookupIgnore;
    }
};

// Replaces the hits of each zone by one hit, in the place of its first ring. Removes zones that do
// not contain the point.
inline void MergeZones(HitList* hits) {
    for (Hit& first : *hits) {
        if (first.result == ZDLookupIgnore) continue;
        ZoneTally tally;
        for (Hit* hit = &first; hit != hits->end(); ++hit) {
            if (hit->zone != first.zone) continue;
            tally.Add(hit->result);
            hit->result = ZDLookupIgnore;
        }
        first.result = tally.Result();
        // Later iterations look at the hits behind this one only: this result stays.
    }
    hits->CutAt(std::remove_if(hits->begin(), hits->end(),
                               [](const Hit& hit) { return hit.result == ZDLookupIgnore; }));
}

}  // namespace zonedetect
