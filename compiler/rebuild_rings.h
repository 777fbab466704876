// Makes the rings of all zones a clean drawing on the grid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/zone_rings.h"
#include "progress.h"

namespace offlinetz {

// Rewrites the zones' rings so that no two edges of any rings cross or overlap in part: they
// share whole edges, meet in vertices, or stay apart; and so that each ring passes each of its
// vertices once, outlines run clockwise and holes counterclockwise, none inside its like. A ring
// that winds twice would read as border everywhere. Edges that cross between grid points are led
// through one beside, in every zone alike, so that shared borders stay shared and zones that
// overlap go on doing so; no border moves further than half a unit each way (see settle.h). Rings
// of one zone may overlap or share borders: they are united.
//
// `progress` receives the number of the round and of the points added so far. Throws
// OutputLimitError (output_limit.h) where more than `maxPoints` points would be added.
size_t RebuildRings(std::vector<ZoneRings>* zones, const ProgressCallback& progress,
                    size_t maxPoints = SIZE_MAX);

// Whether no two edges of the zones' rings cross, overlap in part, or touch elsewhere than in
// vertices of both; so it is for mended zones.
bool IsClean(const std::vector<ZoneRings>& zones);

}  // namespace offlinetz
