// Tiles the world, so that a lookup reads one tile and nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/zone_rings.h"
#include "progress.h"

namespace offlinetz {

// Divides the world into boxes of at most `maxPoints` points of all zones together, fewer in large
// ones, by halving them across their longer side; every grid point of the world lies in exactly
// one. Each tile has entries for the zones in it, all with its box, and one at least.
//
// Within its box, and a margin around it for the reader's rounding, a tile has every edge of the
// zones' rings, whole and in its direction: the reader classifies a point against the tile as
// against the whole rings, bit for bit. Further out, the rings run along the tile's fence, a
// rectangle that meets no edge but those: whatever lies outside the fence is further away than the
// fence, so the distance that the reader measures is never that to a border beyond one that it has
// not seen. A zone that covers the tile has the fence for its ring; where no zone's ring covers a
// side of the fence, one runs there and back.
//
// `zones` must be mended; 0 points give one entry a ring, whole, with the ring's box. `progress`
// receives the entries made so far. Throws OutputLimitError (output_limit.h) where the entries of
// tiles would take more than `maxBytes` in the file.
std::vector<TableEntry> TileWorld(const std::vector<ZoneRings>& zones, const Grid& grid,
                                  size_t maxPoints, const ProgressCallback& progress,
                                  uint64_t maxBytes = UINT64_MAX);

}  // namespace offlinetz
