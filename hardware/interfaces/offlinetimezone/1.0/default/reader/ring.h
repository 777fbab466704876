// The position of a point relative to one ring.
#pragma once

#include <cstdint>

#include "units.h"
#include "varint.h"
#include "zonedetect.h"

namespace zonedetect {

// Classifies `target` against the ring at `cursor` by the ring's winding number, counted in quarter
// turns around the target.
//
// Returns:
// - ZDLookupInZone for the winding number -1: clockwise, as exterior rings run.
// - ZDLookupInExcludedZone for the winding number 1: counterclockwise, as holes run.
// - ZDLookupNotInZone for the winding number 0.
// - ZDLookupBorderVertex if the target is a vertex. A ring without points counts as the vertex 0,0.
// - ZDLookupOnBorder for any other winding number, or if an edge between opposite quadrants crosses
//   the target's parallel at the target's longitude, truncated to units.
// - ZDLookupParsingError if the ring cannot be decoded.
//
// `minDistance` may be null. Otherwise `*minDistance` holds a squared distance in units of latitude
// and is lowered to that of the nearest edge visited; on a border it becomes 0. Advances the cursor
// past the points visited. Never reads past the cursor's end. Any thread may call.
ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance);

}  // namespace zonedetect
