#include "exact_floats.h"
// First, for all that follows.
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

// Platforms that fill every local variable with zeros must not fill the list of hits: 32 KB in each
// lookup.
#if defined(__has_attribute)
#if __has_attribute(uninitialized)
#define OFFLINETZ_UNINITIALIZED __attribute__((uninitialized))
#endif
#endif
#ifndef OFFLINETZ_UNINITIALIZED
#define OFFLINETZ_UNINITIALIZED
#endif

// A ring that holds the point, or later a zone.
struct Hit {
    int32_t result;
    uint32_t recordOffset;
};

// The hits of a lookup: an array on the stack, most of which is never touched.
class HitList {
  public:
    // cppcheck-suppress uninitMemberVar ; hits that are not counted are not looked at.
    HitList() {}  // NOLINT(modernize-use-equals-default): which would fill the array with zeros.

    // False when the list is full, which no honest table makes it.
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

// Collects the rings that hold a point, in the table's order.
class Scan {
  public:
    Scan(const ZDDatabase& db, const Point& target, uint64_t* minDistance, HitList* hits)
        : mDb(db), mTarget(target), mMinDistance(minDistance), mBudget(db.length), mHits(hits) {}

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
    // Visits the entries from a place on that begin before a position. False when the scan ends.
    bool RunEntries(const TablePlace& start, uint32_t end) {
        TableReader reader(mDb, start);
        while (reader.Place().position < end) {
            if (!reader.Next()) return false;
            const Box& box = reader.CurrentBox();
            if (box.minLat > mTarget.lat) return false;  // Sorted: no later box reaches down to it.
            if (box.Contains(mTarget) && !VisitRing(reader.Place())) return false;
        }
        return true;
    }

    // Classifies the point against the ring of an entry with these offsets. False when the scan
    // ends.
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
    uint64_t* const mMinDistance;  // Null: not wanted.
    ReadBudget mBudget;            // For rings.
    HitList* const mHits;
};

// The classification of a zone from those of its rings, in list order: a border or vertex
// anywhere wins (the last one), else the point must lie in more outlines than holes or the
// reverse.
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

// Leaves one hit a zone, where its first ring stood, and drops the zones that the point is not in.
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
        // Merged ones lie behind this one, so one to keep is never met again.
    }
    hits->CutAt(std::remove_if(hits->begin(), hits->end(),
                               [](const Hit& hit) { return hit.result == ZDLookupIgnore; }));
}

// The result list for the zones: one block of memory that holds the entries, the end entry, the
// arrays of values and the texts, because a lookup is over in the time that a few blocks would
// take. Null when memory is short.
ZDResult* MakeResults(const ZDDatabase& db, HitList* zones) {
    // Slot 0 always exists, also where the database names no field; the other slots are never
    // filled and stay null.
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

    // Of their own: rings that took all of theirs must not cost the zones their names.
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
    std::free(results);  // The block holds all that the entries refer to.
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
