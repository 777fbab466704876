// Checks that the tiles of a tiled database cover the world once.
#pragma once

#include <cstdint>
#include <vector>

#include "database/decode.h"
#include "findings.h"

namespace offlinetz {

// Reports latitudes at which a point lies in no tile (kNoTile), and tiles that overlap another one
// (kTwoTiles). Entries with the same bounding box are one tile; empty bounding boxes are ignored.
// `scale` is the number of units in 90 degrees of latitude. Returns whether no two tiles overlap.
// Takes O(n log n) for n entries.
bool CheckTiles(const std::vector<DecodedEntry>& entries, int32_t scale, Findings* findings);

}  // namespace offlinetz
