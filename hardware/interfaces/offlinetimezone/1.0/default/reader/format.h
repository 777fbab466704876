// Constants of the file format (docs/format.md).
#pragma once

#include <cstdint>

namespace zonedetect {

constexpr uint8_t kMagic[3] = {'P', 'L', 'B'};

// The header begins with the magic bytes and four fields of one byte each, at these offsets. The
// field names follow.
constexpr uint32_t kTableTypeOffset = 3;
constexpr uint32_t kVersionOffset = 4;
constexpr uint32_t kPrecisionOffset = 5;
constexpr uint32_t kFieldCountOffset = 6;
constexpr uint32_t kFixedHeaderSize = 7;

// Size in bytes of the digest trailer: the SHA-1 of the content, stored behind it.
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

// Rings are stored this many units of longitude further west than they are. A lookup shifts its
// point by as much before it compares the point with a ring, but not before it compares the point
// with a bounding box.
constexpr int32_t kRingShift = 3;

// The reader computes the bands of the nautical zones in units of this precision. They are right
// only in databases of this precision.
constexpr int kNauticalPrecision = 21;

}  // namespace zonedetect
