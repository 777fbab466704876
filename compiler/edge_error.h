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
    // `lonMetres` is WidestUnit of the vertex in its chain. The error of the edge is the greatest
    // over all of these: distances along the straight edges between originals are convex, and grow
    // with the length of a unit of longitude.
    double At(const Original& original, double lonMetres) const;
    // The error beyond an end of the edge, because of an original of the vertex for which it
    // stands.
    double BeyondEnd(const Original& original, const GridPoint& end, double lonMetres) const;

    // What the rectangle reaches at the least on each side, in units, unless the edge is vertical
    // or horizontal.
    static constexpr double kLeastReachLat = 0.5;
    static constexpr double kLeastReachLon = 1.0;

    // Half a unit, to be added to the latitude of an original: vertices and points are truncated,
    // so both are taken in the middle of their units. Away from the equator the side of the edge
    // decides, since the points that matter are there.
    double LatitudeShift(const Original& original) const;

  private:
    struct Offset {  // In metres.
        double x;
        double y;
    };
    Offset OffsetFrom(const GridPoint& p, const Original& original, double lonMetres) const;
    Offset Direction(double lonMetres) const;  // From the first end to the second.
    // How far from the edge's line, on its left and on its right, the reader may put a point onto
    // it: times the length of the direction.
    struct Sides {
        double left;
        double right;
    };
    Sides SidesOf(const Offset& direction, double lonMetres) const;

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
    double mErrorLon;     // Of the coordinates of a point, in units.
    double mEndReachLat;  // How far beyond an end, in units.
};

// The greatest length in metres of a unit of longitude between the latitudes of two consecutive
// vertices, whose own units have the given lengths.
double WidestUnit(const Grid& grid, const GridPoint& a, double aMetres, const GridPoint& b,
                  double bMetres);

// The error, in metres, of a box that stands for a tiny ring. `lat`, `lon`: a point of that ring,
// in units, that is taken for the whole ring.
double BoxError(const Grid& grid, const GridBox& box, double lat, double lon);

}  // namespace offlinetz
