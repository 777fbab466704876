#include "exact_floats.h"  // Must be the first include.

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "box_table.h"
#include "format.h"
#include "read_budget.h"
#include "ring.h"
#include "spatial_index.h"
#include "stored_string.h"
#include "zonedetect.h"

namespace zonedetect {

namespace {

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
    int32_t result;
    uint32_t recordOffset;
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

// Collects the rings that contain a point, in the order of the table.
class Scan {
  public:
    Scan(const ZDDatabase& db, const Point& target, uint64_t* minDistance, HitList* hits)
        : mDb(db), mTarget(target), mMinDistance(minDistance), mBudget(db.length), mHits(hits) {}

    // Uses the spatial index if there is one, else reads the whole table.
    void Run() {
        const SpatialIndex* index =
                mDb.spatialIndex != nullptr ? mDb.spatialIndex->Get(mDb) : nullptr;
        if (index == nullptr) {
            RunEntries(TableReader::Start(mDb), mDb.metadataOffset);
            return;
        }
        const SpatialIndex::Runs runs = index->RunsAt(mTarget);
        for (uint32_t i = 0; i < runs.count; ++i) {
            const uint32_t run = runs.At(i);
            Prefetch(mDb, mDb.polygonDataOffset + index->PlaceOf(run + 1).polygonOffset);
            if (!RunEntries(index->PlaceOf(run), index->EndOf(run))) return;
        }
    }

  private:
    // Visits the entries from `start` on that begin before position `end`. Returns false if the
    // scan must end.
    bool RunEntries(const TablePlace& start, uint32_t end) {
        TableReader reader(mDb, start);
        while (reader.Place().position < end) {
            if (!reader.Next()) return false;
            const Box& box = reader.CurrentBox();
            if (box.minLat > mTarget.lat) return false;  // Sorted: no later box contains the point.
            if (box.Contains(mTarget) && !VisitRing(reader.Place())) return false;
        }
        return true;
    }

    // Classifies the point against the ring of the entry with the offsets of `place`. Skips an
    // entry whose offsets are out of range. Returns false if the scan must end.
    bool VisitRing(const TablePlace& place) {
        const uint32_t ringPosition = mDb.polygonDataOffset + place.polygonOffset;
        if (mDb.metadataOffset + place.recordOffset >= mDb.polygonDataOffset ||
            ringPosition >= static_cast<uint32_t>(mDb.length)) {
            return true;
        }
        Prefetch(mDb, mDb.metadataOffset + place.recordOffset);
        const Point ringTarget = {mTarget.lat, WrappingAdd(mTarget.lon, -kRingShift)};
        Cursor ring = CursorAt(mDb, ringPosition);
        const ZDLookupResult result = ClassifyAgainstRing(&ring, ringTarget, mMinDistance);
        if (result == ZDLookupParsingError) return false;
        mBudget.Spend(PositionOf(mDb, ring) - ringPosition);
        if (result != ZDLookupNotInZone && !mHits->Append({result, place.recordOffset})) {
            return false;
        }
        return !mBudget.IsSpent();
    }

    const ZDDatabase& mDb;
    const Point mTarget;
    uint64_t* const mMinDistance;  // Null if not wanted.
    ReadBudget mBudget;            // For rings.
    HitList* const mHits;
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
void MergeZones(HitList* hits) {
    for (Hit& first : *hits) {
        if (first.result == ZDLookupIgnore) continue;
        ZoneTally tally;
        for (Hit* hit = &first; hit != hits->end(); ++hit) {
            if (hit->recordOffset != first.recordOffset) continue;
            tally.Add(hit->result);
            hit->result = ZDLookupIgnore;
        }
        first.result = tally.Result();
        // Later iterations look at the hits behind this one only: this result stays.
    }
    hits->CutAt(std::remove_if(hits->begin(), hits->end(),
                               [](const Hit& hit) { return hit.result == ZDLookupIgnore; }));
}

// Makes the result list of a lookup. Entries, end entry, value arrays and texts share one block of
// memory: a few more allocations would take as long as the rest of the lookup. Returns null without
// memory.
ZDResult* MakeResults(const ZDDatabase& db, HitList* zones) {
    // Slot 0 exists even if the database names no field. The other slots stay null.
    const size_t slots = std::max<size_t>(db.fieldCount, 1);
    const auto count = static_cast<size_t>(zones->end() - zones->begin());
    static_assert(alignof(ZDResult) >= alignof(char*), "the arrays follow the entries");
    const size_t entryBytes = (count + 1) * sizeof(ZDResult);
    const size_t arrayBytes = count * slots * sizeof(char*);
    const size_t textBytes = count * StoredString::kMaxRoom;
    auto* block = static_cast<char*>(std::malloc(entryBytes + arrayBytes + textBytes));
    if (block == nullptr) return nullptr;
    auto* const results = reinterpret_cast<ZDResult*>(block);
    auto** values = reinterpret_cast<char**>(block + entryBytes);
    std::fill(values, values + count * slots, nullptr);
    char* text = block + entryBytes + arrayBytes;

    // A separate budget: zones must have their names even if the rings spent their budget.
    ReadBudget budget(db.length);
    ZDResult* entry = results;
    for (const Hit& zone : *zones) {
        uint32_t position = db.metadataOffset + zone.recordOffset;
        StoredString stored;
        if (FindString(db, &position, &budget, &stored)) {
            stored.CopyTo(text);
            values[0] = text;
            text += stored.Room();
        }
        *entry++ = {zone.result, zone.recordOffset, db.fieldCount, db.fieldNames, values};
        values += slots;
    }
    *entry = {ZDLookupEnd, 0, 0, nullptr, nullptr};
    return results;
}

}  // namespace

}  // namespace zonedetect

ZDResult* ZDLookup(const ZDDatabase* db, float lat, float lon, float* safezone) {
    using namespace zonedetect;
    OFFLINETZ_UNINITIALIZED HitList hits;
    float distance = 0.0f;
    if (HasScale(*db)) {
        const float scale = Scale(*db);
        const Point target = {LatitudeUnits(lat, scale), LongitudeUnits(lon, scale)};
        uint64_t minDistance = UINT64_MAX;
        Scan(*db, target, safezone != nullptr ? &minDistance : nullptr, &hits).Run();
        MergeZones(&hits);
        distance = sqrtf(static_cast<float>(minDistance)) * 90.0f / scale;
    }
    ZDResult* results = MakeResults(*db, &hits);
    if (results != nullptr && safezone != nullptr) *safezone = distance;
    return results;
}

void ZDFreeResults(ZDResult* results) {
    std::free(results);  // The one block of MakeResults.
}

const char* ZDLookupResultToString(int32_t result) {
    switch (result) {
        case ZDLookupIgnore:
            return "Ignore";
        case ZDLookupEnd:
            return "End";
        case ZDLookupParsingError:
            return "Parsing error";
        case ZDLookupNotInZone:
            return "Not in zone";
        case ZDLookupInZone:
            return "In zone";
        case ZDLookupInExcludedZone:
            return "In excluded zone";
        case ZDLookupBorderVertex:
            return "Target point is border vertex";
        case ZDLookupOnBorder:
            return "Target point is on border";
        default:
            return "Unknown";
    }
}
