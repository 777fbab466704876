// Encodes a database, byte by byte as docs/format.md describes it.
#pragma once

#include <reader/format.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zone_rings.h"

namespace offlinetz {

struct DatabaseContent {
    uint8_t tableType = 0;
    uint8_t version = 0;
    int precision = 0;
    std::vector<std::string> fieldNames;  // Up to 255.
    std::string notice;
    std::vector<std::string> zones;  // The first string of each zone's record.

    std::vector<TableEntry> entries;  // Their zones are indexes into zones.
};

// Bytes of each part of an encoded database.
struct SectionSizes {
    size_t header = 0;
    size_t boxTable = 0;
    size_t metadata = 0;
    size_t polygons = 0;
};

// The longest text that a database stores, in bytes.
constexpr size_t kMaxStringLength = zonedetect::kReferenceBase - 1;

void AppendUnsigned(uint32_t value, std::vector<uint8_t>* bytes);
void AppendSigned(int32_t value, std::vector<uint8_t>* bytes);
// `text` of at most kMaxStringLength bytes, inline; throws std::length_error for a longer one.
void AppendString(const std::string& text, std::vector<uint8_t>* bytes);

// The fewest bytes that an entry takes in the box table and its ring among the polygons: what
// depends on the entries before it counts as one byte a number.
size_t LeastStoredBytes(const TableEntry& entry);

// The whole file with its digest trailer. The box table is sorted by minimum latitude, a zone
// string that occurs again is stored once and referenced, rings go zonedetect::kRingShift units
// west. A ring of no zone gets the record of the entry before it. Throws std::length_error for a
// text, a ring or a file that the format cannot hold.
std::vector<uint8_t> EncodeDatabase(const DatabaseContent& content, SectionSizes* sizes);

}  // namespace offlinetz
