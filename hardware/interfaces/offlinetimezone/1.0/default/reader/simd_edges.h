// SIMD versions of the functions of edge.h for four edges, one in each lane.
//
// The results are bit for bit those of edge.h, on every processor:
// - Quarter turns come from integer comparisons. An edge for which edge.h computes in floats (one
//   between opposite quadrants), or that ends in the target, makes HasAmbiguousEdge true: the
//   caller then discards the results and repeats these edges with edge.h.
// - A distance is computed with the same operations in the same order as in edge.h, and each lane
//   rounds each operation as scalar code does (exact_floats.h). This holds while floats hold all
//   coordinates exactly. Otherwise AreExact is false and the caller repeats these edges with
//   edge.h.
// - The minimum of the distances does not depend on their order.
#pragma once

#include <algorithm>
#include <cstdint>

#include "simd.h"
#include "units.h"

namespace zonedetect {

// Four edges, in units.
struct FourEdges {
    Int32x4 fromLat;
    Int32x4 fromLon;
    Int32x4 lat;  // The end points.
    Int32x4 lon;
};

// Adds up the quarter turns around a target along a chain of vertices: four times the winding
// number of a ring.
class TurnCounter {
  public:
    // The chain begins at `start`.
    TurnCounter(const Point& target, const Point& start)
        : mLat(Broadcast(target.lat)),
          mLon(Broadcast(target.lon)),
          mLast(QuadrantsOf(Broadcast(start.lat), Broadcast(start.lon))) {}

    // Goes on to the next four vertices.
    void Add(Int32x4 lat, Int32x4 lon) {
        const Int32x4 quadrants = QuadrantsOf(lat, lon);
        const Int32x4 change = quadrants - __builtin_shufflevector(mLast, quadrants, 3, 4, 5, 6);
        const Int32x4 turns = AsSigned(AsUnsigned(change) << 30) >> 30;  // Modulo 4: -2 to 1.
        mLast = quadrants;
        mQuarterTurns += turns;
        mAmbiguous |= (turns == Broadcast(-2)) | ((lat == mLat) & (lon == mLon));
    }

    // Whether the quadrants do not decide the turn of an edge added: it leads to the opposite
    // quadrant and may pass the target on either side, or it ends in the target. The count is then
    // meaningless.
    bool HasAmbiguousEdge() const { return AnyOf(mAmbiguous); }
    int32_t QuarterTurns() const {
        return mQuarterTurns[0] + mQuarterTurns[1] + mQuarterTurns[2] + mQuarterTurns[3];
    }

  private:
    Int32x4 QuadrantsOf(Int32x4 lat, Int32x4 lon) const {
        const Int32x4 isSouth = lat < mLat;
        const Int32x4 isWest = lon < mLon;
        return (isSouth & Broadcast(2)) | ((isSouth ^ isWest) & Broadcast(1));
    }

    const Int32x4 mLat;
    const Int32x4 mLon;
    Int32x4 mLast;  // The quadrants of the last four vertices.
    Int32x4 mQuarterTurns = Broadcast(0);
    Int32x4 mAmbiguous = Broadcast(0);
};

// Floats hold coordinates in [-kExactLimit, kExactLimit) and their differences exactly.
constexpr int32_t kExactLimit = 1 << 23;

// Finds the smallest squared distance from edges to a target while floats hold all coordinates
// exactly (AreExact). No operation then overflows or underflows: for coordinates of magnitude c and
// slopes of at most 2^24, all sums and quotients on the way to a foot stay below 2^72, the foot has
// a magnitude of at most 3c, rounding included, and every quotient or product is 0 or at least
// 2^-100.
class NearestDistance {
  public:
    // The first edge begins at `start`. Distances of `squared` or more need not be found.
    NearestDistance(const Point& target, const Point& start, uint64_t squared)
        : mLat(Broadcast(target.lat)),
          mLon(Broadcast(target.lon)),
          mFloatLat(ToFloats(mLat)),
          mFloatLon(ToFloats(mLon)),
          mLimit(LimitOf(static_cast<float>(squared))) {
        Check(mLat, mLon);
        Check(Broadcast(start.lat), Broadcast(start.lon));
    }

    // Lowers the limit to the smallest distance so far, so that Add can skip more edges. It waits
    // for the results of the last edges, so it pays only once in a while.
    void Narrow() {
        const auto smallest = static_cast<float>(std::min(mSmallest[0], mSmallest[1]));
        mLimit = Min(mLimit, LimitOf(smallest));
    }

    void Add(const FourEdges& edges) {
        Check(edges.lat, edges.lon);
        // Skip edges whose lower bound exceeds the limit. The bound is the distance to the edge's
        // bounding box, less one unit along each axis. The distance is measured to the edge's end
        // or to a foot that truncates into the bounding box, so along each axis the foot is less
        // than one unit nearer than the box. The difference between foot and target is then rounded
        // to a float and truncated. Both steps are monotonic and leave whole numbers unchanged, so
        // the measured distance is not below the bound.
        const Float32x4 awayLat = Away(edges.lat, edges.fromLat, mLat);
        const Float32x4 awayLon = Away(edges.lon, edges.fromLon, mLon);
        if (!AnyOf(awayLat * awayLat + 4.0f * (awayLon * awayLon) <= mLimit)) return;
        if (!AreExact()) return;

        const Int32x4 isVertical = edges.lon == edges.fromLon;
        const Float32x4 lat = ToFloats(edges.lat);
        const Float32x4 lon = ToFloats(edges.lon);
        const Float32x4 run = ToFloats(edges.lon - edges.fromLon + isVertical);  // Never 0.
        const Float32x4 slope = ToFloats(edges.lat - edges.fromLat) / run;
        const Float32x4 intercept = lat - slope * lon;
        const Float32x4 s = mFloatLon + slope * mFloatLat;
        const Float32x4 m = 1.0f + slope * slope;
        // edge.h has a case of its own for horizontal edges; here the slope 0 gives the same foot.
        const Float32x4 footLat = Select(isVertical, mFloatLat, (intercept + slope * s) / m);
        const Float32x4 footLon = Select(isVertical, lon, (s - slope * intercept) / m);
        const Int32x4 isOutside = OutsideMask(Truncate(footLat), edges.lat, edges.fromLat) |
                                  OutsideMask(Truncate(footLon), edges.lon, edges.fromLon);
        const Int32x4 deltaLat = Select(isOutside, edges.lat - mLat, Truncate(footLat - mFloatLat));
        const Int32x4 deltaLon = Select(isOutside, edges.lon - mLon, Truncate(footLon - mFloatLon));
        const Float64x2 first = SquaredDistances(LowDoubles(deltaLat), LowDoubles(deltaLon));
        const Float64x2 last = SquaredDistances(HighDoubles(deltaLat), HighDoubles(deltaLon));
        mSmallest = Min(mSmallest, Min(first, last));
    }

    // Whether floats hold all coordinates so far exactly. If not, Smallest is meaningless.
    bool AreExact() const {
        constexpr uint32_t kRest = ~(2u * kExactLimit - 1u);
        return !AnyOf(AsSigned(mCoordinateBits & Uint32x4{kRest, kRest, kRest, kRest}));
    }

    // The smallest squared distance, or `squared` if no distance is smaller. Requires AreExact.
    uint64_t Smallest(uint64_t squared) const {
        const double smallest = std::min(mSmallest[0], mSmallest[1]);
        return std::min(squared, static_cast<uint64_t>(smallest));
    }

  private:
    // A coordinate is in [-limit, limit) if coordinate + limit has no bit set from 2 * limit up.
    void Check(Int32x4 lat, Int32x4 lon) {
        constexpr uint32_t kAdded = kExactLimit;
        constexpr Uint32x4 kLimits = {kAdded, kAdded, kAdded, kAdded};
        mCoordinateBits |= (AsUnsigned(lat) + kLimits) | (AsUnsigned(lon) + kLimits);
    }

    // `squared` plus a margin for the rounding of the bound: three products and one sum.
    static Float32x4 LimitOf(float squared) { return Broadcast(squared * (1.0f + 0x1p-20f)); }

    // Distance along one axis from the target to the interval from a to b, less one unit; at least
    // 0.
    static Float32x4 Away(Int32x4 a, Int32x4 b, Int32x4 target) {
        const Float32x4 fromA = ToFloats(AsSigned(AsUnsigned(a) - AsUnsigned(target)));
        const Float32x4 fromB = ToFloats(AsSigned(AsUnsigned(b) - AsUnsigned(target)));
        const Float32x4 away = Max(Min(fromA, fromB), Min(-fromA, -fromB));
        return Max(away - 1.0f, Float32x4{0.0f, 0.0f, 0.0f, 0.0f});
    }

    // Mask of the lanes whose value is not between a and b.
    static Int32x4 OutsideMask(Int32x4 value, Int32x4 a, Int32x4 b) {
        return ((value > a) & (value > b)) | ((value < a) & (value < b));
    }

    // Squared distances in units of latitude. Doubles hold them exactly.
    static Float64x2 SquaredDistances(Float64x2 lat, Float64x2 lon) {
        return lat * lat + 4.0 * (lon * lon);
    }
    const Int32x4 mLat;
    const Int32x4 mLon;
    const Float32x4 mFloatLat;
    const Float32x4 mFloatLon;
    Float32x4 mLimit;
    Uint32x4 mCoordinateBits = {0, 0, 0, 0};
    Float64x2 mSmallest = {0x1p63, 0x1p63};
};

}  // namespace zonedetect
