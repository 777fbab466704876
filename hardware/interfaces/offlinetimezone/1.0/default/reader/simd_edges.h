// What edge.h says of one edge, of four at a time and to the same bit.
#pragma once

#include <algorithm>
#include <cstdint>

#include "simd.h"
#include "units.h"

namespace zonedetect {

struct FourEdges {
    Ints fromLat;
    Ints fromLon;
    Ints lat;  // Where they lead to.
    Ints lon;
};

// Counts the quarter turns of edges around a target.
class TurnCounter {
  public:
    explicit TurnCounter(const Point& target) : mLat(AllOf(target.lat)), mLon(AllOf(target.lon)) {}

    // Adds the edges of those lanes that are -1 in `counted`.
    void Add(const FourEdges& edges, Ints counted) {
        const Ints change =
                QuadrantsOf(edges.lat, edges.lon) - QuadrantsOf(edges.fromLat, edges.fromLon);
        const Ints turns = AsInts(AsUnits(change) << 30) >> 30;  // Modulo 4: -2 to 1.
        mQuarterTurns += turns & counted;
        mOthers |= (turns == AllOf(-2)) | ((edges.lat == mLat) & (edges.lon == mLon));
    }

    // Whether an edge was among them that turns cannot be counted for by quadrants alone: one that
    // passes the target, or ends in it.
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

// Floats hold coordinates from -kExactLimit to below kExactLimit, and their differences, exactly.
constexpr int32_t kExactLimit = 1 << 23;

// Keeps the smallest squared distance of edges to a target, as long as floats hold all coordinates
// exactly. Then nothing here is beyond what its type holds: with coordinates c and slopes of at
// most 2^24, a foot comes from sums and quotients below 2^72, and lies within 3c, rounding
// included; no quotient or product is as small as 2^-100 but 0.
class DistanceKeeper {
  public:
    // The edges to come begin at `start`; a distance of `squared` or more is not looked for.
    DistanceKeeper(const Point& target, const Point& start, uint64_t squared)
        : mLat(AllOf(target.lat)),
          mLon(AllOf(target.lon)),
          mFloatLat(ToFloats(mLat)),
          mFloatLon(ToFloats(mLon)),
          mLimit(LimitOf(static_cast<float>(squared))) {
        Check(mLat, mLon);
        Check(AllOf(start.lat), AllOf(start.lon));
    }

    // Looks from now on only for what is smaller than the smallest so far. Now and then pays: it
    // waits for the last edges.
    void Narrow() {
        const auto smallest = static_cast<float>(std::min(mSmallest[0], mSmallest[1]));
        mLimit = Smaller(mLimit, LimitOf(smallest));
    }

    void Add(const FourEdges& edges) {
        Check(edges.lat, edges.lon);
        // A lower bound of each edge's squared distance. The distance is taken to the edge's end,
        // or to a foot that truncates into the edge's box, which in each direction is less than one
        // unit nearer than the box; its difference to the target is rounded to a float and
        // truncated, and both leave whole numbers alone.
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
        // A horizontal edge needs no case of its own: its slope of 0 gives the same.
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

    // False where a coordinate was not: the smallest distance says nothing then.
    bool AreExact() const {
        constexpr uint32_t kRest = ~(2u * kExactLimit - 1u);
        return !AnyOf(AsInts(mExactness & Units{kRest, kRest, kRest, kRest}));
    }

    // The smallest one, or `squared` where none is smaller.
    uint64_t Smallest(uint64_t squared) const {
        const double smallest = std::min(mSmallest[0], mSmallest[1]);
        return std::min(squared, static_cast<uint64_t>(smallest));
    }

  private:
    // Exact coordinates plus the limit have no bit at twice the limit or above.
    void Check(Ints lat, Ints lon) {
        constexpr uint32_t kAdded = kExactLimit;
        constexpr Units kLimits = {kAdded, kAdded, kAdded, kAdded};
        mExactness |= (AsUnits(lat) + kLimits) | (AsUnits(lon) + kLimits);
    }

    // What a bound's three products and sum may come to where it is as much as this, and more.
    static Floats LimitOf(float squared) { return AllOf(squared * (1.0f + 0x1p-20f)); }

    // The distance of edges' boxes from a coordinate, less one unit; 0 where they meet it.
    static Floats Away(Ints a, Ints b, Ints target) {
        const Floats fromA = ToFloats(AsInts(AsUnits(a) - AsUnits(target)));
        const Floats fromB = ToFloats(AsInts(AsUnits(b) - AsUnits(target)));
        const Floats away = Larger(Smaller(fromA, fromB), Smaller(-fromA, -fromB));
        return Larger(away - 1.0f, Floats{0.0f, 0.0f, 0.0f, 0.0f});
    }

    static Ints LieOutside(Ints value, Ints a, Ints b) {
        return ((value > a) & (value > b)) | ((value < a) & (value < b));
    }

    // Doubles hold them exactly.
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
