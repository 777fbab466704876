// Zones on the grid, and databases of them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "compiler/rebuild_rings.h"
#include "compiler/source.h"

namespace bench {

// Zones whose rings are mended, each with its identifier.
struct Drawing {
    std::vector<std::string> tzids;
    std::vector<offlinetz::ZoneRings> zones;
};

Drawing DrawSource(const offlinetz::Source& source);

// `drawing` with borders thinned as the compiler does, in metres.
Drawing Thinned(Drawing drawing, double tolerance);

// `perSide` by `perSide` copies of a world, each as much smaller, side by side over the whole grid;
// the zones of each have names of their own.
Drawing CopiesOf(const Drawing& world, int perSide);

// One zone around the middle of the map, bounded by a zigzag of so many points.
Drawing ZigzagRing(size_t points);

// Writes a database with at most `tilePoints` points a tile; 0 keeps rings whole.
void WriteDatabase(const Drawing& drawing, size_t tilePoints, const std::string& path);

}  // namespace bench
