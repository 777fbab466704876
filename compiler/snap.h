// Rounds areas in degrees to the database's grid.
#pragma once

#include <cstddef>
#include <vector>

#include "database/grid.h"
#include "geometry.h"

namespace offlinetz {

// The number of rings that rounding made flat.
struct SnapCounts {
    size_t boxed = 0;    // Islets and holes that became a rectangle of their extent.
    size_t dropped = 0;  // Longer slivers of less than a unit's width, which were removed.
};

// Returns the rings of a zone's area on the grid, oriented as the database stores them; consecutive
// points are distinct. Rounded rings may touch or cross themselves and others; RebuildRings
// (rebuild_rings.h) is the next step. Adds to `*counts`.
//
// A ring that rounding makes flat becomes its bounding box, at least one unit wide, if that fits
// into kIsletUnits both ways: an islet must not collapse, somebody may live there. A longer flat
// ring is a sliver and is removed.
//
// Rings along the antimeridian or a pole are extended by kWorldMargin units past it. The world's
// edge is then inside like the points beside it, wherever the reader's shift puts it.
std::vector<GridRing> SnapToGrid(const GEOSGeometry* area, const Grid& grid, SnapCounts* counts);

constexpr int32_t kWorldMargin = 8;
constexpr int32_t kIsletUnits = 4;

}  // namespace offlinetz
