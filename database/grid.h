// The database's integer grid, and distances on it.
//
// An edge is straight in latitude and longitude, as the reader takes it. Nothing here calls a
// mathematical library other than for square roots, which IEEE 754 defines exactly: the same input
// gives the same bits on every machine. All functions may be called on any thread.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace offlinetz {

// A point in grid units: 90 / scale degrees of latitude, 180 / scale degrees of longitude.
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

// A closed ring without the repeated last point. With north up, exterior rings run clockwise and
// holes run counterclockwise.
using GridRing = std::vector<GridPoint>;

// The index of the point after point `i` in a ring of `size` points.
inline size_t NextIndex(size_t i, size_t size) {
    return i + 1 < size ? i + 1 : 0;
}

// A bounding box: the grid points from `min` to `max`, both included.
struct GridBox {
    GridPoint min;
    GridPoint max;

    bool Contains(const GridPoint& p) const {
        return p.lat >= min.lat && p.lat <= max.lat && p.lon >= min.lon && p.lon <= max.lon;
    }
    bool Contains(const GridBox& b) const { return Contains(b.min) && Contains(b.max); }
};

// The bounding box of a ring, which must not be empty.
GridBox BoxOf(const GridRing& ring);

// The cross product of a->b and a->c in the plane (lon, lat): positive if c lies left of the line
// from a to b. Exact for all coordinates of the precisions that Grid accepts.
int64_t Cross(const GridPoint& a, const GridPoint& b, const GridPoint& c);

// Whether the edge from `p` to `q` and the box share a point of the plane.
bool TouchesBox(const GridPoint& p, const GridPoint& q, const GridBox& box);

// Whether both points lie beyond the same side of the box. An edge between them misses the box.
bool ShareSide(const GridPoint& p, const GridPoint& q, const GridBox& box);

// The corners of a box, counterclockwise: north-east, north-west, south-west, south-east.
std::array<GridPoint, 4> CornersOf(const GridBox& box);

// Twice the signed area in square units: negative for a clockwise ring.
int64_t DoubleArea(const GridRing& ring);

// Square cells of 2^kCellShift units a side, for finding what lies near a point. The key of a cell
// sorts by row (latitude >> kCellShift), then by column (longitude >> kCellShift).
constexpr int kCellShift = 6;
inline uint64_t CellKey(int32_t row, int32_t column) {
    return (uint64_t{static_cast<uint32_t>(row) ^ 0x80000000u} << 32) |
           (static_cast<uint32_t>(column) ^ 0x80000000u);
}

// The grid of one precision.
class Grid {
  public:
    static constexpr int kMinPrecision = 8;
    static constexpr int kMaxPrecision = 23;  // The reader's floats resolve no finer grid.

    // `precision` is from kMinPrecision to kMaxPrecision.
    explicit Grid(int precision) : mPrecision(precision), mScale(int32_t{1} << (precision - 1)) {}

    int Precision() const { return mPrecision; }
    // Units in 90 degrees of latitude, and in 180 degrees of longitude.
    int32_t Scale() const { return mScale; }

    // A position in units, and in degrees.
    double LatitudeUnits(double degrees) const { return degrees / 90.0 * mScale; }
    double LongitudeUnits(double degrees) const { return degrees / 180.0 * mScale; }
    double LatitudeDegrees(double units) const { return units * 90.0 / mScale; }
    double LongitudeDegrees(double units) const { return units * 180.0 / mScale; }

    // The unit in which the reader looks for a position: it truncates toward zero.
    GridPoint UnitAt(double lat, double lon) const {
        return {static_cast<int32_t>(LatitudeUnits(lat)),
                static_cast<int32_t>(LongitudeUnits(lon))};
    }

    // The vertex that stands for a position. Its latitude is truncated toward zero, as the reader
    // truncates the latitude of a query: both move the same way, so truncation adds no bias. Its
    // longitude is rounded to the nearest unit: the reader truncates the longitudes of a query and
    // of the crossing with which it compares it, so those two already move the same way.
    GridPoint VertexAt(double lat, double lon) const {
        return {static_cast<int32_t>(LatitudeUnits(lat)),
                static_cast<int32_t>(std::lround(LongitudeUnits(lon)))};
    }

    // Metres in a unit of latitude.
    double LatitudeMetres() const { return kMetresPerDegree * 90.0 / mScale; }
    // Metres in a unit of longitude at the latitude `lat`, in units.
    double LongitudeMetres(int32_t lat) const;

    // The greatest distance in metres between positions that truncation puts into the same unit.
    double UnitDiagonal(int32_t lat) const;

    // The squared distance in metres from `p` to the segment a-b; exactly 0 if p lies on it.
    double SquaredMetresToSegment(const GridPoint& p, const GridPoint& a, const GridPoint& b) const;
    // The same for a caller that keeps `lonMetres` = LongitudeMetres(p.lat), which takes most of
    // the time.
    double SquaredMetresToSegment(const GridPoint& p, const GridPoint& a, const GridPoint& b,
                                  double lonMetres) const;

    // From the mean Earth radius of 6,371,008.8 m.
    static constexpr double kMetresPerDegree = 111195.0802335329;

  private:
    int mPrecision;
    int32_t mScale;
};

constexpr double kDegreesPerRadian = 57.29577951308232;

// The cosine of an angle from -90 to 90 degrees, with an error below 1e-9, by arithmetic only.
double CosineOfDegrees(double degrees);

// The squared distance in metres from a point to the segment a-b, all in degrees, on a plane that
// is true to scale at the point.
double SquaredMetresToSegment(double lat, double lon, double aLat, double aLon, double bLat,
                              double bLon);

}  // namespace offlinetz
