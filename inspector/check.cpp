#include "check.h"

#include <database_numbers.h>
#include <encode.h>
#include <fmt/format.h>
#include <read_budget.h>
#include <text_rules.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "areas.h"
#include "zones.h"

namespace offlinetz {

namespace {

constexpr int kSeaPrecision = 21;  // The bands of the nautical zones are those of this precision.
constexpr size_t kProgressInterval = 4096;
// Lookups on borders, of a tiled database and of one whose lookups read whole rings.
constexpr size_t kMostLookups = 8000000;
constexpr size_t kMostLookupsOfWholeRings = 50000;

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
constexpr Kind kBytes = {Severity::kError, "limit-bytes", "lookups there end early"};
constexpr Kind kUnused = {Severity::kWarning, "bytes-unused", "nothing reads them"};
constexpr Kind kTwoTiles = {Severity::kError, "tiles-overlap",
                            "points in both have each zone twice, which reads as a border or none"};
constexpr Kind kNoTile = {Severity::kError, "tile-missing",
                          "points there have no zone, and a distance that says nothing"};
constexpr Kind kLoose = {Severity::kError, "ring-open",
                         "tiles do not have the same border; points near it get wrong answers"};
constexpr Kind kShared = {Severity::kError, "rings-shared", "lookups take long, or end early"};
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

using BoxKey = std::tuple<int32_t, int32_t, int32_t, int32_t>;

BoxKey KeyOf(const GridBox& box) {
    return {box.min.lat, box.min.lon, box.max.lat, box.max.lon};
}

class Checker {
  public:
    Checker(const ZDDatabase& database,
            const std::function<void(const char*, size_t, size_t)>& progress)
        : mDb(database), mProgress(progress) {}

    std::vector<Finding> Run() {
        CheckHeader();
        if (mDb.precision < 1 || mDb.precision > 31) return mFindings.Take();
        mScale = int32_t{1} << (mDb.precision - 1);
        try {
            mInspected = InspectZones(
                    mDb, [&](size_t done, size_t all) { mProgress("reading", done, all); });
            CheckTable();
            CheckBytes();
            if (mDb.tableType == kTiledTable) CheckTiles();
            CheckZones();
        } catch (const std::runtime_error& error) {
            mFindings.Add(kShared, mDb.boxTableOffset, {}, error.what());
        }
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

    // Each entry by itself and beside the one before, and what the entries of a box come to.
    void CheckTable() {
        const std::vector<DecodedEntry>& entries = mInspected.entries;
        if (mInspected.tableEnd < mDb.metadataOffset) {
            mFindings.Add(kTable, mInspected.tableEnd, entries.size(), "an entry cannot be read");
        }
        struct Sum {
            size_t rings = 0;
            int64_t bytes = 0;
        };
        std::map<BoxKey, Sum> boxes;
        GridRing ring;
        for (size_t i = 0; i < entries.size(); ++i) {
            if (i % kProgressInterval == 0) mProgress("checking entries", i, entries.size());
            const DecodedEntry& e = entries[i];
            const auto add = [&](const Kind& kind, uint32_t position, const std::string& what) {
                mFindings.Add(kind, position, i, what);
            };
            if (i > 0 && e.box.min.lat < entries[i - 1].box.min.lat) {
                add(kOrder, e.position, "an entry begins further south than the one before");
            }
            if (e.box.min.lat > e.box.max.lat || e.box.min.lon > e.box.max.lon) {
                add(kBox, e.position, "a box ends before it begins");
            }
            if (e.record < mDb.metadataOffset || e.record >= mDb.polygonDataOffset) {
                add(kRecordPlace, e.position, "a record lies outside the metadata");
                continue;
            }
            if (e.ring < mDb.polygonDataOffset || e.ring >= static_cast<uint32_t>(mDb.length)) {
                add(kRingPlace, e.position, "a ring lies outside the polygons");
                continue;
            }
            uint32_t end;
            if (!DecodeRing(mDb, e.ring, &ring, &end)) {
                add(kRing, e.ring, "a ring has too many points, or runs out of the file");
                continue;
            }
            mRings.emplace_back(e.ring, end);
            if (ring.size() < 3) add(kRingPoints, e.ring, "a ring has fewer than three points");
            Sum& sum = boxes[KeyOf(e.box)];
            ++sum.rings;
            sum.bytes += end - e.ring;
            if (sum.rings == zonedetect::kMaxHits + 1) {
                add(kHits, e.position,
                    fmt::format("a box has more than {} entries", zonedetect::kMaxHits));
            }
            if (sum.bytes > zonedetect::ReadBudget::Bytes(mDb.length)) {
                add(kBytes, e.position, "the rings of a box have more bytes than a lookup reads");
            }
        }
    }

    // Records by themselves, and what nothing refers to.
    void CheckBytes() {
        std::map<std::string, uint32_t> names;
        std::vector<std::pair<uint32_t, uint32_t>> records;
        for (const InspectedZone& zone : mInspected.zones) {
            std::string stored;
            uint32_t end;
            if (!DecodeRecord(mDb, zone.record, &stored, &end)) {
                mFindings.Add(kRecord, zone.record, {}, "a record cannot be read");
                continue;
            }
            records.emplace_back(zone.record, end);
            if (stored == zone.tzid)
                mFindings.Add(kQuotes, zone.record, {}, stored + " has no double quotes");
            if (const char* fault = FaultOfIdentifier(zone.tzid))
                mFindings.Add(kNameText, zone.record, {}, zone.tzid + " " + fault);
            if (!names.emplace(zone.tzid, zone.record).second)
                mFindings.Add(kName, zone.record, {}, zone.tzid + " has a record already");
        }
        AddUnused("metadata", mDb.metadataOffset, mDb.polygonDataOffset, std::move(records));
        AddUnused("polygons", mDb.polygonDataOffset, static_cast<uint32_t>(mDb.length),
                  std::move(mRings));
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
        for (size_t i = 0; i < mInspected.entries.size(); ++i) {
            const DecodedEntry& e = mInspected.entries[i];
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
        std::multimap<int32_t, const Tile*> row;
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
            if (!events[i].begins) {
                const auto same = row.equal_range(tile.box.min.lon);
                row.erase(std::find_if(same.first, same.second,
                                       [&](const auto& e) { return e.second == &tile; }));
                covered -= width(tile);
                continue;
            }
            const auto after = row.lower_bound(tile.box.min.lon);
            if ((after != row.end() && after->first <= tile.box.max.lon) ||
                (after != row.begin() &&
                 std::prev(after)->second->box.max.lon >= tile.box.min.lon)) {
                mFindings.Add(kTwoTiles, tile.position, tile.entry, "a tile overlaps another one");
            }
            row.emplace(tile.box.min.lon, &tile);
            covered += width(tile);
        }
    }

    // The zones whole: their rings, and what the reader says on them.
    void CheckZones() {
        std::vector<ZoneRings> zones;
        for (const InspectedZone& zone : mInspected.zones) {
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
        std::set<std::pair<std::string, std::string>> overlaps;
        CheckBorders(&overlaps);
        for (const auto& [a, b] : overlaps)
            mFindings.Add(kOverlap, {}, {}, fmt::format("{} and {} overlap", a, b));
    }

    // Looks up the vertices of all zones. The reader must find the zone there; and where it finds
    // another one around the vertex, the two overlap.
    void CheckBorders(std::set<std::pair<std::string, std::string>>* overlaps) {
        size_t vertices = 0;
        for (const InspectedZone& zone : mInspected.zones)
            vertices += zone.points;
        const size_t most = mDb.tableType == kTiledTable ? kMostLookups : kMostLookupsOfWholeRings;
        const size_t stride = std::max<size_t>(vertices / most, 1);
        std::map<uint32_t, const InspectedZone*> byRecord;
        for (const InspectedZone& zone : mInspected.zones)
            byRecord[zone.record - mDb.metadataOffset] = &zone;
        size_t number = 0;
        for (const InspectedZone& zone : mInspected.zones) {
            for (const GridRing& ring : zone.rings) {
                for (const GridPoint& vertex : ring) {
                    if (number % kProgressInterval == 0)
                        mProgress("looking up borders", number, vertices);
                    if (number++ % stride == 0) CheckVertex(zone, vertex, byRecord, overlaps);
                }
            }
        }
    }

    void CheckVertex(const InspectedZone& zone, const GridPoint& vertex,
                     const std::map<uint32_t, const InspectedZone*>& byRecord,
                     std::set<std::pair<std::string, std::string>>* overlaps) {
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
            if (r->result == ZDLookupInZone && other != byRecord.end() && other->second != &zone) {
                overlaps->insert(std::minmax(zone.tzid, other->second->tzid));
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
    InspectedDatabase mInspected;
    std::vector<std::pair<uint32_t, uint32_t>> mRings;  // Where those that can be read lie.
    Findings mFindings;
};

}  // namespace

std::vector<Finding> CheckDatabase(
        const ZDDatabase& database,
        const std::function<void(const char*, size_t, size_t)>& progress) {
    return Checker(database, progress).Run();
}

}  // namespace offlinetz
