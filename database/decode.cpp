#include "decode.h"

#include <reader/box_table.h>
#include <reader/format.h>
#include <reader/spatial_index.h>
#include <reader/stored_string.h>

#include <cstdlib>
#include <memory>

namespace offlinetz {

namespace {

DecodedEntry EntryAt(const ZDDatabase& database, uint32_t position,
                     const zonedetect::TableReader& reader) {
    const zonedetect::Box& box = reader.CurrentBox();
    const zonedetect::TablePlace place = reader.Place();
    return {position,
            {{box.minLat, box.minLon}, {box.maxLat, box.maxLon}},
            database.metadataOffset + place.recordOffset,
            database.polygonDataOffset + place.polygonOffset};
}

}  // namespace

std::vector<DecodedEntry> DecodeTable(const ZDDatabase& database, uint32_t* end) {
    std::vector<DecodedEntry> entries;
    zonedetect::TableReader reader(database, zonedetect::TableReader::Start(database));
    *end = reader.Place().position;
    while (reader.Next()) {
        entries.push_back(EntryAt(database, *end, reader));
        *end = reader.Place().position;
    }
    return entries;
}

bool DecodeRing(const ZDDatabase& database, uint32_t position, GridRing* ring, uint32_t* end) {
    zonedetect::Cursor cursor = zonedetect::CursorAt(database, position);
    uint32_t count;
    ring->clear();
    *end = static_cast<uint32_t>(database.length);  // A varint without an end runs up to here.
    if (!zonedetect::ReadUnsigned(&cursor, &count)) return false;
    if (count > zonedetect::kMaxRingPoints) {
        *end = zonedetect::PositionOf(database, cursor);
        return false;
    }
    GridPoint stored;
    for (; count > 0; --count) {
        int32_t lat;
        int32_t lon;
        if (!zonedetect::ReadSigned(&cursor, &lat) || !zonedetect::ReadSigned(&cursor, &lon)) {
            return false;
        }
        stored = {zonedetect::WrappingAdd(stored.lat, lat),
                  zonedetect::WrappingAdd(stored.lon, lon)};
        ring->push_back({stored.lat, zonedetect::WrappingAdd(stored.lon, zonedetect::kRingShift)});
    }
    *end = zonedetect::PositionOf(database, cursor);
    return true;
}

bool DecodeRecord(const ZDDatabase& database, uint32_t position, zonedetect::ReadBudget* budget,
                  std::string* text, uint32_t* end) {
    *end = position;
    const std::unique_ptr<char, decltype(&std::free)> stored(
            zonedetect::ParseString(database, end, budget), &std::free);
    if (stored == nullptr) return false;
    *text = stored.get();
    return true;
}

}  // namespace offlinetz
