// One ring and one point.
#pragma once

#include <cstdint>

#include "units.h"
#include "varint.h"
#include "zonedetect.h"

namespace zonedetect {

// Classifies `target` against the ring at `cursor`: one of ZDLookupInZone, ZDLookupInExcludedZone,
// ZDLookupBorderVertex, ZDLookupOnBorder, ZDLookupNotInZone, or ZDLookupParsingError when the ring
// cannot be read. Lowers `*minDistance` (null: not wanted) to the squared distance, in units of
// latitude, of the nearest edge visited. Leaves the cursor behind what was visited.
ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance);

}  // namespace zonedetect
