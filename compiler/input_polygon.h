// Reads the polygons of the input: from JSON arrays of rings to valid polygons.
#pragma once

#include <simdjson.h>

#include <cstddef>
#include <string>

#include "geometry.h"

namespace offlinetz {

// A repair is negligible if it changes the area of a polygon by at most this share, or by at most
// about 100 m x 100 m. Negligible repairs are always accepted. The other repairs of a feature are
// accepted if together they change its area by at most this share.
constexpr double kRepairShare = 1e-3;

// A polygon of a feature as it was read.
struct InputPolygon {
    GeometryPtr area;                  // Valid; one polygon, several, or empty.
    size_t points = 0;                 // Of the rings as read.
    bool crossesAntimeridian = false;  // Long edges crossed the antimeridian; it was cut there.
    bool isBeyond180 = false;          // Longitudes were beyond 180 degrees; they were moved.
    std::string repair;                // The first fault that was repaired and its place, or empty.
    double changedSquareDegrees = 0.0;  // The change of area by repairs; 0 if they are negligible.
    double changedKm2 = 0.0;            // The same in square kilometres.
};

// Reads an array of rings: the exterior one, then holes. `where` names the polygon in messages.
//
// A polygon whose rings cross or touch themselves or each other is repaired: what its rings enclose
// becomes the polygon. The caller judges by changedSquareDegrees whether that is acceptable.
//
// Longitudes may lie up to a turn beyond 180 or -180 degrees. Such a polygon is cut at the
// antimeridian, and the parts beyond are moved by whole turns.
//
// An edge of more than 180 degrees of longitude goes the short way, across the antimeridian, if
// `crossAntimeridian` is set; else the polygon is refused. Throws InputError if the polygon cannot
// be used, std::bad_alloc if memory runs out.
InputPolygon ReadPolygon(const simdjson::dom::element& rings, const std::string& where,
                         bool crossAntimeridian);

// Owns what the geometry library returned. Throws InputError with the library's last error if that
// is null, std::bad_alloc if it was for lack of memory.
GeometryPtr RequireGeometry(GEOSGeometry* geometry, const std::string& where);

}  // namespace offlinetz
