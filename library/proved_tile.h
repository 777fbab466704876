// Tiles in which one answer holds everywhere.
#pragma once

#include <reader/box_table.h>
#include <zonedetect.h>

#include "zone_index.h"

namespace offlinetz {

// Marks a run of `count` rings from `steps` on, if one answer holds at every point of `box`: its
// first step becomes kAnswer, the ring of the zone, or kNoAnswer. Otherwise changes nothing.
//
// It holds where both ends of each edge of each ring lie beyond one and the same side of the box.
// No edge then passes the box, no vertex is in it, and for no point of it does an edge lead to the
// opposite quadrant. So each ring winds around all points of the box as it winds around one corner,
// and a lookup at any of them ends with the same result.
//
// `unreadable` is that of the index. Reads a ring up to the first edge that proves nothing.
void MarkProved(const ZDDatabase& database, const zonedetect::Box& box, uint32_t unreadable,
                ZoneIndex::Step* steps);

}  // namespace offlinetz
