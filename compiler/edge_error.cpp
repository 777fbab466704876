#include "edge_error.h"

#include <reader/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace offlinetz {

namespace {

// The greatest error of rounding a number of up to this magnitude to single precision.
double HalfUlp(double magnitude) {
    int exponent;
    std::frexp(magnitude, &exponent);
    return std::ldexp(1.0, exponent - 25);
}

// The error in units of a coordinate of up to `units`: a client's decimal text is rounded to
// degrees in single precision, and these are divided by `span`. The multiplication by the scale is
// exact.
double QueryError(double units, double scale, double span) {
    const double degrees = units * span / scale;
    return scale * (HalfUlp(degrees) / span + HalfUlp(degrees / span));
}

// The error in units of the longitude at which the edge's line crosses a parallel, as
// reader/edge.h computes it: (lat - (to.lat - slope * to.lon)) / slope in single precision.
double CrossingError(const GridPoint& from, const GridPoint& to) {
    if (from.lat == to.lat || from.lon == to.lon) return 0.0;  // The reader computes no crossing.
    const double slope =
            (static_cast<double>(to.lat) - from.lat) / (static_cast<double>(to.lon) - from.lon);
    const double steepness = std::abs(slope);
    const double stored = static_cast<double>(to.lon) - zonedetect::kRingShift;
    const double reach = std::max(std::abs(stored),
                                  std::abs(static_cast<double>(from.lon) - zonedetect::kRingShift));
    constexpr double kMore = 1.001;                             // Covers products of errors.
    const double product = HalfUlp(kMore * steepness * reach);  // Also of the dividend.
    const double intercept = HalfUlp(kMore * std::abs(to.lat - slope * stored));
    const double ofSlope = std::ldexp(std::abs(static_cast<double>(from.lon) - to.lon), -24);
    return kMore * ((2.0 * product + intercept) / steepness + HalfUlp(kMore * reach) + ofSlope);
}

}  // namespace

EdgeError::EdgeError(const Grid& grid, const GridPoint& from, const GridPoint& to)
    : mFrom(std::min(from, to)), mTo(std::max(from, to)), mLatMetres(grid.LatitudeMetres()) {
    const int32_t west = std::min(from.lon, to.lon);
    const int32_t east = std::max(from.lon, to.lon);
    const int32_t south = mFrom.lat;
    const int32_t north = mTo.lat;
    constexpr double kBeside = 2.0;  // A point that matters lies that close to the edge, in units.
    const double scale = grid.Scale();
    const double errorLon = QueryError(std::max(-west, east) + kBeside, scale, 180.0);
    const double errorLat = QueryError(std::max(-south, north) + kBeside, scale, 90.0);
    mReach = {errorLon, errorLon, errorLat, errorLat};
    if (west == east) {
        // The reader compares longitudes. The edge separates the units on both sides of it.
        if (west >= 0) mReach.east += 1.0;
    } else if (south == north) {
        mReach.north += kLeastReachLat;
    } else {
        const double crossingError = CrossingError(mFrom, mTo);
        mReach.west += kLeastReachLon + crossingError;
        mReach.east += kLeastReachLon + crossingError;
        mReach.south += kLeastReachLat;
        mReach.north += kLeastReachLat;
        // Two units have the longitude 0. Up to kRingShift units further east, a point's longitude
        // is rounded down and that of a crossing, which is stored shifted, is rounded up.
        if (west <= zonedetect::kRingShift + 1 && east >= -1) mReach.east += 1.0;
    }
    mErrorLon = errorLon;
    mEndReachLat = kLeastReachLat + errorLat;
    // Two units have the latitude 0.
    if (south <= 0 && north >= 0) {
        for (double* reach : {&mReach.south, &mReach.north, &mEndReachLat})
            *reach += 1.0;
    }
}

double EdgeError::LatitudeShift(const Original& original) const {
    if (mFrom.lat > 0) return -0.5;
    if (mTo.lat < 0) return 0.5;
    return original.Lat() >= 0.0 ? -0.5 : 0.5;
}

EdgeError::Offset EdgeError::Direction(double lonMetres) const {
    return {(static_cast<double>(mTo.lon) - mFrom.lon) * lonMetres,
            (static_cast<double>(mTo.lat) - mFrom.lat) * mLatMetres};
}

EdgeError::Sides EdgeError::SidesOf(const Offset& direction, double lonMetres) const {
    const double dx = direction.x * mLatMetres;
    const double dy = direction.y * lonMetres;
    return {std::max(dy * mReach.west, -dy * mReach.east) +
                    std::max(dx * mReach.north, -dx * mReach.south),
            std::max(dy * mReach.east, -dy * mReach.west) +
                    std::max(dx * mReach.south, -dx * mReach.north)};
}

EdgeError::Offset EdgeError::OffsetFrom(const GridPoint& p, const Original& original,
                                        double lonMetres) const {
    // The differences of integers are exact.
    const double lat = static_cast<double>(original.lat) + LatitudeShift(original);
    return {(original.vertex.lon - p.lon + static_cast<double>(original.lon)) * lonMetres,
            (original.vertex.lat - p.lat + lat) * mLatMetres};
}

double EdgeError::At(const Original& original, double lonMetres) const {
    const Offset p = OffsetFrom(mFrom, original, lonMetres);
    const Offset direction = Direction(lonMetres);
    const double squared = direction.x * direction.x + direction.y * direction.y;
    const Sides sides = SidesOf(direction, lonMetres);
    const double left = direction.x * p.y - direction.y * p.x;
    const double across = std::max(sides.left - left, sides.right + left) / std::sqrt(squared);
    const double along = p.x * direction.x + p.y * direction.y;
    if (along >= 0.0 && along <= squared) return across;
    const Offset beyond = along < 0.0 ? p : OffsetFrom(mTo, original, lonMetres);
    return std::max(across, std::sqrt(beyond.x * beyond.x + beyond.y * beyond.y));
}

double EdgeError::BeyondEnd(const Original& original, const GridPoint& end,
                            double lonMetres) const {
    // The points beyond the end that the reader may put onto the edge, seen from the end: no
    // further left or right than elsewhere, and truncated into the edge's bounding box. The corners
    // of that area count, and the points beside the end.
    const Offset p = OffsetFrom(end, original, lonMetres);
    const Offset direction = Direction(lonMetres);
    const double length = std::sqrt(direction.x * direction.x + direction.y * direction.y);
    const double sign = end == mTo ? 1.0 : -1.0;
    const Offset along = {sign * direction.x / length, sign * direction.y / length};
    const Sides sides = SidesOf(direction, lonMetres);
    const double left = sides.left / length;
    const double right = sides.right / length;
    const bool takesUnit = along.x > 0.0 ? end.lon >= 0 : end.lon <= 0;
    const double mostX = (mErrorLon + (takesUnit ? 1.0 : 0.0)) * lonMetres;
    const double mostY = mEndReachLat * mLatMetres;
    double squared = 0.0;
    const auto add = [&](double x, double y) {
        squared = std::max(squared, (x - p.x) * (x - p.x) + (y - p.y) * (y - p.y));
    };
    for (const double across : {left, -right}) {
        // Left of the edge's direction, whichever end this is.
        const double x = -sign * along.y * across;
        const double y = sign * along.x * across;
        double beyond = std::numeric_limits<double>::infinity();
        if (along.x != 0.0)
            beyond = std::min(beyond, (mostX - std::copysign(x, x * along.x)) / std::abs(along.x));
        if (along.y != 0.0)
            beyond = std::min(beyond, (mostY - std::copysign(y, y * along.y)) / std::abs(along.y));
        beyond = std::max(beyond, 0.0);
        add(x, y);
        add(x + beyond * along.x, y + beyond * along.y);
    }
    add(std::copysign(mostX, along.x), std::copysign(mostY, along.y));
    return std::sqrt(squared);
}

double WidestUnit(const Grid& grid, const GridPoint& a, double aMetres, const GridPoint& b,
                  double bMetres) {
    if ((a.lat < 0) != (b.lat < 0)) return grid.LongitudeMetres(0);
    return std::max(aMetres, bMetres);
}

double BoxError(const Grid& grid, const GridBox& box, double lat, double lon) {
    const std::array<GridPoint, 4> corners = CornersOf(box);
    double metres = 0.0;
    for (size_t i = 0; i < corners.size(); ++i) {
        const EdgeError side(grid, corners[i], corners[NextIndex(i, corners.size())]);
        for (const GridPoint& end : {corners[i], corners[NextIndex(i, corners.size())]}) {
            const Original original = {end, static_cast<float>(lat - end.lat),
                                       static_cast<float>(lon - end.lon)};
            const double lonMetres = grid.LongitudeMetres(end.lat);
            metres = std::max({metres, side.At(original, lonMetres),
                               side.BeyondEnd(original, end, lonMetres)});
        }
    }
    return metres;
}

}  // namespace offlinetz
