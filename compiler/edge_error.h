// How far from the source an answer may be wrong because of one edge of the database.
#pragma once

#include "database/grid.h"
#include "originals.h"

namespace offlinetz {

// An edge of the database that stands for a chain of a source border. docs/design.md ("The
// certified error") proves what follows.
//
// The reader treats a point as if it lay within a small rectangle around it, because it truncates
// the point's coordinates and the longitude at which an edge passes. So an answer near the edge may
// be wrong if that rectangle touches the edge, or if the point lies between the edge and the chain.
// The error of an edge is the greatest distance of such a point from the chain.
//
// Distances are in metres on the plane that is true to scale at the point of the source.
class EdgeError {
  public:
    // The edge between two distinct vertices, in either direction.
    EdgeError(const Grid& grid, const GridPoint& from, const GridPoint& to);

    // The error because of an original of a vertex that the edge replaces, or of one of its ends.
    // `lonMetres` is grid.LongitudeMetres(original.vertex.lat). The error of the edge is the
    // greatest over all of these, since distances along the straight edges between originals are
    // convex.
    double At(const Original& original, double lonMetres) const;
    // The error beyond an end of the edge, because of an original of the vertex for which it
    // stands.
    double BeyondEnd(const Original& original, const GridPoint& end, double lonMetres) const;

    // What the rectangle reaches at the least on each side, in units, unless the edge is vertical
    // or horizontal.
    static constexpr double kLeastReachLat = 0.5;
    static constexpr double kLeastReachLon = 1.0;

  private:
    struct Offset {  // In metres.
        double x;
        double y;
    };
    Offset OffsetFrom(const GridPoint& p, const Original& original, double lonMetres) const;
    // How far a point at the offset `p` from a point of the edge's line is across that line from
    // the furthest point that the reader may put onto the line.
    double Across(const Offset& p, const Offset& direction, double length, double lonMetres) const;

    struct Reach {  // In units.
        double west;
        double east;
        double south;
        double north;
    };

    GridPoint mFrom;
    GridPoint mTo;
    double mLatMetres;
    Reach mReach;  // How far a point may lie from a point of the edge if the reader puts it there.
    Reach mEndReach;  // The same for an end, but for the unit of longitude that truncation takes.
};

// The error, in metres, of a box that stands for a tiny ring. `lat`, `lon`: a point of that ring,
// in units, that is taken for the whole ring.
double BoxError(const Grid& grid, const GridBox& box, double lat, double lon);

// Half a unit, to be added to the latitude of an original: vertices and points are truncated, so
// both are taken in the middle of their units.
double LatitudeShift(const Original& original);

}  // namespace offlinetz
