// The database's integer grid and measures on it.
//
// A straight edge is straight in latitude and longitude, as the reader takes it. Nothing here
// depends on a mathematical library: the same input gives the same bits on every machine.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace offlinetz {

// A point in database units: 90 / scale degrees of latitude, 180 / scale degrees of longitude.
struct GridPoint {
    int32_t lat = 0;
    int32_t lon = 0;

    friend bool operator==(const GridPoint& a, const GridPoint& b) {
        return a.lat == b.lat && a.lon == b.lon;
    }
    friend bool operator!=(const GridPoint& a, const GridPoint& b) { return !(a == b); }
    friend bool operator<(const GridPoint& a, const GridPoint& b) {
        return a.lat != b.lat ? a.lat < b.lat : a.lon < b.lon;
    }
};

// A closed ring without its repeated last point. Seen with north up, rings that bound an area
// run clockwise and rings that cut a hole run counterclockwise.
using GridRing = std::vector<GridPoint>;

// The index of the point after point `i` in a ring of `size` points.
inline size_t NextIndex(size_t i, size_t size) {
    return i + 1 < size ? i + 1 : 0;
}

// An inclusive rectangle of grid points.
struct GridBox {
    GridPoint min;
    GridPoint max;

    bool Contains(const GridPoint& p) const {
        return p.lat >= min.lat && p.lat <= max.lat && p.lon >= min.lon && p.lon <= max.lon;
    }
    bool Contains(const GridBox& b) const { return Contains(b.min) && Contains(b.max); }
    GridBox Expanded(int32_t units) const {
        return {{min.lat - units, min.lon - units}, {max.lat + units, max.lon + units}};
    }
};

// The smallest box around a ring's points; the ring must not be empty.
GridBox BoxOf(const GridRing& ring);

// The cross product of a->b and a->c over the plane (lon, lat): positive when c lies left of the
// line from a to b. Exact for the coordinates of every precision that Grid accepts.
int64_t Cross(const GridPoint& a, const GridPoint& b, const GridPoint& c);

// Whether the edge from `p` to `q` and the box have a point in common.
bool TouchesBox(const GridPoint& p, const GridPoint& q, const GridBox& box);

// Whether two points lie beyond the same side of a box.
bool ShareSide(const GridPoint& p, const GridPoint& q, const GridBox& box);

// The corners of a box, counterclockwise: north-east, north-west, south-west, south-east.
std::array<GridPoint, 4> CornersOf(const GridBox& box);

// Twice the signed area: negative for a clockwise ring.
int64_t DoubleArea(const GridRing& ring);

// The square cell of 2^kCellShift units that a point lies in, as a key that sorts by row, then
// column: for finding what lies near.
constexpr int kCellShift = 6;
inline uint64_t CellKey(int32_t row, int32_t column) {
    return (uint64_t{static_cast<uint32_t>(row) ^ 0x80000000u} << 32) |
           (static_cast<uint32_t>(column) ^ 0x80000000u);
}

class Grid {
  public:
    static constexpr int kMinPrecision = 8;
    static constexpr int kMaxPrecision = 23;  // The reader's floats resolve no finer grid.

    // `precision` from kMinPrecision to kMaxPrecision.
    explicit Grid(int precision) : mPrecision(precision), mScale(int32_t{1} << (precision - 1)) {}

    int Precision() const { return mPrecision; }
    int32_t Scale() const { return mScale; }

    // Truncates toward zero, as the reader truncates a query: an edge and the points beside it
    // then move the same way, and their difference keeps no bias.
    GridPoint FromDegrees(double lat, double lon) const {
        return {static_cast<int32_t>(lat / 90.0 * mScale),
                static_cast<int32_t>(lon / 180.0 * mScale)};
    }

    // Metres a unit spans at latitude `lat` (in units).
    double LatitudeMetres() const { return kMetresPerDegree * 90.0 / mScale; }
    double LongitudeMetres(int32_t lat) const;

    // How far from a border the reader may answer wrongly by the grid alone: two units in both
    // directions. A query is truncated by up to a unit, and so is a vertex; where both move alike
    // that is one unit in all, but not across the equator and the zero meridian. The reader
    // truncates the longitude at which an edge passes a point too, and calls the whole unit border.
    double RoundingMetres(int32_t lat) const;

    // Squared distance in metres from `p` to the segment a-b; exactly 0 when p lies on it.
    double SquaredMetresToSegment(const GridPoint& p, const GridPoint& a, const GridPoint& b) const;
    // The same for those who keep LongitudeMetres(p.lat), which takes most of the time.
    double SquaredMetresToSegment(const GridPoint& p, const GridPoint& a, const GridPoint& b,
                                  double lonMetres) const;

    // The mean Earth radius of 6,371,008.8 m.
    static constexpr double kMetresPerDegree = 111195.0802335329;

  private:
    int mPrecision;
    int32_t mScale;
};

// The cosine of an angle of -90 to 90 degrees to 1e-9, by arithmetic alone.
double CosineOfDegrees(double degrees);

// Squared distance in metres from a point to the segment a-b, all in degrees, on a plane that
// is true to scale at the point.
double SquaredMetresToSegment(double lat, double lon, double aLat, double aLon, double bLat,
                              double bLon);

}  // namespace offlinetz
