#include "grid.h"

#include <algorithm>
#include <cmath>

namespace offlinetz {

namespace {

// The squared distance from the origin to the segment from (ax, ay) to (bx, by), in the plane.
double SquaredDistanceToSegment(double ax, double ay, double bx, double by) {
    const double dx = bx - ax;
    const double dy = by - ay;
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0.0 ? (-ax * dx + -ay * dy) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    const double ex = ax + t * dx;
    const double ey = ay + t * dy;
    return ex * ex + ey * ey;
}

}  // namespace

GridBox BoxOf(const GridRing& ring) {
    GridBox box = {ring.front(), ring.front()};
    for (const GridPoint& p : ring) {
        box.min = {std::min(box.min.lat, p.lat), std::min(box.min.lon, p.lon)};
        box.max = {std::max(box.max.lat, p.lat), std::max(box.max.lon, p.lon)};
    }
    return box;
}

int64_t Cross(const GridPoint& a, const GridPoint& b, const GridPoint& c) {
    return (int64_t{b.lon} - a.lon) * (int64_t{c.lat} - a.lat) -
           (int64_t{b.lat} - a.lat) * (int64_t{c.lon} - a.lon);
}

std::array<GridPoint, 4> CornersOf(const GridBox& box) {
    return {box.max, GridPoint{box.max.lat, box.min.lon}, box.min,
            GridPoint{box.min.lat, box.max.lon}};
}

bool ShareSide(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    return (p.lat > box.max.lat && q.lat > box.max.lat) ||
           (p.lat < box.min.lat && q.lat < box.min.lat) ||
           (p.lon > box.max.lon && q.lon > box.max.lon) ||
           (p.lon < box.min.lon && q.lon < box.min.lon);
}

bool TouchesBox(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    if (ShareSide(p, q, box)) return false;
    // The line misses the box if all corners lie on one side of the line.
    bool left = false;
    bool right = false;
    for (const GridPoint& corner : CornersOf(box)) {
        const int64_t side = Cross(p, q, corner);
        left = left || side >= 0;
        right = right || side <= 0;
    }
    return left && right;
}

int64_t DoubleArea(const GridRing& ring) {
    int64_t area = 0;
    for (size_t i = 1; i + 1 < ring.size(); ++i)
        area += Cross(ring[0], ring[i], ring[i + 1]);
    return area;
}

double CosineOfDegrees(double degrees) {
    const double x = degrees * (3.14159265358979323846 / 180.0);
    const double x2 = x * x;
    // The Taylor series up to x^16. The first omitted term is below 1e-12 at 90 degrees.
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; k <= 8; ++k) {
        term *= -x2 / ((2 * k - 1) * (2 * k));
        sum += term;
    }
    return std::max(sum, 0.0);
}

double Grid::LongitudeMetres(int32_t lat) const {
    const double degrees = std::clamp(lat * 90.0 / mScale, -90.0, 90.0);
    return kMetresPerDegree * 180.0 / mScale * CosineOfDegrees(degrees);
}

double Grid::UnitDiagonal(int32_t lat) const {
    const double y = LatitudeMetres() * (lat == 0 ? 2.0 : 1.0);  // Two units have the latitude 0.
    const double x = LongitudeMetres(lat);
    return std::sqrt(y * y + x * x);
}

double Grid::SquaredMetresToSegment(const GridPoint& p, const GridPoint& a,
                                    const GridPoint& b) const {
    return SquaredMetresToSegment(p, a, b, LongitudeMetres(p.lat));
}

double Grid::SquaredMetresToSegment(const GridPoint& p, const GridPoint& a, const GridPoint& b,
                                    double lonMetres) const {
    // Coordinates relative to p are exact. On the segment the distance must be exactly 0.
    const double mx = lonMetres;
    const double my = LatitudeMetres();
    if (Cross(a, b, p) == 0 && p.lat >= std::min(a.lat, b.lat) && p.lat <= std::max(a.lat, b.lat) &&
        p.lon >= std::min(a.lon, b.lon) && p.lon <= std::max(a.lon, b.lon)) {
        return 0.0;
    }
    return SquaredDistanceToSegment((a.lon - p.lon) * mx, (a.lat - p.lat) * my,
                                    (b.lon - p.lon) * mx, (b.lat - p.lat) * my);
}

double SquaredMetresToSegment(double lat, double lon, double aLat, double aLon, double bLat,
                              double bLon) {
    const double my = Grid::kMetresPerDegree;
    const double mx = my * CosineOfDegrees(lat);
    return SquaredDistanceToSegment((aLon - lon) * mx, (aLat - lat) * my, (bLon - lon) * mx,
                                    (bLat - lat) * my);
}

}  // namespace offlinetz
