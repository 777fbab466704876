// Points in database units, and the conversion from degrees. A database with precision p has
// 2^(p - 1) units in 90 degrees of latitude and in 180 degrees of longitude.
#pragma once

#include <cmath>
#include <cstdint>

#include "zonedetect.h"

namespace zonedetect {

// Adds with 32-bit two's complement wrap-around: the deltas of a hostile database may exceed the
// range, and all readers must compute the same sums.
inline int32_t WrappingAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Truncate toward zero. They clamp values outside the range of the type and return 0 for NaN; a
// cast alone has undefined behaviour for these.
inline int32_t TruncateToInt32(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483648.0f) return INT32_MAX;
    if (value <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(value);
}

inline int64_t TruncateToInt64(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0f) return INT64_MAX;
    if (value <= -9223372036854775808.0f) return INT64_MIN;
    return static_cast<int64_t>(value);
}

// Whether the precision is 1 to 31. For others Scale is undefined; callers answer without it.
inline bool HasScale(const ZDDatabase& db) {
    return db.precision >= 1 && db.precision <= 31;
}

// Units in 90 degrees of latitude and in 180 degrees of longitude. Requires HasScale.
inline float Scale(const ZDDatabase& db) {
    return static_cast<float>(int32_t{1} << (db.precision - 1));
}

inline int32_t LatitudeUnits(float degrees, float scale) {
    return TruncateToInt32(degrees / 90.0f * scale);
}

inline int32_t LongitudeUnits(float degrees, float scale) {
    return TruncateToInt32(degrees / 180.0f * scale);
}

// A point in database units.
struct Point {
    int32_t lat;
    int32_t lon;
};

}  // namespace zonedetect
