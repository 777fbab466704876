// Constants of the file format (docs/format.md).
#pragma once

#include <cstddef>
#include <cstdint>

namespace zonedetect {

constexpr uint8_t kMagic[3] = {'P', 'L', 'B'};

// Size of the header before the field names: magic, table type, version, precision, field count.
constexpr uint32_t kFixedHeaderSize = 7;

// Size of the digest trailer, the SHA-1 of the content, behind the content.
constexpr int32_t kTrailerSize = 20;

// Table types. Only the tools distinguish them: the reader handles both in the same way.
constexpr uint8_t kWholeRingsTable = 0;
constexpr uint8_t kTiledTable = 1;

// A string whose leading number is at least this is a reference. The number less this is an offset
// into the metadata section; for the strings of the header, an offset into the file.
constexpr uint32_t kReferenceBase = 256;

// Each byte of a stored string is XORed with this mask.
constexpr uint8_t kStringMask = 0x80;

// A ring with more points counts as one that cannot be decoded.
constexpr uint32_t kMaxRingPoints = 1000000;

// A lookup tests a point against bounding boxes as it is, but against rings this many units of
// longitude further west. Rings are stored shifted west by as much, so the two shifts cancel.
constexpr int32_t kRingShift = 3;

}  // namespace zonedetect
