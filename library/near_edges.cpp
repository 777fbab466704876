#include <reader/exact_floats.h>  // Must be the first include.

#include "near_edges.h"

#include <reader/simd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace offlinetz {

namespace {

using zonedetect::Broadcast;
using Floats = zonedetect::Float32x4;
using Ints = zonedetect::Int32x4;
using Uints = zonedetect::Uint32x4;

// A measured distance is at most so many units of latitude too large.
//
// No difference is measured that reaches kReach, so vectors have a length of at most M = 2^19.2
// units. Let u = 2^-24 be the error of a rounding. The vector to the end of the edge is off by up
// to 2.2 u M, the edge by u M, and the share of the edge by 8 u M divided by its length: that moves
// the nearest point along the edge. With the last product and difference the sum is 14 u M, or half
// a unit; the squares add less.
constexpr double kError = 1.0;
constexpr uint32_t kReach = 1u << 18;

Ints Load(const int32_t* four) {
    return zonedetect::AsSigned(zonedetect::LoadUnaligned(four));
}

Ints Difference(Ints a, Ints b) {
    return zonedetect::AsSigned(zonedetect::AsUnsigned(a) - zonedetect::AsUnsigned(b));
}

// The lanes in which both values are beyond the same end of an interval.
Ints AreBeyond(Ints a, Ints b, int32_t min, int32_t max) {
    const Ints low = Broadcast(min);
    const Ints high = Broadcast(max);
    return ((a < low) & (b < low)) | ((a > high) & (b > high));
}

// The lanes outside of [-kReach, kReach).
Ints AreFar(Ints units) {
    constexpr uint32_t kRest = ~(2u * kReach - 1u);
    constexpr Uints kReaches = {kReach, kReach, kReach, kReach};
    constexpr Uints kRests = {kRest, kRest, kRest, kRest};
    return zonedetect::AsSigned((zonedetect::AsUnsigned(units) + kReaches) & kRests) !=
           Broadcast(0);
}

}  // namespace

PlaneDistances::PlaneDistances(const SphereUnits& units, const Origin& origin,
                               const BorderArea& area)
    : mBox(area.Sides()), mUnit(units.Lat(1.0)) {
    const auto south = static_cast<double>(mBox.minLat);
    const auto north = static_cast<double>(mBox.maxLat);
    const auto west = static_cast<double>(mBox.minLon);
    const auto east = static_cast<double>(mBox.maxLon);
    const double lat = units.LatUnits(origin.At().lat);
    double lon = units.LonUnits(origin.At().lon);
    // By a whole turn the origin may be nearer.
    if (lon - 0.5 * (west + east) > units.Scale()) lon -= 2.0 * units.Scale();
    if (lon - 0.5 * (west + east) < -units.Scale()) lon += 2.0 * units.Scale();
    const double pole = std::min(std::max(-south, north), units.Scale());
    const double cosine = std::max(SineAndCosineOf(units.Lat(pole)).cosine, 0.0);
    const double scale = 2.0 * std::sqrt(origin.Cosine() * cosine);
    mLat = static_cast<int32_t>(lat);
    mLon = static_cast<int32_t>(lon);
    mRestLat = static_cast<float>(lat - static_cast<double>(mLat));
    mRestLon = static_cast<float>(scale * (lon - static_cast<double>(mLon)));
    mScale = static_cast<float>(scale);
    const double m = std::max(units.Lat(std::max(lat - south, north - lat)),
                              units.Lon(std::max(lon - west, east - lon)));
    constexpr double kNoLimit = 1e20;
    mStretch = m < kPi ? 1.0 / (1.0 - m * m * (1.0 / 12.0)) : kNoLimit;
}

float PlaneDistances::ReachOf(double haversine) const {
    const double reach = 2.0 * std::sqrt(haversine * mStretch) / mUnit + kError;
    return static_cast<float>(reach * reach * (1.0 + 1e-6));
}

void PlaneDistances::Measure(const EdgeBlock& block, float* squared) const {
    using zonedetect::Max;
    using zonedetect::Min;
    using zonedetect::Select;
    using zonedetect::ToFloats;
    const Floats scale = Broadcast(mScale);
    for (size_t i = 0; i < block.edges; i += zonedetect::kLanes) {
        const Ints fromLat = Load(&block.lat[i]);
        const Ints fromLon = Load(&block.lon[i]);
        const Ints toLat = Load(&block.lat[i + 1]);
        const Ints toLon = Load(&block.lon[i + 1]);
        const Ints isOutside = AreBeyond(fromLat, toLat, mBox.minLat, mBox.maxLat) |
                               AreBeyond(fromLon, toLon, mBox.minLon, mBox.maxLon);
        // From the origin to the end, and along the edge.
        const Ints lat = Difference(toLat, Broadcast(mLat));
        const Ints lon = Difference(toLon, Broadcast(mLon));
        const Ints byLat = Difference(toLat, fromLat);
        const Ints byLon = Difference(toLon, fromLon);
        const Ints isFar = AreFar(lat) | AreFar(lon) | AreFar(byLat) | AreFar(byLon);
        const Floats y = ToFloats(lat) - Broadcast(mRestLat);
        const Floats x = ToFloats(lon) * scale - Broadcast(mRestLon);
        const Floats edgeY = ToFloats(byLat);
        const Floats edgeX = ToFloats(byLon) * scale;
        // The share of the edge between the nearest point and its end.
        const Floats share =
                (y * edgeY + x * edgeX) / Max(edgeY * edgeY + edgeX * edgeX, Broadcast(1e-6f));
        const Floats inEdge = Min(Max(share, Broadcast(0.0f)), Broadcast(1.0f));
        const Floats nearY = y - inEdge * edgeY;
        const Floats nearX = x - inEdge * edgeX;
        const Floats measured = Select(isFar, Broadcast(0.0f), nearY * nearY + nearX * nearX);
        const Floats result =
                Select(isOutside, Broadcast(std::numeric_limits<float>::infinity()), measured);
        std::memcpy(&squared[i], &result, sizeof result);
    }
}

}  // namespace offlinetz
