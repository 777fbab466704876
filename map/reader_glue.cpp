// What the page calls of the library's reader, compiled to WebAssembly.
#include <LookupInterface.h>
#include <reader/open_bytes.h>
#include <reader/units.h>
#include <zonedetect.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "database/answer.h"
#include "database/decode.h"
#include "database/safe_radius.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

struct OpenDatabase {
    ZDDatabase* database;
    std::vector<offlinetz::DecodedEntry> entries;
};
std::vector<OpenDatabase> gDatabases;  // The page has one thread.

offlinetz::GridPoint UnitsOf(const ZDDatabase& database, double lat, double lon) {
    const float scale = zonedetect::Scale(database);
    return {zonedetect::LatitudeUnits(static_cast<float>(lat), scale),
            zonedetect::LongitudeUnits(static_cast<float>(lon), scale)};
}

}  // namespace

extern "C" {

// Opens the database of `size` bytes at `bytes`, which stay for the page's life; its number, or -1.
int Open(const uint8_t* bytes, size_t size) {
    ZDDatabase* database = zonedetect::OpenBytes(bytes, size, nullptr);
    if (database == nullptr || !zonedetect::HasScale(*database)) return -1;
    uint32_t end;
    gDatabases.push_back({database, offlinetz::DecodeTable(*database, &end)});
    return static_cast<int>(gDatabases.size()) - 1;
}

// The texts that the functions below return are JSON, and the caller's to free.

// The answer at a point: the text that a client gets, the zones in it, and in tiled databases the
// safe radius in kilometres.
char* Look(int number, double lat, double lon) {
    const ZDDatabase& database = *gDatabases[static_cast<size_t>(number)].database;
    const auto queryLat = static_cast<float>(lat);
    const auto queryLon = static_cast<float>(lon);
    const offlinetz::Answer answer = offlinetz::LookUp(database, queryLat, queryLon, true);
    float distance = 0.0f;
    const std::unique_ptr<char, decltype(&std::free)> raw(
            LookupTzIdIn(&database, queryLat, queryLon, &distance), &std::free);
    nlohmann::ordered_json object = offlinetz::AnswerJson(lat, lon, answer);
    object["raw"] = raw != nullptr ? raw.get() : "error:malloc failed";
    if (offlinetz::IsTiled(database))
        object["radius_km"] = offlinetz::SafeRadiusKilometres(database, lat, lon, answer);
    return strdup(offlinetz::OneLine(object).c_str());
}

// The places of the entries in the table whose boxes meet a box in degrees, without those that a
// lookup passes over.
char* EntriesIn(int number, double south, double west, double north, double east) {
    const OpenDatabase& open = gDatabases[static_cast<size_t>(number)];
    const offlinetz::GridPoint min = UnitsOf(*open.database, south, west);
    const offlinetz::GridPoint max = UnitsOf(*open.database, north, east);
    nlohmann::json places = nlohmann::json::array();
    for (size_t i = 0; i < open.entries.size(); ++i) {
        const offlinetz::GridBox& box = open.entries[i].box;
        if (open.entries[i].record >= open.database->polygonDataOffset ||
            open.entries[i].ring >= static_cast<uint32_t>(open.database->length)) {
            continue;
        }
        if (box.min.lat <= max.lat && box.max.lat >= min.lat && box.min.lon <= max.lon &&
            box.max.lon >= min.lon) {
            places.push_back(i);
        }
    }
    return strdup(places.dump().c_str());
}

// An entry's zone and where its record is, its box (south, west, north and east) and the points of
// its ring, latitudes and longitudes in turn, in units; without points where it cannot be read.
char* Entry(int number, int place) {
    const OpenDatabase& open = gDatabases[static_cast<size_t>(number)];
    const offlinetz::DecodedEntry& entry = open.entries[static_cast<size_t>(place)];
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
