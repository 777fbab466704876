#include "exact_floats.h"  // Must be the first include.

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "box_table.h"
#include "format.h"
#include "hits.h"
#include "read_budget.h"
#include "ring.h"
#include "spatial_index.h"
#include "stored_string.h"
#include "zonedetect.h"

namespace zonedetect {

namespace {

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
        uint32_t position = db.metadataOffset + zone.zone;
        StoredString stored;
        if (FindString(db, &position, &budget, &stored)) {
            stored.CopyTo(text);
            values[0] = text;
            text += stored.Room();
        }
        *entry++ = {zone.result, zone.zone, db.fieldCount, db.fieldNames, values};
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
