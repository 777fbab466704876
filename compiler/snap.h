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
// A ring that rounding makes flat becomes its bounding box, at least one unit wide, if that has at
// most kIsletUnits in both directions: an islet must not collapse, somebody may live there. A
// longer flat ring is a sliver and is removed.
//
// Rings along the antimeridian or a pole are extended past it by kWorldMargin. So points on the
// world's edge are inside, as the points beside them are, in spite of the reader's shift.
std::vector<GridRing> SnapToGrid(const GEOSGeometry* area, const Grid& grid, SnapCounts* counts);

constexpr int32_t kWorldMargin = 8;  // Units; more than zonedetect::kRingShift.
constexpr int32_t kIsletUnits = 4;   // The greatest extent of an islet, in units.

}  // namespace offlinetz
