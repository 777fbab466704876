// The distance from a point to the edges of rings.
//
// Sources that include this header include exact_floats.h before all others.
#pragma once

#include <reader/ring_walk.h>

#include <algorithm>
#include <limits>

namespace offlinetz {

// A measure for WalkRing (reader/ring_walk.h): the smallest squared distance from a point to an
// edge, in units of latitude, a unit of longitude counted as two.
class SegmentDistance {
  public:
    static constexpr bool kMeasures = true;

    // A distance of 4 units or more is at most so many units too large or too small.
    //
    // Four edges at a time are measured in single precision, from the point. Let u = 2^-24 be the
    // error of a rounding and M = 2^20.2 units the greatest length of a vector, from the point to a
    // vertex or along an edge; whole units are exact. `share` may be off by 3 u M divided by the
    // length of the edge, from the vector to the vertex, the products and the sum, and by 4 u from
    // the rest. That moves the nearest point along the edge, by at most 7 u M = 0.5 units, and
    // lengthens the distance by less than 0.04. The vector to the vertex, the product with the edge
    // and the difference move it across the edge, by at most 3 u M = 0.22 units.
    static constexpr double kError = 0.5;

    // The point in units, before it is truncated to the target of the walk.
    SegmentDistance(double lat, double lon) : mLat(lat), mLon(lon) {}

    double Squared() const { return mSquared; }

    // Measures four edges at a time.
    class Lanes {
      public:
        Lanes(const zonedetect::Point& target, const zonedetect::Point& start,
              const SegmentDistance& measure)
            : mLat(zonedetect::Broadcast(target.lat)),
              mLon(zonedetect::Broadcast(target.lon)),
              mRestLat(zonedetect::Broadcast(
                      static_cast<float>(measure.mLat - static_cast<double>(target.lat)))),
              mRestLon(zonedetect::Broadcast(
                      static_cast<float>(2.0 * (measure.mLon - static_cast<double>(target.lon))))) {
            Check(zonedetect::AsUnsigned(zonedetect::Broadcast(start.lat)) -
                          zonedetect::AsUnsigned(mLat),
                  zonedetect::AsUnsigned(zonedetect::Broadcast(start.lon)) -
                          zonedetect::AsUnsigned(mLon));
        }

        void Add(const zonedetect::FourEdges& edges) {
            using zonedetect::AsSigned;
            using zonedetect::AsUnsigned;
            using zonedetect::ToFloats;
            const Uints fromTargetLat = AsUnsigned(edges.lat) - AsUnsigned(mLat);
            const Uints fromTargetLon = AsUnsigned(edges.lon) - AsUnsigned(mLon);
            Check(fromTargetLat, fromTargetLon);
            const Floats lat = ToFloats(AsSigned(fromTargetLat)) - mRestLat;
            const Floats lon = ToFloats(AsSigned(fromTargetLon << 1)) - mRestLon;
            const Floats edgeLat =
                    ToFloats(AsSigned(AsUnsigned(edges.lat) - AsUnsigned(edges.fromLat)));
            const Floats edgeLon =
                    ToFloats(AsSigned((AsUnsigned(edges.lon) - AsUnsigned(edges.fromLon)) << 1));
            mSmallest = zonedetect::Min(mSmallest, SquaredDistances(lat, lon, edgeLat, edgeLon));
        }
        void Narrow() {}  // Measuring all edges is faster than choosing the near ones.

        // Whether all vertices so far are near enough to the target for kError.
        bool AreExact() const {
            constexpr uint32_t kRest = ~(2u * kReach - 1u);
            return !zonedetect::AnyOf(
                    zonedetect::AsSigned(mReached & Uints{kRest, kRest, kRest, kRest}));
        }

        double Smallest() const {
            return static_cast<double>(std::min(std::min(mSmallest[0], mSmallest[1]),
                                                std::min(mSmallest[2], mSmallest[3])));
        }

      private:
        using Floats = zonedetect::Float32x4;
        using Uints = zonedetect::Uint32x4;
        // Differences of units in [-kReach, kReach) are not too great.
        static constexpr uint32_t kReach = 1u << 18;

        void Check(Uints lat, Uints lon) {
            constexpr Uints kReaches = {kReach, kReach, kReach, kReach};
            mReached |= (lat + kReaches) | (lon + kReaches);
        }

        const zonedetect::Int32x4 mLat;
        const zonedetect::Int32x4 mLon;
        const Floats mRestLat;
        const Floats mRestLon;
        Uints mReached = {0, 0, 0, 0};
        Floats mSmallest = zonedetect::Broadcast(std::numeric_limits<float>::infinity());
    };

    void Take(const Lanes& lanes) { mSquared = std::min(mSquared, lanes.Smallest()); }

    // Measures one edge, in double precision.
    void Add(const zonedetect::Point& from, const zonedetect::Point& to,
             const zonedetect::Point& /*target*/) {
        const auto both = [](double value) { return zonedetect::Float64x2{value, value}; };
        const double squared = SquaredDistances(
                both(static_cast<double>(to.lat) - mLat),
                both(2.0 * (static_cast<double>(to.lon) - mLon)),
                both(static_cast<double>(to.lat) - static_cast<double>(from.lat)),
                both(2.0 * (static_cast<double>(to.lon) - static_cast<double>(from.lon))))[0];
        mSquared = std::min(mSquared, squared);
    }

  private:
    // The squared distances from the origin to edges with these ends: to the point of the edge's
    // line that is nearest, but not beyond an end.
    template <typename Values>
    static Values SquaredDistances(Values lat, Values lon, Values edgeLat, Values edgeLon) {
        const Values none = Values{};
        const Values whole = Values{} + 1;
        // The share of the edge between its end and the nearest point. The squared length of an
        // edge is 0 or at least 1.
        const Values share = (lat * edgeLat + lon * edgeLon) /
                             zonedetect::Max(edgeLat * edgeLat + edgeLon * edgeLon, whole);
        const Values inEdge = zonedetect::Min(zonedetect::Max(share, none), whole);
        const Values nearLat = lat - inEdge * edgeLat;
        const Values nearLon = lon - inEdge * edgeLon;
        return nearLat * nearLat + nearLon * nearLon;
    }

    const double mLat;
    const double mLon;
    double mSquared = std::numeric_limits<double>::infinity();
};

}  // namespace offlinetz
