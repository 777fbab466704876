// Encodes a database in the format that docs/format.md describes.
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
    std::vector<std::string> fieldNames;  // At most 255.
    std::string notice;
    std::vector<std::string> zones;   // The text of each zone's record.
    std::vector<TableEntry> entries;  // In any order. TableEntry::zone is an index into `zones`.
};

// Bytes of each section of an encoded database, without the digest trailer.
struct SectionSizes {
    size_t header = 0;
    size_t boxTable = 0;
    size_t metadata = 0;
    size_t polygons = 0;
};

// The length in bytes of the longest text that a database stores.
constexpr size_t kMaxStringLength = zonedetect::kReferenceBase - 1;

// Appends an unsigned varint: seven bits a byte, the lowest first.
void AppendUnsigned(uint32_t value, std::vector<uint8_t>* bytes);
// Appends a sign-magnitude varint (not ZigZag): the magnitude, shifted left by one, and the sign in
// the lowest bit.
void AppendSigned(int32_t value, std::vector<uint8_t>* bytes);
// Appends a string. Throws std::length_error, and appends nothing, if it has more than
// kMaxStringLength bytes.
void AppendString(const std::string& text, std::vector<uint8_t>* bytes);

// A lower bound for the bytes of an entry and its ring in the file. The size of the entry's two
// offsets depends on the entries before it; each counts as one byte.
size_t LeastStoredBytes(const TableEntry& entry);

// Encodes the whole file with its digest trailer; `*sizes` receives the size of each section.
//
// Sorts the box table by minimum latitude, as the reader requires. Stores a zone text once, however
// many zones have it; later records refer to the first. Shifts rings west by
// zonedetect::kRingShift. An entry of kNoZone gets the record of the entry before it. The bytes
// depend on the content only.
//
// Throws std::length_error for a text, a ring or a file that the format cannot hold, and
// std::out_of_range for an entry whose zone does not exist.
std::vector<uint8_t> EncodeDatabase(const DatabaseContent& content, SectionSizes* sizes);

}  // namespace offlinetz
