// The functions that the page calls, compiled to WebAssembly together with the library's reader.
// The page has one thread.
#include <LookupInterface.h>
#include <fixed_answers.h>
#include <offlinetz.h>
#include <reader/open_bytes.h>
#include <reader/units.h>
#include <zonedetect.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "database/answer.h"
#include "database/decode.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

struct OpenDatabase {
    ZDDatabase* database;
    offlinetz_database* library;
    std::vector<offlinetz::DecodedEntry> entries;
};
std::vector<OpenDatabase> gDatabases;  // The index is the number that Open returns.

offlinetz::GridPoint UnitsOf(const ZDDatabase& database, double lat, double lon) {
    const float scale = zonedetect::Scale(database);
    return {zonedetect::LatitudeUnits(static_cast<float>(lat), scale),
            zonedetect::LongitudeUnits(static_cast<float>(lon), scale)};
}

nlohmann::ordered_json BorderJson(const OpenDatabase& open, const offlinetz_border& border) {
    nlohmann::ordered_json object = {
            {"metres", border.metres},   {"holds", border.holds},
            {"lat", border.lat},         {"lon", border.lon},
            {"bearing", border.bearing}, {"zones", nlohmann::json::array()}};
    for (int32_t i = 0; i < std::min<int32_t>(border.count, OFFLINETZ_BORDER_ROOM); ++i)
        object["zones"].push_back(offlinetz_zone_name(open.library, border.ids[i]));
    return object;
}

}  // namespace

extern "C" {

// Opens the database of `size` bytes at `bytes`, digest trailer included. Borrows the bytes for the
// life of the page. Returns the number of the database, or -1 if the reader refuses it.
int Open(const uint8_t* bytes, size_t size) {
    ZDDatabase* database = zonedetect::OpenBytes(bytes, size, nullptr);
    if (database == nullptr) return -1;
    offlinetz_database* library;
    if (offlinetz_open_memory(bytes, size, OFFLINETZ_SKIP_DIGEST, &library) != OFFLINETZ_OK) {
        offlinetz_close(library);
        ZDCloseDatabase(database);
        return -1;
    }
    uint32_t end;
    gDatabases.push_back({database, library, offlinetz::DecodeTable(*database, &end)});
    return static_cast<int>(gDatabases.size()) - 1;
}

// The functions below return JSON texts, which the caller must free. `number` is a result of Open.

// The answer at a point in degrees: an object with "lat", "lon", "zones" or "error", "raw" (the
// text that a client gets), and, if the library knows it, "border" (the nearest border): an object
// with the members of offlinetz_border, but "zones" (names) in place of ids.
char* Look(int number, double lat, double lon) {
    const OpenDatabase& open = gDatabases[static_cast<size_t>(number)];
    std::vector<int32_t> ids(1);
    const size_t count = offlinetz_find(open.library, lat, lon, ids.data(), 1, nullptr, nullptr);
    if (count > ids.size()) {
        ids.resize(count);
        offlinetz_find(open.library, lat, lon, ids.data(), count, nullptr, nullptr);
    }
    offlinetz::Answer answer;
    for (size_t i = 0; i < count; ++i)
        answer.zones.push_back(offlinetz_zone_name(open.library, ids[i]));
    if (count == 0) answer.error = "no zone";
    float distance = 0.0f;
    const std::unique_ptr<char, decltype(&std::free)> raw(
            LookupTzIdIn(open.database, static_cast<float>(lat), static_cast<float>(lon),
                         &distance),
            &std::free);
    nlohmann::ordered_json object = offlinetz::AnswerJson(lat, lon, answer);
    object["raw"] = raw != nullptr ? raw.get() : kMallocFailed;
    offlinetz_border border;
    if (offlinetz_nearest_border(open.library, lat, lon, INFINITY, &border) == 1)
        object["border"] = BorderJson(open, border);
    return strdup(offlinetz::OneLine(object).c_str());
}

// The indexes of the entries whose bounding boxes intersect a rectangle in degrees, without the
// entries that a lookup skips.
char* EntriesIn(int number, double south, double west, double north, double east) {
    const OpenDatabase& open = gDatabases[static_cast<size_t>(number)];
    const offlinetz::GridPoint min = UnitsOf(*open.database, south, west);
    const offlinetz::GridPoint max = UnitsOf(*open.database, north, east);
    nlohmann::json indexes = nlohmann::json::array();
    for (size_t i = 0; i < open.entries.size(); ++i) {
        const offlinetz::GridBox& box = open.entries[i].box;
        if (open.entries[i].record >= open.database->polygonDataOffset ||
            open.entries[i].ring >= static_cast<uint32_t>(open.database->length)) {
            continue;
        }
        if (box.min.lat <= max.lat && box.max.lat >= min.lat && box.min.lon <= max.lon &&
            box.max.lon >= min.lon) {
            indexes.push_back(i);
        }
    }
    return strdup(indexes.dump().c_str());
}

// The entry with an index from EntriesIn: an object with "zone" (empty if the record cannot be
// read), "record" (its position in the file), "box" (south, west, north, east) and "points"
// (latitude and longitude in turn; empty if the ring cannot be read). Coordinates are in units.
char* Entry(int number, int index) {
    const OpenDatabase& open = gDatabases[static_cast<size_t>(number)];
    const offlinetz::DecodedEntry& entry = open.entries[static_cast<size_t>(index)];
    std::string zone;
    offlinetz::GridRing ring;
    uint32_t end;
    if (!offlinetz::DecodeRing(*open.database, entry.ring, &ring, &end)) ring.clear();
    zonedetect::ReadBudget budget(open.database->length);
    if (!offlinetz::DecodeRecord(*open.database, entry.record, &budget, &zone, &end)) zone.clear();
    nlohmann::json points = nlohmann::json::array();
    for (const offlinetz::GridPoint& p : ring) {
        points.push_back(p.lat);
        points.push_back(p.lon);
    }
    const nlohmann::ordered_json object = {
            {"zone", offlinetz::WithoutQuotes(zone)},
            {"record", entry.record},
            {"box", {entry.box.min.lat, entry.box.min.lon, entry.box.max.lat, entry.box.max.lon}},
            {"points", std::move(points)}};
    return strdup(offlinetz::OneLine(object).c_str());
}
}
