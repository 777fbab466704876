// The rings of zones, and the entries of a box table, in true coordinates (without kRingShift).
#pragma once

#include <cstdint>
#include <vector>

#include "grid.h"

namespace offlinetz {

using ZoneRings = std::vector<GridRing>;  // All rings of one zone.

// An entry of the box table: the bounding box of the query points that it answers, and its ring.
// The encoder applies kRingShift to the ring.
struct TableEntry {
    static constexpr uint32_t kNoZone = UINT32_MAX;

    uint32_t zone;  // The zone's index, or kNoZone for a ring that encloses nothing.
    GridBox box;
    GridRing ring;
};

}  // namespace offlinetz
