// The position of a point relative to one edge of a ring: quarter turns, crossing, distance.
#pragma once

#include <algorithm>
#include <cstdint>

#include "units.h"

namespace zonedetect {

// The quadrant of `p` around the target, counterclockwise: 0 north-east, 1 north-west, 2
// south-west, 3 south-east.
inline int QuadrantOf(const Point& p, const Point& target) {
    if (p.lat >= target.lat) return p.lon >= target.lon ? 0 : 1;
    return p.lon < target.lon ? 2 : 3;
}

// The quarter turns around the target from one point to another: -1 (clockwise) to 1
// (counterclockwise). Returns 2 for opposite quadrants: they do not tell on which side of the
// target the edge passes.
inline int QuarterTurn(const Point& from, const Point& to, const Point& target) {
    return ((QuadrantOf(to, target) - QuadrantOf(from, target) + 1) & 3) - 1;
}

// The line through an edge that is neither vertical nor horizontal: lat = slope * lon + intercept,
// in single precision.
struct EdgeLine {
    float slope;
    float intercept;

    EdgeLine(const Point& from, const Point& to)
        : slope(static_cast<float>(int64_t{to.lat} - from.lat) /
                static_cast<float>(int64_t{to.lon} - from.lon)),
          intercept(static_cast<float>(to.lat) - slope * static_cast<float>(to.lon)) {}

    int32_t LongitudeAt(int32_t lat) const {
        return TruncateToInt32((static_cast<float>(lat) - intercept) / slope);
    }
};

inline bool LiesBetween(int32_t value, int32_t a, int32_t b) {
    return value >= std::min(a, b) && value <= std::max(a, b);
}

// Squared distance, in units of latitude, from the target to the foot of its perpendicular on the
// edge. If the foot, truncated to units, is not within the edge's bounding box: squared distance to
// the end point `to`. The perpendicular is taken as if a unit of longitude were as long as a unit
// of latitude; the distance counts it twice as long.
inline uint64_t SquaredDistance(const Point& from, const Point& to, const Point& target) {
    const auto targetLat = static_cast<float>(target.lat);
    const auto targetLon = static_cast<float>(target.lon);
    float footLat;
    float footLon;
    if (from.lon == to.lon) {
        footLat = targetLat;
        footLon = static_cast<float>(to.lon);
    } else if (from.lat == to.lat) {
        footLat = static_cast<float>(to.lat);
        footLon = targetLon;
    } else {
        const EdgeLine line(from, to);
        const float s = targetLon + line.slope * targetLat;
        const float m = 1.0f + line.slope * line.slope;
        footLon = (s - line.slope * line.intercept) / m;
        footLat = (line.intercept + line.slope * s) / m;
    }
    int64_t deltaLat = int64_t{to.lat} - target.lat;
    int64_t deltaLon = int64_t{to.lon} - target.lon;
    if (LiesBetween(TruncateToInt32(footLat), to.lat, from.lat) &&
        LiesBetween(TruncateToInt32(footLon), to.lon, from.lon)) {
        deltaLat = TruncateToInt64(footLat - targetLat);
        deltaLon = TruncateToInt64(footLon - targetLon);
    }
    // Unsigned: the squares of far points wrap, where signed ones would overflow.
    const auto lat = static_cast<uint64_t>(deltaLat);
    const auto lon = static_cast<uint64_t>(deltaLon);
    return lat * lat + 4 * (lon * lon);
}

}  // namespace zonedetect
