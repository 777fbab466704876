// From degrees to the database's grid.
#pragma once

#include <cstddef>
#include <vector>

#include "database/grid.h"
#include "geometry.h"

namespace offlinetz {

// What rounding did to rings too thin for the grid.
struct SnapCounts {
    size_t boxed = 0;    // Islets and holes that kept the outline of their box.
    size_t dropped = 0;  // Longer slivers of less than a unit's width, gone.
};

// The rings of a zone's area on the grid, oriented as the database stores them, consecutive
// points distinct. Rounded rings may touch or cross themselves and others: see mend.h.
//
// A ring that rounding flattens keeps a box of its extent, at least one unit wide, if that fits
// into kIsletUnits: an islet must not vanish while anyone lives there. A longer one is a sliver.
//
// Rings that run along the antimeridian or a pole reach kWorldMargin units past it, so that the
// world's edge is inside like the points beside it, however the reader's shift falls.
std::vector<GridRing> SnapToGrid(const GEOSGeometry* area, const Grid& grid, SnapCounts* counts);

constexpr int32_t kWorldMargin = 8;
constexpr int32_t kIsletUnits = 4;

}  // namespace offlinetz
