// Nodes the edges of all zones' rings on the grid and rebuilds valid rings from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/zone_rings.h"
#include "originals.h"
#include "progress_callback.h"

namespace offlinetz {

// Rewrites the rings of all zones, so that together they are a planar arrangement of edges:
// - Two edges of any rings are the same, share ends only, or stay apart.
// - Each ring passes each of its vertices once. Exterior rings run clockwise and holes
//   counterclockwise. (Where a ring winds twice around a point, the reader would report a border.)
//   No exterior ring lies directly inside another one, and no hole directly inside another hole.
//
// Edges that cross between grid points are bent to a grid point beside the crossing by snap
// rounding (snap_rounding.h), in every zone alike. So shared borders stay shared, overlapping zones
// still overlap, and no border moves further than half a unit in latitude and in longitude. The
// given rings of one zone may overlap or share borders; they are united.
//
// `originals` may be null. It receives the points of the source beside which edges were bent.
//
// Returns the number of points added to edges. `progress` receives the number of the round. Throws
// OutputLimitError if more than `maxPoints` points would be added; `*zones` is then unchanged.
size_t RebuildRings(std::vector<ZoneRings>* zones, const ProgressCallback& progress,
                    Originals* originals = nullptr, size_t maxPoints = SIZE_MAX);

// Whether no two edges of the zones' rings cross, overlap in part, or touch elsewhere than in
// vertices of both, as RebuildRings leaves them.
bool MeetInVerticesOnly(const std::vector<ZoneRings>& zones);

}  // namespace offlinetz
