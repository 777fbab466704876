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
    Ints fromLat;
    Ints fromLon;
    Ints lat;  // The end points.
    Ints lon;
};

// Adds up the quarter turns of edges around a target: four times the winding number of a ring.
class TurnCounter {
  public:
    explicit TurnCounter(const Point& target) : mLat(AllOf(target.lat)), mLon(AllOf(target.lon)) {}

    // Adds the quarter turns of the lanes whose mask `counted` is -1. All four lanes are checked
    // for HasAmbiguousEdge.
    void Add(const FourEdges& edges, Ints counted) {
        const Ints change =
                QuadrantsOf(edges.lat, edges.lon) - QuadrantsOf(edges.fromLat, edges.fromLon);
        const Ints turns = AsInts(AsUnits(change) << 30) >> 30;  // Modulo 4: -2 to 1.
        mQuarterTurns += turns & counted;
        mOthers |= (turns == AllOf(-2)) | ((edges.lat == mLat) & (edges.lon == mLon));
    }

    // Whether the quadrants alone do not decide an edge added: it leads to the opposite quadrant,
    // so the side on which it passes the target is open, or it ends in the target. The count is
    // then meaningless.
    bool HasAmbiguousEdge() const { return AnyOf(mOthers); }
    int32_t QuarterTurns() const {
        return mQuarterTurns[0] + mQuarterTurns[1] + mQuarterTurns[2] + mQuarterTurns[3];
    }

  private:
    Ints QuadrantsOf(Ints lat, Ints lon) const {
        const Ints isSouth = lat < mLat;
        const Ints isWest = lon < mLon;
        return (isSouth & AllOf(2)) | ((isSouth ^ isWest) & AllOf(1));
    }

    const Ints mLat;
    const Ints mLon;
    Ints mQuarterTurns = AllOf(0);
    Ints mOthers = AllOf(0);
};

// Floats hold coordinates in [-kExactLimit, kExactLimit) and their differences exactly.
constexpr int32_t kExactLimit = 1 << 23;

// Finds the smallest squared distance from edges to a target while floats hold all coordinates
// exactly (AreExact). No operation then overflows or underflows: for coordinates of magnitude c and
// slopes of at most 2^24, all sums and quotients on the way to a foot stay below 2^72, the foot has
// a magnitude of at most 3c, rounding included, and every quotient or product is 0 or at least
// 2^-100.
class DistanceKeeper {
  public:
    // The first edge begins at `start`. Distances of `squared` or more need not be found.
    DistanceKeeper(const Point& target, const Point& start, uint64_t squared)
        : mLat(AllOf(target.lat)),
          mLon(AllOf(target.lon)),
          mFloatLat(ToFloats(mLat)),
          mFloatLon(ToFloats(mLon)),
          mLimit(LimitOf(static_cast<float>(squared))) {
        Check(mLat, mLon);
        Check(AllOf(start.lat), AllOf(start.lon));
    }

    // Lowers the limit to the smallest distance so far, so that Add can skip more edges. It waits
    // for the results of the last edges, so it pays only once in a while.
    void Narrow() {
        const auto smallest = static_cast<float>(std::min(mSmallest[0], mSmallest[1]));
        mLimit = Smaller(mLimit, LimitOf(smallest));
    }

    void Add(const FourEdges& edges) {
        Check(edges.lat, edges.lon);
        // Skip edges whose lower bound exceeds the limit. The bound is the distance to the edge's
        // bounding box, less one unit in each direction. It holds because the distance is taken to
        // the edge's end or to a foot that truncates into the box: such a foot is less than one
        // unit nearer than the box. Its difference to the target is then rounded to a float and
        // truncated; both are monotonic and keep whole numbers, so it stays above the bound.
        const Floats awayLat = Away(edges.lat, edges.fromLat, mLat);
        const Floats awayLon = Away(edges.lon, edges.fromLon, mLon);
        if (!AnyOf(awayLat * awayLat + 4.0f * (awayLon * awayLon) <= mLimit)) return;
        if (!AreExact()) return;

        const Ints isVertical = edges.lon == edges.fromLon;
        const Floats lat = ToFloats(edges.lat);
        const Floats lon = ToFloats(edges.lon);
        const Floats run = ToFloats(edges.lon - edges.fromLon + isVertical);  // Never 0.
        const Floats slope = ToFloats(edges.lat - edges.fromLat) / run;
        const Floats intercept = lat - slope * lon;
        const Floats s = mFloatLon + slope * mFloatLat;
        const Floats m = 1.0f + slope * slope;
        // edge.h has a case of its own for horizontal edges; here the slope 0 gives the same foot.
        const Floats footLat = Select(isVertical, mFloatLat, (intercept + slope * s) / m);
        const Floats footLon = Select(isVertical, lon, (s - slope * intercept) / m);
        const Ints isOutside = LieOutside(Truncate(footLat), edges.lat, edges.fromLat) |
                               LieOutside(Truncate(footLon), edges.lon, edges.fromLon);
        const Ints deltaLat = Select(isOutside, edges.lat - mLat, Truncate(footLat - mFloatLat));
        const Ints deltaLon = Select(isOutside, edges.lon - mLon, Truncate(footLon - mFloatLon));
        const TwoDoubles first = SquaresOf(FirstTwo(deltaLat), FirstTwo(deltaLon));
        const TwoDoubles last = SquaresOf(LastTwo(deltaLat), LastTwo(deltaLon));
        mSmallest = Smaller(mSmallest, Smaller(first, last));
    }

    // Whether floats hold all coordinates so far exactly. If not, Smallest is meaningless.
    bool AreExact() const {
        constexpr uint32_t kRest = ~(2u * kExactLimit - 1u);
        return !AnyOf(AsInts(mExactness & Units{kRest, kRest, kRest, kRest}));
    }

    // The smallest squared distance, or `squared` if no distance is smaller. Requires AreExact.
    uint64_t Smallest(uint64_t squared) const {
        const double smallest = std::min(mSmallest[0], mSmallest[1]);
        return std::min(squared, static_cast<uint64_t>(smallest));
    }

  private:
    // A coordinate is in [-limit, limit) if coordinate + limit has no bit set from 2 * limit up.
    void Check(Ints lat, Ints lon) {
        constexpr uint32_t kAdded = kExactLimit;
        constexpr Units kLimits = {kAdded, kAdded, kAdded, kAdded};
        mExactness |= (AsUnits(lat) + kLimits) | (AsUnits(lon) + kLimits);
    }

    // `squared` plus a margin for the rounding of the bound: three products and one sum.
    static Floats LimitOf(float squared) { return AllOf(squared * (1.0f + 0x1p-20f)); }

    // Distance along one axis from the target to the interval from a to b, less one unit; at least
    // 0.
    static Floats Away(Ints a, Ints b, Ints target) {
        const Floats fromA = ToFloats(AsInts(AsUnits(a) - AsUnits(target)));
        const Floats fromB = ToFloats(AsInts(AsUnits(b) - AsUnits(target)));
        const Floats away = Larger(Smaller(fromA, fromB), Smaller(-fromA, -fromB));
        return Larger(away - 1.0f, Floats{0.0f, 0.0f, 0.0f, 0.0f});
    }

    // Mask of the lanes whose value is not between a and b.
    static Ints LieOutside(Ints value, Ints a, Ints b) {
        return ((value > a) & (value > b)) | ((value < a) & (value < b));
    }

    // Squared distances in units of latitude. Doubles hold them exactly.
    static TwoDoubles SquaresOf(TwoDoubles lat, TwoDoubles lon) {
        return lat * lat + 4.0 * (lon * lon);
    }
    template <typename Lanes>
    static Lanes Smaller(Lanes a, Lanes b) {
        return a < b ? a : b;
    }
    template <typename Lanes>
    static Lanes Larger(Lanes a, Lanes b) {
        return a > b ? a : b;
    }

    const Ints mLat;
    const Ints mLon;
    const Floats mFloatLat;
    const Floats mFloatLon;
    Floats mLimit;
    Units mExactness = {0, 0, 0, 0};
    TwoDoubles mSmallest = {0x1p63, 0x1p63};
};

}  // namespace zonedetect
