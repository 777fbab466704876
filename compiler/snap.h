// Rounds areas in degrees to the database's grid.
#pragma once

#include <array>
#include <cstddef>
#include <set>
#include <vector>

#include "database/grid.h"
#include "geometry.h"
#include "originals.h"

namespace offlinetz {

// The number of rings that rounding made flat.
struct SnapCounts {
    size_t boxed = 0;            // Islets and holes that became a box.
    size_t dropped = 0;          // Slivers of less than a unit's width, which were removed.
    double droppedMetres = 0.0;  // The greatest Grid::UnitDiagonal at one of these.
};

// The bounding box of a ring in degrees: west, south, east, north.
using RingExtent = std::array<double, 4>;

// The extents of tiny rings that are an exterior ring of one area and a hole of another.
using FilledHoles = std::set<RingExtent>;
FilledHoles TinyFilledHoles(const std::vector<const GEOSGeometry*>& areas, const Grid& grid);

// Returns the rings of a zone's area on the grid, oriented as the database stores them; consecutive
// points are distinct. Rounded rings may touch or cross themselves and others; RebuildRings
// (rebuild_rings.h) is the next step. Adds to `*counts`, and to `*originals` the points from which
// the vertices were made.
//
// A ring that rounding makes flat becomes a box, if its bounding box has at most kIsletUnits in
// both directions: an islet must not collapse, somebody may live there. The box covers every unit
// in which the islet has a point, or as many as an error (BoxError, edge_error.h) of at most
// `maxErrorMetres` permits, one at least. Other flat rings are slivers and are removed: longer
// ones, and filled holes, where the zone around answers.
//
// Rings along the antimeridian or a pole are extended past it by kWorldMargin. So points on the
// world's edge are inside, as the points beside them are, in spite of the reader's shift.
std::vector<GridRing> SnapToGrid(const GEOSGeometry* area, const Grid& grid,
                                 const FilledHoles& filledHoles, double maxErrorMetres,
                                 SnapCounts* counts, Originals* originals);

constexpr int32_t kWorldMargin = 8;  // Units; more than zonedetect::kRingShift.
constexpr int32_t kIsletUnits = 4;   // The greatest extent of an islet, in units.

}  // namespace offlinetz
