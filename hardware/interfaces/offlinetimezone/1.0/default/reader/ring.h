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
// Returns ZDLookupInZone (winding number -1: clockwise, as exterior rings run),
// ZDLookupInExcludedZone (1: counterclockwise, as holes run), ZDLookupNotInZone (0),
// ZDLookupBorderVertex (the target is a vertex), ZDLookupOnBorder (an edge between opposite
// quadrants crosses the target's parallel at the target's longitude, truncated to units, or the
// winding number is any other), or ZDLookupParsingError (the ring cannot be decoded).
//
// `minDistance` may be null. Otherwise `*minDistance` holds a squared distance in units of latitude
// and is lowered to that of the nearest edge visited; on a border it becomes 0. Advances the cursor
// past the points visited. Never reads past the cursor's end. Any thread may call.
ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance);

}  // namespace zonedetect
