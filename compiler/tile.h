// Divides the world into tiles, so that a lookup reads the rings of one tile only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/zone_rings.h"
#include "progress_callback.h"

namespace offlinetz {

// Returns the box table's entries of all tiles. Those of one tile follow each other and share its
// box; each tile has at least one. Each grid point of the world lies in exactly one tile.
//
// The world is halved across its longer side until a box holds at most `maxPoints` points of all
// zones together, large boxes fewer. 0 makes no tiles: each ring is an entry, with its own box.
//
// The reader classifies a point in a tile exactly as against the whole rings, bit for bit:
// - Within the tile's box and a margin for the reader's rounding, the tile has every edge of the
//   zones' rings, whole and in its direction.
// - Around the tile lies its clip rectangle, which no other edge meets. Where a ring leaves the
//   tile's surroundings, a closing path along that rectangle replaces the rest of it, with the same
//   winding number around the tile. A zone that covers the tile has the rectangle for its ring.
// - The borders that the tile lacks lie outside the clip rectangle, so the rectangle is nearer than
//   any of them. Rings run along all four sides of the rectangle, so the reader always measures the
//   distance to an edge that is nearer than every border that the tile lacks. A side along which no
//   zone's ring runs gets a path there and back, which encloses nothing.
//
// `zones` must be as RebuildRings leaves them; they are read only. `progress` receives the number
// of entries made so far. Throws OutputLimitError where the entries of tiles would take more than
// `maxBytes` in the file. Time grows with the number of points times the number of halvings.
std::vector<TableEntry> TileWorld(const std::vector<ZoneRings>& zones, const Grid& grid,
                                  size_t maxPoints, const ProgressCallback& progress,
                                  uint64_t maxBytes = UINT64_MAX);

}  // namespace offlinetz
