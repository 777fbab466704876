// The constants of the file format, which docs/format.md describes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zonedetect {

constexpr uint8_t kMagic[3] = {'P', 'L', 'B'};

// Bytes before the field names: magic, table type, version, precision, field count.
constexpr uint32_t kFixedHeaderSize = 7;

// The SHA-1 digest behind the content.
constexpr int32_t kTrailerSize = 20;

// Table types. Only tools tell them apart: the reader reads both alike.
constexpr uint8_t kWholeRingsTable = 0;
constexpr uint8_t kTiledTable = 1;

// A string's leading number from here on is a reference: this much more than an offset into the
// records.
constexpr uint32_t kReferenceBase = 256;

// Every byte of a stored string is exclusive-ored with this one.
constexpr uint8_t kStringMask = 0x80;

// A ring of more points is unreadable.
constexpr uint32_t kMaxRingPoints = 1000000;

// A point is tested against bounding boxes where it is, but against rings this many longitude units
// further west. Rings are stored that much further west, so that the shift vanishes.
constexpr int32_t kRingShift = 3;

}  // namespace zonedetect
