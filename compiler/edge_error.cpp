#include "edge_error.h"

#include <reader/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

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

double LatitudeShift(const Original& original) {
    const bool isNorth =
            original.vertex.lat > 0 || (original.vertex.lat == 0 && original.lat >= 0.0f);
    return isNorth ? -0.5 : 0.5;
}

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
    // At an end a point may lie on either side.
    mEndReach = {errorLon, errorLon, kLeastReachLat + errorLat, kLeastReachLat + errorLat};
    // Two units have the latitude 0.
    if (south <= 0 && north >= 0) {
        for (double* reach : {&mReach.south, &mReach.north, &mEndReach.south, &mEndReach.north})
            *reach += 1.0;
    }
}

double EdgeError::Across(const Offset& p, const Offset& direction, double length,
                         double lonMetres) const {
    const double dx = direction.x * mLatMetres;
    const double dy = direction.y * lonMetres;
    const double left = std::max(dy * mReach.west, -dy * mReach.east) +
                        std::max(dx * mReach.north, -dx * mReach.south);
    const double right = std::max(dy * mReach.east, -dy * mReach.west) +
                         std::max(dx * mReach.south, -dx * mReach.north);
    const double across = direction.x * p.y - direction.y * p.x;
    return std::max(left - across, right + across) / length;
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
    const Offset direction = {(static_cast<double>(mTo.lon) - mFrom.lon) * lonMetres,
                              (static_cast<double>(mTo.lat) - mFrom.lat) * mLatMetres};
    const double squared = direction.x * direction.x + direction.y * direction.y;
    const double across = Across(p, direction, std::sqrt(squared), lonMetres);
    const double along = p.x * direction.x + p.y * direction.y;
    if (along >= 0.0 && along <= squared) return across;
    const Offset beyond = along < 0.0 ? p : OffsetFrom(mTo, original, lonMetres);
    return std::max(across, std::sqrt(beyond.x * beyond.x + beyond.y * beyond.y));
}

double EdgeError::BeyondEnd(const Original& original, const GridPoint& end,
                            double lonMetres) const {
    const Offset p = OffsetFrom(end, original, lonMetres);
    // The reader puts a point there only if the point's truncated longitude is that of the end.
    const double east = mEndReach.east + (end.lon >= 0 ? 1.0 : 0.0);
    const double west = mEndReach.west + (end.lon <= 0 ? 1.0 : 0.0);
    const double x = std::max(east * lonMetres - p.x, west * lonMetres + p.x);
    const double y =
            std::max(mEndReach.north * mLatMetres - p.y, mEndReach.south * mLatMetres + p.y);
    const Offset direction = {(static_cast<double>(mTo.lon) - mFrom.lon) * lonMetres,
                              (static_cast<double>(mTo.lat) - mFrom.lat) * mLatMetres};
    const double length = std::sqrt(direction.x * direction.x + direction.y * direction.y);
    const double across = Across(p, direction, length, lonMetres);
    const double along = (p.x * direction.x + p.y * direction.y) / length;
    return std::sqrt(std::max(x * x + y * y, across * across + along * along));
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
