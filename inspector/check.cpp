#include "check.h"

#include <fmt/format.h>
#include <reader/format.h>
#include <reader/read_budget.h>
#include <reader/units.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "areas.h"
#include "check_tiles.h"
#include "database/answer.h"
#include "database/text_rules.h"
#include "findings.h"
#include "lookup_load.h"
#include "zones.h"

namespace offlinetz {

namespace {

constexpr size_t kProgressInterval = 4096;
constexpr size_t kSamples = 4096;  // Vertices from which the cost of a lookup is estimated.

class Checker {
  public:
    Checker(const ZDDatabase& database, const ProgressCallback& progress)
        : mDb(database), mProgress(progress) {}

    std::vector<Finding> Run() {
        CheckHeader();
        if (!zonedetect::HasScale(mDb)) return mFindings.Take();
        mScale = int32_t{1} << (mDb.precision - 1);
        mLoad.emplace(mDb, mScale);
        mEntries = DecodeTable(mDb, &mTableEnd);
        ReadRings();
        CheckTable();
        CheckLimits();
        CheckBytes();
        if (mDb.tableType == zonedetect::kTiledTable && !CheckTiles(mEntries, mScale, &mFindings)) {
            mIsTableSound = false;
        }
        try {
            mInspected = InspectZones(mDb, mProgress);
        } catch (const std::runtime_error& error) {
            mFindings.Add(kShared, {}, {}, error.what());
            return mFindings.Take();
        }
        CheckZones();
        return mFindings.Take();
    }

  private:
    void CheckHeader() {
        if (!zonedetect::HasScale(mDb)) {
            mFindings.Add(kNoScale, zonedetect::kPrecisionOffset, {},
                          fmt::format("the precision is {}", mDb.precision));
        } else if (mDb.precision != zonedetect::kNauticalPrecision) {
            mFindings.Add(kOtherScale, zonedetect::kPrecisionOffset, {},
                          fmt::format("the precision is {}", mDb.precision));
        }
        if (mDb.notice[0] == '\0') mFindings.Add(kNoNotice, {}, {}, "the notice is empty");
        if (const char* fault = FaultOfNotice(mDb.notice))
            mFindings.Add(kNoticeText, {}, {}, fmt::format("the notice {}", fault));
        for (int i = 0; i < mDb.fieldCount; ++i) {
            if (mDb.fieldNames[i] == nullptr)
                mFindings.Add(kField, zonedetect::kFieldCountOffset, {},
                              fmt::format("the name of field {} cannot be read", i));
        }
    }

    bool HasRecord(const DecodedEntry& e) const {
        return e.record >= mDb.metadataOffset && e.record < mDb.polygonDataOffset;
    }

    bool HasRing(const DecodedEntry& e) const {
        return e.ring >= mDb.polygonDataOffset && e.ring < static_cast<uint32_t>(mDb.length);
    }

    // The ring of an entry for which HasRecord and HasRing hold.
    const StoredRing& RingOf(const DecodedEntry& e) const {
        return *std::lower_bound(
                mRings.begin(), mRings.end(), e.ring,
                [](const StoredRing& ring, uint32_t position) { return ring.position < position; });
    }

    // Reads each ring once, however many entries share it, until the budget is spent.
    void ReadRings() {
        std::set<uint32_t> positions;
        for (const DecodedEntry& e : mEntries) {
            if (HasRecord(e) && HasRing(e)) positions.insert(e.ring);
        }
        zonedetect::ReadBudget budget(mDb.length, kLookupsOfInspection);
        GridRing points;
        for (const uint32_t position : positions) {
            mRings.push_back({position});
            if (budget.IsSpent()) continue;
            StoredRing& ring = mRings.back();
            ring.isRead = true;
            ring.isGood = DecodeRing(mDb, position, &points, &ring.end);
            budget.Spend(ring.end - position);
            ring.points = points.size();
            if (ring.isGood && !points.empty()) ring.bounds = BoxOf(points);
        }
        mAreAllRead = !budget.IsSpent();
        if (!mAreAllRead) {
            mFindings.Add(kShared, {}, {}, "rings share bytes too often for all to be read");
        }
    }

    // Reports each entry that is bad by itself, or out of order after the one before it.
    void CheckTable() {
        if (mTableEnd < mDb.metadataOffset) {
            mFindings.Add(kTable, mTableEnd, mEntries.size(), "an entry cannot be read");
        }
        for (size_t i = 0; i < mEntries.size(); ++i) {
            if (i % kProgressInterval == 0) mProgress("checking entries", i, mEntries.size());
            const DecodedEntry& e = mEntries[i];
            const auto add = [&](const Kind& kind, uint32_t position, const std::string& what) {
                mFindings.Add(kind, position, i, what);
            };
            if (i > 0 && e.box.min.lat < mEntries[i - 1].box.min.lat) {
                mIsTableSound = false;
                add(kOrder, e.position, "a bounding box begins south of the one before it");
            }
            if (e.box.min.lat > e.box.max.lat || e.box.min.lon > e.box.max.lon) {
                mIsTableSound = false;
                add(kBox, e.position, "a bounding box has a minimum above its maximum");
            }
            if (!HasRecord(e)) {
                add(kRecordPlace, e.position, "a record lies outside the metadata");
            } else if (!HasRing(e)) {
                add(kRingPlace, e.position, "a ring lies outside the polygon data");
            } else if (const StoredRing& ring = RingOf(e); ring.isRead && !ring.isGood) {
                add(kRing, e.ring, "a ring has too many points, or runs past the end of the file");
            } else if (ring.isGood && ring.points < 3) {
                add(kRingPoints, e.ring, "a ring has fewer than three points");
            }
        }
    }

    // Collects what lookups read, and checks it against the limits of a lookup.
    void CheckLimits() {
        mProgress("checking limits", 0, 0);
        for (const DecodedEntry& e : mEntries) {
            if (!HasRecord(e) || !HasRing(e)) continue;
            const StoredRing& ring = RingOf(e);
            if (ring.isGood) mLoad->Add(e.box, ring);
        }
        mLoad->CheckLimits(mRings, &mFindings);
    }

    // Bytes of the file: from the first to before the second.
    using Spans = std::vector<std::pair<uint32_t, uint32_t>>;

    // Reports bad records, and bytes of the records and the rings that no entry refers to.
    void CheckBytes() {
        Spans records;
        if (!CheckRecords(&records)) return;
        AddUnused("metadata", mDb.metadataOffset, mDb.polygonDataOffset, std::move(records));
        if (!mAreAllRead) return;
        Spans rings;
        for (const StoredRing& ring : mRings) {
            if (ring.isGood) rings.emplace_back(ring.position, ring.end);
        }
        AddUnused("polygons", mDb.polygonDataOffset, static_cast<uint32_t>(mDb.length),
                  std::move(rings));
    }

    // Reads each record once and reports bad ones. `*spans` receives where the others stand.
    // Returns false if the budget does not suffice for all.
    bool CheckRecords(Spans* spans) {
        std::set<uint32_t> positions;
        for (const DecodedEntry& e : mEntries) {
            if (HasRecord(e)) positions.insert(e.record);
        }
        std::set<std::string> names;
        zonedetect::ReadBudget budget(mDb.length, kLookupsOfInspection);
        for (const uint32_t position : positions) {
            std::string stored;
            uint32_t end;
            const bool isGood = DecodeRecord(mDb, position, &budget, &stored, &end);
            if (budget.IsSpent()) {
                mFindings.Add(kShared, {}, {}, "records share bytes too often for all to be read");
                return false;
            }
            if (!isGood) {
                mFindings.Add(kRecord, position, {}, "a record cannot be read");
                continue;
            }
            spans->emplace_back(position, end);
            CheckIdentifier(position, stored, &names);
        }
        return true;
    }

    // `stored` is the text of the record at `position`; `names` are the identifiers so far.
    void CheckIdentifier(uint32_t position, const std::string& stored,
                         std::set<std::string>* names) {
        const std::string tzid = WithoutQuotes(stored);
        if (stored == tzid) mFindings.Add(kQuotes, position, {}, stored + " has no double quotes");
        if (const char* fault = FaultOfIdentifier(tzid)) {
            mFindings.Add(kNameText, position, {},
                          fmt::format("the identifier '{}' {}", tzid, fault));
        }
        if (!names->insert(tzid).second)
            mFindings.Add(kName, position, {}, tzid + " has another record too");
    }

    // Reports each gap between the spans, which lie in the section from `begin` to before `end`.
    void AddUnused(const char* section, uint32_t begin, uint32_t end, Spans used) {
        std::sort(used.begin(), used.end());
        used.emplace_back(end, end);
        uint32_t at = begin;
        for (const auto& [from, to] : used) {
            if (from > at) {
                mFindings.Add(
                        kUnused, at, {},
                        fmt::format("{} bytes of the {} belong to no entry", from - at, section));
            }
            at = std::max(at, to);
        }
    }

    using ZonePairs = std::set<std::pair<size_t, size_t>>;  // Indexes of zones, the lower first.

    const std::vector<InspectedZone>& Zones() const { return mInspected.zones; }

    // Checks the rings of the zones without the tiling, and what the reader answers on them.
    void CheckZones() {
        std::vector<ZoneRings> zones;
        for (const InspectedZone& zone : Zones()) {
            zones.push_back(zone.rings);
            if (zone.looseEdges > 0) {
                mFindings.Add(kLoose, zone.record, {},
                              fmt::format("{} edges of {} do not belong to a closed ring",
                                          zone.looseEdges, zone.tzid));
            }
        }
        mProgress("checking rings", 0, 0);
        if (mDb.precision <= Grid::kMaxPrecision && !MeetInVerticesOnly(zones)) {
            mFindings.Add(kCross, {}, {},
                          "edges of rings cross, or touch where they have no vertex");
        }
        ZonePairs overlaps;
        CheckBorders(&overlaps);
        for (const auto& [a, b] : overlaps) {
            mFindings.Add(kOverlap, {}, {},
                          fmt::format("{} and {} overlap", Zones()[a].tzid, Zones()[b].tzid));
        }
    }

    // Looks up the vertices of all zones, or an even sample that fits StepBudget. The reader must
    // find the vertex's own zone there. If the vertex lies inside another zone, the two overlap.
    void CheckBorders(ZonePairs* overlaps) {
        size_t vertices = 0;
        for (const InspectedZone& zone : Zones())
            vertices += zone.points;
        if (vertices == 0) return;
        const int64_t lookups = StepBudget(mDb) / MeanSteps(vertices) + 1;
        const size_t stride = vertices / static_cast<size_t>(lookups) + 1;
        std::map<uint32_t, size_t> byRecord;
        for (size_t i = 0; i < Zones().size(); ++i)
            byRecord[Zones()[i].record - mDb.metadataOffset] = i;
        size_t number = 0;
        VisitVertices(stride, [&](size_t zone, const GridPoint& vertex) {
            if (number % kProgressInterval == 0)
                mProgress("looking up borders", number * stride, vertices);
            ++number;
            CheckVertex(zone, vertex, byRecord, overlaps);
        });
    }

    // Calls `visit` with the index of the zone and the vertex, for each `stride`-th vertex.
    template <typename VertexFunction>
    void VisitVertices(size_t stride, VertexFunction visit) const {
        size_t number = 0;
        for (size_t zone = 0; zone < Zones().size(); ++zone) {
            for (const GridRing& ring : Zones()[zone].rings) {
                for (const GridPoint& vertex : ring) {
                    if (number++ % stride == 0) visit(zone, vertex);
                }
            }
        }
    }

    // The mean number of steps of a lookup at a vertex, from a sample of about kSamples.
    int64_t MeanSteps(size_t vertices) const {
        std::vector<GridPoint> points;
        VisitVertices(vertices / kSamples + 1,
                      [&](size_t, const GridPoint& vertex) { points.push_back(vertex); });
        // A lookup may have to read the whole table, unless tiles keep its entries apart.
        const bool isWholeTable = !mIsTableSound || mDb.tableType != zonedetect::kTiledTable;
        return mLoad->MeanSteps(points, isWholeTable ? mEntries.size() : 0);
    }

    void CheckVertex(size_t zoneIndex, const GridPoint& vertex,
                     const std::map<uint32_t, size_t>& byRecord, ZonePairs* overlaps) {
        const InspectedZone& zone = Zones()[zoneIndex];
        const auto lat = static_cast<float>(DegreesOf(vertex.lat, mScale, 90.0));
        const auto lon = static_cast<float>(DegreesOf(vertex.lon, mScale, 180.0));
        const auto scale = static_cast<float>(mScale);
        // The reader cannot be asked for this grid point: it lies beyond the world's edge, or the
        // grid is too fine for the reader's floats.
        if (zonedetect::LatitudeUnits(lat, scale) != vertex.lat ||
            zonedetect::LongitudeUnits(lon, scale) != vertex.lon) {
            return;
        }
        ZDResult* results = ZDLookup(&mDb, lat, lon, nullptr);
        bool isFound = false;
        for (const ZDResult* r = results; r != nullptr && r->result != ZDLookupEnd; ++r) {
            if (mDb.metadataOffset + r->recordOffset == zone.record) isFound = true;
            const auto other = byRecord.find(r->recordOffset);
            if (r->result == ZDLookupInZone && other != byRecord.end() &&
                other->second != zoneIndex) {
                overlaps->insert(std::minmax(zoneIndex, other->second));
            }
        }
        ZDFreeResults(results);
        if (!isFound) {
            mFindings.Add(
                    kHidden, {}, {},
                    fmt::format("a lookup at {:.5f} {:.5f} does not find {}", lat, lon, zone.tzid));
        }
    }

    const ZDDatabase& mDb;
    const ProgressCallback& mProgress;
    int32_t mScale = 0;  // Units in 90 degrees of latitude.
    std::vector<DecodedEntry> mEntries;
    uint32_t mTableEnd = 0;     // The byte after the last entry that could be read.
    bool mIsTableSound = true;  // Entries are sorted, no bounding box is empty, no tiles overlap.
    std::vector<StoredRing> mRings;   // By position: those of entries with a record and a ring.
    bool mAreAllRead = false;         // Whether the budget sufficed for all of mRings.
    std::optional<LookupLoad> mLoad;  // Set once mScale is.
    InspectedDatabase mInspected;
    Findings mFindings;
};

}  // namespace

std::vector<Finding> CheckDatabase(const ZDDatabase& database, const ProgressCallback& progress) {
    return Checker(database, progress).Run();
}

}  // namespace offlinetz
