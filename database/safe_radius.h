// The safe radius: how far around a point its answer holds.
#pragma once

#include <zonedetect.h>

#include "answer.h"

namespace offlinetz {

// Whether a database is tiled. Then the distance of a lookup covers all borders around the point;
// otherwise it covers only the rings whose bounding boxes contain the point.
bool IsTiled(const ZDDatabase& database);

// The radius in kilometres within which every point has the same zones as the point `lat`, `lon`
// (degrees), from its answer, which must have the distance and be of a tiled database. 0 where
// nothing can be promised.
double SafeRadiusKilometres(const ZDDatabase& database, double lat, double lon,
                            const Answer& answer);

}  // namespace offlinetz
