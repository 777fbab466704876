// The safe radius: the distance from a point within which every point has the same zones.
#pragma once

#include <zonedetect.h>

namespace offlinetz {

// Whether safe radii can be computed: the database is tiled, so that the rings of a tile tell how
// near any border is, and its precision is at most 23, so that the error of a lookup is known.
bool HasSafeRadius(const ZDDatabase& database);

// The safe radius in kilometres at the point `lat`, `lon` in degrees; 0 if nothing can be
// guaranteed. `squaredUnits` is the squared distance to the nearest edge of the rings in its tile,
// as SegmentDistance (segment_distance.h) measures it; infinity if they have none. `isNautical`:
// the answer is a nautical zone, so it ends where the next one begins, too. Requires HasSafeRadius.
double SafeRadiusKilometres(const ZDDatabase& database, double lat, double lon, double squaredUnits,
                            bool isNautical);

}  // namespace offlinetz
