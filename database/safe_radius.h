// The safe radius: the distance from a point within which the answer stays the same.
#pragma once

#include <zonedetect.h>

#include "answer.h"

namespace offlinetz {

// A lookup in a tiled database measures at most 1.4207 times the distance to the nearest border
// (docs/design.md proves it), plus kSafeMarginUnits units of latitude for truncation. So all points
// within this share of the measured distance, less the margin, have the same zones.
constexpr double kSafeShare = 0.7;
constexpr double kSafeMarginUnits = 3.0;

// Whether a database is tiled. If it is, the distance that a lookup returns covers all borders
// around the point. If not, it covers only the rings whose bounding boxes contain the point.
bool IsTiled(const ZDDatabase& database);

// The radius in kilometres within which every point has the same zones as the point `lat`, `lon` in
// degrees. `answer` is the answer at that point; it must have a distance and be from a tiled
// database. Returns 0 if nothing can be guaranteed.
double SafeRadiusKilometres(const ZDDatabase& database, double lat, double lon,
                            const Answer& answer);

}  // namespace offlinetz
