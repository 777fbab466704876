// The borders in a leaf of the tree that are near an origin.
//
// Sources that include this header include exact_floats.h before all others.
#pragma once

#include <reader/run_tree.h>

#include "border_edge.h"
#include "database.h"
#include "tile_edges.h"

namespace offlinetz {

// Measures edges in a plane, four at a time in single precision, to find those that have a point of
// an area near an origin.
//
// Let lat and lon be the differences of a point of the area to the origin, at most m in radians,
// and c the product of the cosine at the origin with the least one in the area. As sin(x) >= x -
// x^3 / 6, its haversine is at least (1 - m^2 / 12) * (lat^2 + c * lon^2) / 4. In the plane of lat
// and sqrt(c) * lon, the edge is at least as near as its points in the area.
class PlaneDistances {
  public:
    PlaneDistances(const SphereUnits& units, const Origin& origin, const BorderArea& area);

    // The greatest value of Measure for an edge that has a point of the area within a haversine.
    float ReachOf(double haversine) const;

    // Sets squared[i] to the squared distance of edge i in units of latitude: infinity if it does
    // not touch the area, 0 if it is too far away to be measured. `squared` has EdgeBlock::kRoom
    // values.
    void Measure(const EdgeBlock& block, float* squared) const;

  private:
    zonedetect::Box mBox;
    double mUnit;     // Of latitude, in radians.
    double mStretch;  // 1 / (1 - m^2 / 12).
    int32_t mLat;     // The origin: whole units, and the rest.
    int32_t mLon;
    float mRestLat;
    float mRestLon;
    float mScale;  // Of longitude to latitude.
};

// Measures the borders of runs on the sphere.
class NearEdges {
  public:
    // Borrows the arguments. What is read is charged to the budget.
    NearEdges(const offlinetz_database& database, const Origin& origin,
              zonedetect::ReadBudget* budget)
        : mDatabase(database), mUnits(database.units), mOrigin(origin), mBudget(*budget) {}

    // Calls take(zone, edge, part, nearest) for borders of the rings of a run, whose first step is
    // given: for all that have a point in `area` no further away than limit(zone), a haversine, and
    // for others. `nearest` is the nearest point of the part of the edge in the world. Edges for
    // which accept(edge) is false are left out, and rings whose limit is negative when they begin.
    // Returns false if a ring cannot be decoded, the budget is spent, or take returns false.
    template <typename Limit, typename Accept, typename Take>
    bool Visit(const ZoneIndex::Step* first, const BorderArea& area, const Limit& limit,
               const Accept& accept, const Take& take) {
        const PlaneDistances plane(mUnits, mOrigin, area);
        return ForEachRing(mDatabase.index, first, [&](const ZoneIndex::Step& step) {
            const uint32_t zone = step.Zone();
            if (limit(zone) < 0.0) {
                mBudget.Spend(kRingBytes);
                return !mBudget.IsSpent();
            }
            bool goesOn = true;
            return ForEachBlock(*mDatabase.reader, step.Place(), &mBudget,
                                [&](const EdgeBlock& block) {
                                    goesOn = goesOn && VisitBlock(block, area, plane, zone, limit,
                                                                  accept, take);
                                }) &&
                   goesOn;
        });
    }

    // The nearest point of a part of an edge; if it is further away than `limit`, any haversine
    // above that.
    Origin::OnEdge NearestOn(const BorderEdge& edge, const WorldPart& part, double limit) {
        const Origin::OnEdge nearest =
                mOrigin.NearestOnEdge(mUnits.PlaceOf(edge.At(0.0)), mUnits.PlaceOf(edge.At(1.0)),
                                      part.first, part.last, limit);
        mBudget.Spend(kLookBytes * nearest.looks);
        return nearest;
    }

  private:
    // The edge that seems nearest comes first, so that few others need a closer look.
    template <typename Limit, typename Accept, typename Take>
    bool VisitBlock(const EdgeBlock& block, const BorderArea& area, const PlaneDistances& plane,
                    uint32_t zone, const Limit& limit, const Accept& accept, const Take& take) {
        float squared[EdgeBlock::kRoom];
        plane.Measure(block, squared);
        const auto first =
                static_cast<size_t>(std::min_element(squared, squared + block.edges) - squared);
        float reach = plane.ReachOf(limit(zone));
        if (block.edges == 0 || squared[first] > reach) return true;
        if (!VisitEdge(block, first, area, zone, limit, accept, take)) return false;
        reach = plane.ReachOf(limit(zone));
        for (size_t i = 0; i < block.edges; ++i) {
            if (squared[i] > reach || i == first) continue;
            if (!VisitEdge(block, i, area, zone, limit, accept, take)) return false;
            reach = plane.ReachOf(limit(zone));
        }
        return true;
    }

    template <typename Limit, typename Accept, typename Take>
    bool VisitEdge(const EdgeBlock& block, size_t i, const BorderArea& area, uint32_t zone,
                   const Limit& limit, const Accept& accept, const Take& take) {
        if (!area.Touches(block.At(i), block.At(i + 1))) return true;
        const BorderEdge edge(block.At(i), block.At(i + 1));
        if (!accept(edge)) return true;
        const WorldPart part(edge, mUnits.Scale());
        if (part.IsEmpty()) return true;
        const Origin::OnEdge nearest = NearestOn(edge, part, limit(zone));
        return !mBudget.IsSpent() && take(zone, edge, part, nearest);
    }

    // Work counts as the reading of so many bytes: of a ring that is left out, and of a place on an
    // edge.
    static constexpr int64_t kRingBytes = 8;
    static constexpr int64_t kLookBytes = 32;

    const offlinetz_database& mDatabase;
    const SphereUnits& mUnits;
    const Origin& mOrigin;
    zonedetect::ReadBudget& mBudget;
};

}  // namespace offlinetz
