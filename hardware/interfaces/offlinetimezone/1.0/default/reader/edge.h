// One edge of a ring and one point.
#pragma once

#include <algorithm>
#include <cstdint>

#include "units.h"

namespace zonedetect {

// Quadrants around a target, counted counterclockwise: north-east 0, north-west 1, south-west 2,
// south-east 3.
inline int QuadrantOf(const Point& p, const Point& target) {
    if (p.lat >= target.lat) return p.lon >= target.lon ? 0 : 1;
    return p.lon < target.lon ? 2 : 3;
}

// The quarter turns around a target from one point to another: -1 to 1 counterclockwise, or 2 for
// opposite quadrants, which do not tell on which side.
inline int QuarterTurn(const Point& from, const Point& to, const Point& target) {
    return ((QuadrantOf(to, target) - QuadrantOf(from, target) + 1) & 3) - 1;
}

// The line through an oblique edge: lat = slope * lon + intercept, in single precision.
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

// Squared distance in latitude units from the target to the edge's perpendicular foot where
// that lies within the edge, else to the edge's end `to`.
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
    // Unsigned, so that far points wrap instead of overflowing.
    const auto lat = static_cast<uint64_t>(deltaLat);
    const auto lon = static_cast<uint64_t>(deltaLon);
    return lat * lat + 4 * (lon * lon);
}

}  // namespace zonedetect
