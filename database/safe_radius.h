// The safe radius: the distance from a point within which the answer stays the same.
#pragma once

#include <zonedetect.h>

#include "answer.h"

namespace offlinetz {

// Whether a database is tiled. If it is, the rings of a tile tell how near any border is. If not,
// the rings whose bounding boxes contain a point say nothing about the others.
bool IsTiled(const ZDDatabase& database);

// The radius in kilometres within which every point has the same zones as the point `lat`, `lon` in
// degrees. `answer` is the answer there. The database must be tiled. Returns 0 if nothing can be
// guaranteed.
//
// Decodes the rings of the point's tile and measures to every edge in double precision. The
// distance that ZDLookup reports does not serve: it is defined in single precision, and may be too
// large beside an edge that runs nearly along a meridian or parallel. Any number of threads may
// call.
double SafeRadiusKilometres(const ZDDatabase& database, double lat, double lon,
                            const Answer& answer);

}  // namespace offlinetz
