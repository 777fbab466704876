// How far around a point its answer holds.
#pragma once

#include <zonedetect.h>

#include <string>

#include "points.h"

// Whether a database is tiled, so that the distance of a lookup covers all borders around the
// point; of another one it covers those of the rings only whose boxes hold the point.
bool IsTiled(const ZDDatabase* database);

// The radius in kilometres within which every point has the answer `raw` of `point`, from the
// distance in degrees that a tiled database gave with it. 0 where nothing can be promised.
double SafeRadiusKilometres(const ZDDatabase* database, const PointText& point,
                            const std::string& raw, float distance);
