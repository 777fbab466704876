#include "check.h"

#include <fmt/format.h>
#include <reader/read_budget.h>
#include <reader/ring.h>
#include <reader/varint.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "areas.h"
#include "database/answer.h"
#include "database/encode.h"
#include "database/text_rules.h"
#include "depth.h"
#include "zones.h"

namespace offlinetz {

namespace {

constexpr int kSeaPrecision = 21;  // The bands of the nautical zones are those of this precision.
constexpr size_t kProgressInterval = 4096;
// Work is counted in steps; one is about the reading of a byte of a ring. Lookups on borders may
// take so many, and so may the search for the most rings at a point: where there is more to do,
// vertices are passed over. The lookups on all borders of a tiled world take 700 steps a byte.
constexpr int64_t kMostSteps = int64_t{1} << 30;
constexpr int64_t kMostStepsOfByte = 1024;
constexpr int64_t kStepsOfEntry = 16;
constexpr int64_t kStepsOfRing = 32;
constexpr int64_t kStepsOfLookup = 1024;
constexpr size_t kSamples = 4096;
constexpr int64_t kMostHits = zonedetect::kMaxHits;
constexpr size_t kMostCandidates = size_t{1} << 22;

struct Kind {
    Severity severity;
    const char* name;
    const char* effect;
};

constexpr Kind kNoScale = {Severity::kError, "precision", "no lookup finds a zone"};
constexpr Kind kOtherScale = {Severity::kWarning, "precision-at-sea",
                              "at sea, lookups name the nautical zone of another longitude"};
constexpr Kind kNoNotice = {Severity::kNote, "notice-empty",
                            "whoever has the file cannot tell where it is from"};
constexpr Kind kNoticeText = {Severity::kWarning, "notice-text",
                              "what shows it shows something else, or obeys it"};
constexpr Kind kField = {Severity::kNote, "field-unreadable", "a column has no name"};
constexpr Kind kTable = {Severity::kError, "table-unreadable",
                         "no lookup finds the entries from there on"};
constexpr Kind kOrder = {Severity::kError, "table-unsorted",
                         "lookups in it end at the entry before, which lies further north"};
constexpr Kind kBox = {Severity::kWarning, "box-empty", "no point is in it"};
constexpr Kind kRecordPlace = {Severity::kError, "record-outside", "lookups pass the entry over"};
constexpr Kind kRecord = {Severity::kError, "record-unreadable", "the zone has no name"};
constexpr Kind kQuotes = {Severity::kNote, "identifier-bare",
                          "an answer of several zones cannot be taken apart"};
constexpr Kind kNameText = {Severity::kError, "identifier-text",
                            "clients drop the answer, or take another zone out of it or none"};
constexpr Kind kName = {Severity::kWarning, "identifier-twice",
                        "rings of the zone do not make up for each other"};
constexpr Kind kRingPlace = {Severity::kError, "ring-outside", "lookups pass the entry over"};
constexpr Kind kRing = {Severity::kError, "ring-unreadable",
                        "lookups that meet it end there, without the entries behind"};
constexpr Kind kRingPoints = {Severity::kWarning, "ring-short", "it encloses nothing"};
constexpr Kind kHits = {Severity::kError, "limit-rings", "lookups there end early"};
constexpr Kind kMaybeHits = {Severity::kWarning, "limit-rings-unknown",
                             "lookups there may end early"};
constexpr Kind kBytes = {Severity::kError, "limit-bytes", "lookups there end early"};
constexpr Kind kUnused = {Severity::kWarning, "bytes-unused", "nothing reads them"};
constexpr Kind kTwoTiles = {Severity::kError, "tiles-overlap",
                            "points in both have each zone twice, which reads as a border or none"};
constexpr Kind kNoTile = {Severity::kError, "tile-missing",
                          "points there have no zone, and a distance that says nothing"};
constexpr Kind kLoose = {Severity::kError, "ring-open",
                         "tiles do not have the same border; points near it get wrong answers"};
constexpr Kind kShared = {Severity::kWarning, "rings-shared", "what was not read is not checked"};
constexpr Kind kCross = {Severity::kError, "rings-cross",
                         "points where they overlap are in a zone twice, or in another one"};
constexpr Kind kHidden = {Severity::kError, "border-not-found",
                          "lookups there do not find the zone whose border it is"};
constexpr Kind kOverlap = {Severity::kNote, "zones-overlap",
                           "answers there name both; a disputed area, or a fault of the source"};

// Findings by kind, in the order of their first ones.
class Findings {
  public:
    void Add(const Kind& kind, std::optional<uint32_t> position, std::optional<size_t> entry,
             const std::string& what) {
        const auto same = std::find_if(mFindings.begin(), mFindings.end(), [&](const Finding& f) {
            return f.kind == std::string(kind.name);
        });
        if (same != mFindings.end()) {
            ++same->count;
        } else {
            mFindings.push_back({kind.severity, kind.name, position, entry, what, kind.effect, 1});
        }
    }

    std::vector<Finding> Take() {
        std::stable_sort(
                mFindings.begin(), mFindings.end(),
                [](const Finding& a, const Finding& b) { return a.severity > b.severity; });
        return std::move(mFindings);
    }

  private:
    std::vector<Finding> mFindings;
};

GridBox Common(const GridBox& a, const GridBox& b) {
    return {{std::max(a.min.lat, b.min.lat), std::max(a.min.lon, b.min.lon)},
            {std::min(a.max.lat, b.max.lat), std::min(a.max.lon, b.max.lon)}};
}

// A ring as it stands in the file, which several entries may share.
struct StoredRing {
    uint32_t position;
    uint32_t end = 0;
    size_t points = 0;
    GridBox bounds = {{1, 1}, {0, 0}};  // Where the ring has no points, none is in it.
    bool isRead = false;                // Whether it was looked at ...
    bool isGood = false;                // ... and could be read.
};

using BoxKey = std::tuple<int32_t, int32_t, int32_t, int32_t>;

BoxKey KeyOf(const GridBox& box) {
    return {box.min.lat, box.min.lon, box.max.lat, box.max.lon};
}

class Checker {
  public:
    Checker(const ZDDatabase& database, const ProgressCallback& progress)
        : mDb(database), mProgress(progress) {}

    std::vector<Finding> Run() {
        CheckHeader();
        if (mDb.precision < 1 || mDb.precision > 31) return mFindings.Take();
        mScale = int32_t{1} << (mDb.precision - 1);
        mEntries = DecodeTable(mDb, &mTableEnd);
        ReadRings();
        CheckTable();
        CheckLimits();
        CheckBytes();
        if (mDb.tableType == zonedetect::kTiledTable) CheckTiles();
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
        if (mDb.precision < 1 || mDb.precision > 31) {
            mFindings.Add(kNoScale, 5, {}, fmt::format("the precision is {}", mDb.precision));
        } else if (mDb.precision != kSeaPrecision) {
            mFindings.Add(kOtherScale, 5, {}, fmt::format("the precision is {}", mDb.precision));
        }
        if (mDb.notice[0] == '\0') mFindings.Add(kNoNotice, {}, {}, "the notice is empty");
        if (const char* fault = FaultOfNotice(mDb.notice))
            mFindings.Add(kNoticeText, {}, {}, fmt::format("the notice {}", fault));
        for (int i = 0; i < mDb.fieldCount; ++i) {
            if (mDb.fieldNames[i] == nullptr)
                mFindings.Add(kField, 6, {}, fmt::format("the name of field {}", i));
        }
    }

    int64_t MostBytes() const { return zonedetect::ReadBudget::Bytes(mDb.length); }
    int64_t MostSteps() const { return kMostSteps + kMostStepsOfByte * mDb.length; }

    bool HasRecord(const DecodedEntry& e) const {
        return e.record >= mDb.metadataOffset && e.record < mDb.polygonDataOffset;
    }

    bool HasRing(const DecodedEntry& e) const {
        return e.ring >= mDb.polygonDataOffset && e.ring < static_cast<uint32_t>(mDb.length);
    }

    // The ring of an entry that has one.
    const StoredRing& RingOf(const DecodedEntry& e) const {
        return *std::lower_bound(
                mRings.begin(), mRings.end(), e.ring,
                [](const StoredRing& ring, uint32_t position) { return ring.position < position; });
    }

    // Reads each ring once, however many entries share it.
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
            mFindings.Add(kShared, {}, {}, "rings lie over each other too often to be read");
        }
    }

    // Each entry by itself and beside the one before.
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
                add(kOrder, e.position, "an entry begins further south than the one before");
            }
            if (e.box.min.lat > e.box.max.lat || e.box.min.lon > e.box.max.lon) {
                mIsTableSound = false;
                add(kBox, e.position, "a box ends before it begins");
            }
            if (!HasRecord(e)) {
                add(kRecordPlace, e.position, "a record lies outside the metadata");
            } else if (!HasRing(e)) {
                add(kRingPlace, e.position, "a ring lies outside the polygons");
            } else if (const StoredRing& ring = RingOf(e); ring.isRead && !ring.isGood) {
                add(kRing, e.ring, "a ring has too many points, or runs out of the file");
            } else if (ring.isGood && ring.points < 3) {
                add(kRingPoints, e.ring, "a ring has fewer than three points");
            }
        }
    }

    std::string PlaceText(const GridPoint& p) const {
        return fmt::format("{:.5f} {:.5f}", DegreesOf(p.lat, mScale, 90.0),
                           DegreesOf(p.lon, mScale, 180.0));
    }

    // What the lookup meets that meets most, of all in the world. It reads the ring of each entry
    // in whose box its point lies, once an entry where several share it, and collects those that
    // hold the point.
    void CheckLimits() {
        mProgress("checking limits", 0, 0);
        const GridBox world = {{-mScale, -mScale}, {mScale, mScale}};
        for (const DecodedEntry& e : mEntries) {
            if (!HasRecord(e) || !HasRing(e)) continue;
            const StoredRing& ring = RingOf(e);
            if (!ring.isGood) continue;
            const GridBox box = Common(e.box, world);
            mBytesMet.push_back({box, int64_t{ring.end} - ring.position});
            mRingsMet.push_back({Common(box, ring.bounds), 1});
            mMetRings.push_back(&ring);
        }
        const Depths most = DepthsOf(mBytesMet);
        if (most.greatest > MostBytes()) {
            mFindings.Add(kBytes, {}, {},
                          fmt::format("a lookup at {} meets {} bytes of rings, and reads {}",
                                      PlaceText(most.place), most.greatest, MostBytes()));
        }
        const Depths hits = DepthsOf(mRingsMet);
        // No more rings hold a point than bounding boxes of rings do.
        if (hits.greatest > kMostHits) CheckHits(hits.place);
    }

    // Where more bounding boxes of rings than a lookup collects rings hold one point, whether the
    // rings do: at vertices, where most rings meet, those in the most boxes first.
    void CheckHits(const GridPoint& deepest) {
        std::vector<GridPoint> points = VerticesOfRings();
        points.push_back(deepest);
        std::sort(points.begin(), points.end());
        points.erase(std::unique(points.begin(), points.end()), points.end());
        const std::vector<int64_t> depths = DepthsOf(mRingsMet, points).depths;
        std::vector<size_t> order;
        for (size_t i = 0; i < points.size(); ++i) {
            if (depths[i] > kMostHits) order.push_back(i);
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](size_t a, size_t b) { return depths[a] > depths[b]; });
        int64_t steps = 0;
        for (const size_t i : order) {
            if (steps > MostSteps()) {
                mFindings.Add(kMaybeHits, {}, {},
                              fmt::format("up to {} rings hold the point {}", depths[i],
                                          PlaceText(points[i])));
                return;
            }
            const int64_t hits = HitsAt(points[i], &steps);
            if (hits > kMostHits) {
                mFindings.Add(kHits, {}, {},
                              fmt::format("{} rings hold the point {}, and a lookup collects {}",
                                          hits, PlaceText(points[i]), zonedetect::kMaxHits));
                return;
            }
        }
    }

    // The vertices of all rings that can be read; every so many where they are very many.
    std::vector<GridPoint> VerticesOfRings() const {
        size_t all = 0;
        for (const StoredRing& ring : mRings)
            all += ring.points;
        const size_t stride = all / kMostCandidates + 1;
        std::vector<GridPoint> vertices;
        GridRing points;
        size_t number = 0;
        for (const StoredRing& ring : mRings) {
            uint32_t end;
            if (!ring.isGood || !DecodeRing(mDb, ring.position, &points, &end)) continue;
            for (const GridPoint& p : points) {
                if (number++ % stride == 0) vertices.push_back(p);
            }
        }
        return vertices;
    }

    // How many rings with a bounding box around the point hold it. Counts the steps.
    int64_t HitsAt(const GridPoint& p, int64_t* steps) const {
        int64_t hits = 0;
        for (size_t i = 0; i < mRingsMet.size(); ++i) {
            if (!mRingsMet[i].box.Contains(p)) continue;
            zonedetect::Cursor cursor = zonedetect::CursorAt(mDb, mMetRings[i]->position);
            const zonedetect::Point target = {p.lat, p.lon - zonedetect::kRingShift};
            if (zonedetect::ClassifyAgainstRing(&cursor, target, nullptr) != ZDLookupNotInZone) {
                ++hits;
            }
            *steps += kStepsOfRing + mMetRings[i]->end - mMetRings[i]->position;
        }
        *steps += static_cast<int64_t>(mRingsMet.size());
        return hits;
    }

    // Records by themselves, and what nothing refers to.
    void CheckBytes() {
        std::set<uint32_t> positions;
        for (const DecodedEntry& e : mEntries) {
            if (HasRecord(e)) positions.insert(e.record);
        }
        std::set<std::string> names;
        std::vector<std::pair<uint32_t, uint32_t>> records;
        zonedetect::ReadBudget budget(mDb.length, kLookupsOfInspection);
        for (const uint32_t position : positions) {
            std::string stored;
            uint32_t end;
            const bool isGood = DecodeRecord(mDb, position, &budget, &stored, &end);
            if (budget.IsSpent()) {
                mFindings.Add(kShared, {}, {}, "records lie over each other too often to be read");
                return;
            }
            if (!isGood) {
                mFindings.Add(kRecord, position, {}, "a record cannot be read");
                continue;
            }
            records.emplace_back(position, end);
            const std::string tzid = WithoutQuotes(stored);
            if (stored == tzid)
                mFindings.Add(kQuotes, position, {}, stored + " has no double quotes");
            if (const char* fault = FaultOfIdentifier(tzid)) {
                mFindings.Add(kNameText, position, {},
                              fmt::format("the identifier '{}' {}", tzid, fault));
            }
            if (!names.insert(tzid).second)
                mFindings.Add(kName, position, {}, tzid + " has a record already");
        }
        AddUnused("metadata", mDb.metadataOffset, mDb.polygonDataOffset, std::move(records));
        if (!mAreAllRead) return;
        std::vector<std::pair<uint32_t, uint32_t>> rings;
        for (const StoredRing& ring : mRings) {
            if (ring.isGood) rings.emplace_back(ring.position, ring.end);
        }
        AddUnused("polygons", mDb.polygonDataOffset, static_cast<uint32_t>(mDb.length),
                  std::move(rings));
    }

    void AddUnused(const char* section, uint32_t begin, uint32_t end,
                   std::vector<std::pair<uint32_t, uint32_t>> used) {
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

    // Sweeps north over the boxes: those that a parallel meets must follow each other without a
    // gap.
    void CheckTiles() {
        struct Tile {
            GridBox box;
            uint32_t position;
            size_t entry;
        };
        std::map<BoxKey, Tile> tiles;
        for (size_t i = 0; i < mEntries.size(); ++i) {
            const DecodedEntry& e = mEntries[i];
            tiles.emplace(KeyOf(e.box), Tile{e.box, e.position, i});
        }
        struct Event {
            int64_t lat;
            bool begins;
            const Tile* tile;
        };
        std::vector<Event> events;
        for (const auto& [key, tile] : tiles) {
            if (tile.box.min.lat > tile.box.max.lat || tile.box.min.lon > tile.box.max.lon)
                continue;
            events.push_back({tile.box.min.lat, true, &tile});
            events.push_back({int64_t{tile.box.max.lat} + 1, false, &tile});
        }
        std::sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
            return std::make_tuple(a.lat, a.begins) < std::make_tuple(b.lat, b.begins);
        });
        // By the western side, and by the entry where several begin there.
        std::map<std::pair<int32_t, size_t>, const Tile*> row;
        int64_t covered = 0;  // Grid points of the row within the world, in all tiles.
        const auto width = [&](const Tile& tile) {
            const int64_t west = std::max(tile.box.min.lon, -mScale);
            const int64_t east = std::min(tile.box.max.lon, mScale);
            return std::max<int64_t>(east - west + 1, 0);
        };
        int64_t at = -int64_t{mScale};  // Rows are known up to here.
        for (size_t i = 0; i <= events.size(); ++i) {
            const int64_t next = i < events.size() ? events[i].lat : int64_t{mScale} + 1;
            if (next > at && at <= mScale && covered < 2 * int64_t{mScale} + 1) {
                mFindings.Add(kNoTile, {}, {},
                              fmt::format("points at latitude {:.4f} lie in no tile",
                                          DegreesOf(static_cast<int32_t>(at), mScale, 90.0)));
            }
            at = std::max(at, next);
            if (i == events.size()) break;
            const Tile& tile = *events[i].tile;
            const std::pair<int32_t, size_t> key(tile.box.min.lon, tile.entry);
            if (!events[i].begins) {
                row.erase(key);
                covered -= width(tile);
                continue;
            }
            const auto after = row.lower_bound({tile.box.min.lon, 0});
            if ((after != row.end() && after->first.first <= tile.box.max.lon) ||
                (after != row.begin() &&
                 std::prev(after)->second->box.max.lon >= tile.box.min.lon)) {
                mIsTableSound = false;
                mFindings.Add(kTwoTiles, tile.position, tile.entry, "a tile overlaps another one");
            }
            row.emplace(key, &tile);
            covered += width(tile);
        }
    }

    using ZonePairs = std::set<std::pair<size_t, size_t>>;  // By their place among the zones.

    const std::vector<InspectedZone>& Zones() const { return mInspected.zones; }

    // The zones whole: their rings, and what the reader says on them.
    void CheckZones() {
        std::vector<ZoneRings> zones;
        for (const InspectedZone& zone : Zones()) {
            zones.push_back(zone.rings);
            if (zone.looseEdges > 0) {
                mFindings.Add(
                        kLoose, zone.record, {},
                        fmt::format("{} edges of {} close to no ring", zone.looseEdges, zone.tzid));
            }
        }
        mProgress("checking rings", 0, 0);
        if (mDb.precision <= Grid::kMaxPrecision && !IsClean(zones)) {
            mFindings.Add(kCross, {}, {},
                          "edges of rings cross, or meet where they have no vertex");
        }
        ZonePairs overlaps;
        CheckBorders(&overlaps);
        for (const auto& [a, b] : overlaps) {
            mFindings.Add(kOverlap, {}, {},
                          fmt::format("{} and {} overlap", Zones()[a].tzid, Zones()[b].tzid));
        }
    }

    // Looks up the vertices of all zones. The reader must find the zone there; and where it finds
    // another one around the vertex, the two overlap.
    void CheckBorders(ZonePairs* overlaps) {
        size_t vertices = 0;
        for (const InspectedZone& zone : Zones())
            vertices += zone.points;
        if (vertices == 0) return;
        const int64_t lookups = MostSteps() / MeanSteps(vertices) + 1;
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

    // Calls `visit` with every so many vertices of all zones, each with its zone's place.
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

    // The steps that a lookup at a vertex takes, by some thousand of them.
    int64_t MeanSteps(size_t vertices) const {
        std::vector<GridPoint> points;
        VisitVertices(vertices / kSamples + 1,
                      [&](size_t, const GridPoint& vertex) { points.push_back(vertex); });
        const std::vector<int64_t> bytes = DepthsOf(mBytesMet, points).depths;
        const std::vector<int64_t> rings = DepthsOf(mRingsMet, points).depths;
        int64_t steps = 0;
        for (size_t i = 0; i < points.size(); ++i) {
            const int64_t hits = std::min(rings[i], kMostHits);
            // The reader compares what it collects each with each.
            steps += kStepsOfLookup + std::min(bytes[i], MostBytes()) + hits * hits / 4;
        }
        // A lookup may have to read the whole table, unless boxes keep its entries apart.
        const bool isWholeTable = !mIsTableSound || mDb.tableType != zonedetect::kTiledTable;
        const size_t entries = isWholeTable ? mEntries.size() : 0;
        return steps / static_cast<int64_t>(points.size()) +
               kStepsOfEntry * static_cast<int64_t>(entries);
    }

    void CheckVertex(size_t zoneIndex, const GridPoint& vertex,
                     const std::map<uint32_t, size_t>& byRecord, ZonePairs* overlaps) {
        const InspectedZone& zone = Zones()[zoneIndex];
        const auto lat = static_cast<float>(DegreesOf(vertex.lat, mScale, 90.0));
        const auto lon = static_cast<float>(DegreesOf(vertex.lon, mScale, 180.0));
        const auto scale = static_cast<float>(mScale);
        // Past the world's edge, or on a grid too fine for the reader's floats.
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
    const std::function<void(const char*, size_t, size_t)>& mProgress;
    int32_t mScale = 0;
    std::vector<DecodedEntry> mEntries;
    uint32_t mTableEnd = 0;
    bool mIsTableSound = true;       // Sorted, no box is empty, and no tiles overlap.
    std::vector<StoredRing> mRings;  // By position.
    bool mAreAllRead = false;
    // Of each entry with a ring that can be read: its box within the world, which weighs the bytes
    // that a lookup in it reads; the part of it in which the ring can lie; and the ring.
    std::vector<WeightedBox> mBytesMet;
    std::vector<WeightedBox> mRingsMet;
    std::vector<const StoredRing*> mMetRings;
    InspectedDatabase mInspected;
    Findings mFindings;
};

}  // namespace

std::vector<Finding> CheckDatabase(const ZDDatabase& database, const ProgressCallback& progress) {
    return Checker(database, progress).Run();
}

}  // namespace offlinetz
