// The rings of zones, and the entries of a box table, in true coordinates.
#pragma once

#include <cstdint>
#include <vector>

#include "grid.h"

namespace offlinetz {

using ZoneRings = std::vector<GridRing>;  // All rings of one zone.

// One entry of the box table: the bounding box of the query points that it answers for, and the
// ring. The encoder shifts the ring for the reader (kRingShift).
struct TableEntry {
    static constexpr uint32_t kNoZone = UINT32_MAX;

    uint32_t zone;  // Index, or kNoZone for a ring that encloses nothing.
    GridBox box;
    GridRing ring;
};

}  // namespace offlinetz
