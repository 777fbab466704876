#include <reader/exact_floats.h>  // Must be the first include.

#include "exact_answers.h"

#include <reader/nautical.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tile_edges.h"

namespace offlinetz {

using zonedetect::Point;

namespace {

double LengthOf(const BorderEdge& edge) {
    return std::max(
            std::fabs(static_cast<double>(edge.to.lat) - static_cast<double>(edge.from.lat)),
            std::fabs(static_cast<double>(edge.to.lon) - static_cast<double>(edge.from.lon)));
}

}  // namespace

void ZoneSet::Add(int32_t id) {
    if (count == kMost) return;
    int32_t* place = std::lower_bound(ids, ids + count, id);
    if (place < ids + count && *place == id) return;
    std::copy_backward(place, ids + count, ids + count + 1);
    *place = id;
    ++count;
}

bool operator==(const ZoneSet& a, const ZoneSet& b) {
    return std::equal(a.ids, a.ids + a.count, b.ids, b.ids + b.count);
}

// The winding numbers of the zones on one side of a place, and how much more they are on the other.
struct ExactAnswers::Windings {
    struct Zone {
        uint32_t zone;
        int64_t winding;
        int64_t across;
    };
    Zone zones[ZoneSet::kMost];
    size_t count = 0;

    // cppcheck-suppress uninitMemberVar ; the first `count` entries are filled.
    Windings() {}  // NOLINT(modernize-use-equals-default): a default would clear the array.

    void Add(uint32_t zone, bool isAcross, int64_t turns) {
        Zone* entry = std::find_if(zones, zones + count,
                                   [&](const Zone& other) { return other.zone == zone; });
        if (entry == zones + count) {
            if (count == ZoneSet::kMost) return;
            zones[count++] = {zone, 0, 0};
        }
        (isAcross ? entry->across : entry->winding) += turns;
    }

    // Counts the edges of a block that cross the ray from `place` to the east, or to the north if
    // `isNorthward`: 1 for each that leads to the left of the ray, -1 to the right. The edges with
    // the ends of `edge` count for the other side. `edge` may be null.
    void Count(uint32_t zone, const EdgeBlock& block, const UnitPlace& place,
               const BorderEdge* edge, bool isNorthward) {
        // Along the ray and across it.
        const int32_t* const along = isNorthward ? block.lat : block.lon;
        const int32_t* const across = isNorthward ? block.lon : block.lat;
        const double at = isNorthward ? place.lat : place.lon;
        const double level = isNorthward ? place.lon : place.lat;
        auto whole = static_cast<int32_t>(level);
        if (static_cast<double>(whole) > level) --whole;
        for (size_t i = 0; i < block.edges; ++i) {
            if ((across[i] <= whole) == (across[i + 1] <= whole)) continue;
            const auto from = static_cast<double>(across[i]);
            const auto to = static_cast<double>(across[i + 1]);
            const int64_t turns = (to > from) != isNorthward ? 1 : -1;
            if (edge != nullptr) {
                const BorderEdge own(block.At(i), block.At(i + 1));
                if (IsSame(own.from, edge->from) && IsSame(own.to, edge->to)) {
                    Add(zone, true, turns);
                    continue;
                }
            }
            const auto start = static_cast<double>(along[i]);
            const double by = static_cast<double>(along[i + 1]) - start;
            if (start + by * ((level - from) / (to - from)) > at) Add(zone, false, turns);
        }
    }
};

template <typename Visit>
bool ExactAnswers::ForEachBlockAt(const UnitPlace& place, const Visit& visit) {
    const auto nearest = [](double value) {
        return static_cast<int32_t>(value + (value < 0.0 ? -0.5 : 0.5));
    };
    const Point point = {nearest(place.lat), nearest(place.lon)};
    const ZoneIndex& index = mDatabase.index;
    const zonedetect::RunTree::Runs runs = index.RunsAt(point);
    for (uint32_t i = 0; i < runs.count; ++i) {
        const ZoneIndex::Step* const first = index.StepsFrom(runs.At(i));
        if (first->KindOf() == ZoneIndex::Kind::kBox && !index.BoxOf(*first).box.Contains(point)) {
            constexpr int64_t kBoxBytes =
                    8;  // A comparison counts as the reading of so many bytes.
            mBudget.Spend(kBoxBytes);
            if (mBudget.IsSpent()) return false;
            continue;
        }
        const bool isWhole = ForEachRing(index, first, [&](const ZoneIndex::Step& step) {
            return ForEachBlock(*mDatabase.reader, step.Place(), &mBudget,
                                [&](const EdgeBlock& block) { visit(step.Zone(), block); });
        });
        if (!isWhole) return false;
    }
    return true;
}

void ExactAnswers::AnswerOf(const Windings& windings, bool isAcross, double lon,
                            ZoneSet* answer) const {
    answer->count = 0;
    bool isSea = true;
    for (const Windings::Zone* z = windings.zones; z < windings.zones + windings.count; ++z) {
        if (z->winding + (isAcross ? z->across : 0) == 0) continue;
        isSea = false;
        if (z->zone < mDatabase.index.Unreadable()) answer->Add(static_cast<int32_t>(z->zone));
    }
    if (isSea && mDatabase.isNautical) {
        const int band = zonedetect::NauticalBandAt(static_cast<int32_t>(lon));
        answer->Add(mDatabase.names.NauticalId(band));
    }
}

bool ExactAnswers::At(const UnitPlace& place, ZoneSet* answer) {
    Windings windings;
    if (!ForEachBlockAt(place, [&](uint32_t zone, const EdgeBlock& block) {
            windings.Count(zone, block, place, nullptr, false);
        })) {
        return false;
    }
    AnswerOf(windings, false, place.lon, answer);
    return true;
}

bool ExactAnswers::Beside(const BorderEdge& edge, double share, ZoneSet answers[2]) {
    // Not too near to an end, where other borders are.
    const double least = std::min(0.5, 0.25 / LengthOf(edge));
    const UnitPlace place = edge.At(std::clamp(share, least, 1.0 - least));
    Windings windings;
    if (!ForEachBlockAt(place, [&](uint32_t zone, const EdgeBlock& block) {
            windings.Count(zone, block, place, &edge, edge.IsParallel());
        })) {
        return false;
    }
    const double beside = edge.IsParallel() ? 0.0 : kBeside;
    AnswerOf(windings, false, place.lon + beside, &answers[0]);
    AnswerOf(windings, true, place.lon - beside, &answers[1]);
    return true;
}

// The edges that meet in a vertex.
struct ExactAnswers::Arms {
    struct Arm {
        Point end;
        uint32_t zone;
        int64_t turns;  // Edges of the zone to the end less those from it; 0: no border.
    };
    Arm arms[128];  // More are left out; honest vertices have a few.
    size_t count = 0;

    // cppcheck-suppress uninitMemberVar ; the first `count` arms are filled.
    Arms() {}  // NOLINT(modernize-use-equals-default): a default would clear the array.

    void Add(const Point& end, uint32_t zone, int64_t turns) {
        Arm* arm = std::find_if(arms, arms + count, [&](const Arm& known) {
            return IsSame(known.end, end) && known.zone == zone;
        });
        if (arm == std::end(arms)) return;
        if (arm == arms + count) arms[count++] = {end, zone, 0};
        arm->turns += turns;
    }

    void Remove(const Point& end) {
        for (Arm* arm = arms; arm < arms + count; ++arm) {
            if (IsSame(arm->end, end)) arm->turns = 0;
        }
    }

    // The arm that is nearest in direction to the way on; null if there is none. `at` is the
    // vertex.
    const Arm* Nearest(const SphereUnits& units, const Point& at,
                       const Origin::Direction& onward) const {
        const Arm* nearest = nullptr;
        double most = 0.0;
        const auto lat = static_cast<double>(at.lat);
        const double cosine = SineAndCosineOf(units.Lat(lat)).cosine;
        for (const Arm* arm = arms; arm < arms + count; ++arm) {
            const double north = units.Lat(static_cast<double>(arm->end.lat) - lat);
            const double east = cosine * units.Lon(static_cast<double>(arm->end.lon) -
                                                   static_cast<double>(at.lon));
            const double length = std::sqrt(north * north + east * east);
            if (arm->turns == 0 || !(length > 0.0)) continue;
            const double along = (north * onward.north + east * onward.east) / length;
            if (nearest == nullptr || along > most ||
                (along == most && IsBefore(arm->end, nearest->end))) {
                nearest = arm;
                most = along;
            }
        }
        return nearest;
    }
};

bool ExactAnswers::FindArms(const Point& vertex, Arms* arms) {
    const auto add = [&](const Point& end, uint32_t zone, int64_t turns) {
        if (!WorldPart(BorderEdge(vertex, end), mDatabase.units.Scale()).IsEmpty())
            arms->Add(end, zone, turns);
    };
    const UnitPlace place = {static_cast<double>(vertex.lat), static_cast<double>(vertex.lon)};
    return ForEachBlockAt(place, [&](uint32_t zone, const EdgeBlock& block) {
        for (size_t i = 0; i < block.edges; ++i) {
            if (IsSame(block.At(i), vertex)) add(block.At(i + 1), zone, 1);
            if (IsSame(block.At(i + 1), vertex)) add(block.At(i), zone, -1);
        }
    });
}

bool ExactAnswers::Beyond(const Origin& origin, const ZoneSet& own, const BorderEdge& edge,
                          double share, ZoneSet* beyond, bool* isBorder) {
    const Origin::Direction onward = origin.OnwardAt(mDatabase.units.PlaceOf(edge.At(share)));
    if (share > 0.0 && share < 1.0) return BeyondEdge(onward, own, edge, share, beyond, isBorder);
    const Point& vertex = share == 0.0 ? edge.from : edge.to;
    Arms arms;
    if (!FindArms(vertex, &arms)) return false;
    *isBorder = false;
    while (const Arms::Arm* arm = arms.Nearest(mDatabase.units, vertex, onward)) {
        const BorderEdge next(vertex, arm->end);
        const double at = IsSame(vertex, next.from) ? 0.0 : 1.0;
        if (!BeyondEdge(onward, own, next, at, beyond, isBorder)) return false;
        if (*isBorder) return true;
        arms.Remove(arm->end);
    }
    return true;
}

bool ExactAnswers::BeyondEdge(const Origin::Direction& onward, const ZoneSet& own,
                              const BorderEdge& edge, double share, ZoneSet* beyond,
                              bool* isBorder) {
    ZoneSet answers[2];
    if (!Beside(edge, share, answers)) return false;
    *isBorder = answers[0] != answers[1];
    if (!*isBorder) return true;
    const Place place = mDatabase.units.PlaceOf(edge.At(share));
    const double north = static_cast<double>(edge.to.lat) - static_cast<double>(edge.from.lat);
    const double east = 2.0 * SineAndCosineOf(place.lat).cosine *
                        (static_cast<double>(edge.to.lon) - static_cast<double>(edge.from.lon));
    // Greater than 0 where the way on leads to the left of the edge, which runs to the north or to
    // the east.
    const double left = east * onward.north - north * onward.east;
    const size_t side = (edge.IsParallel() ? left >= 0.0 : left <= 0.0) ? 0 : 1;
    *beyond = answers[side] != own ? answers[side] : answers[1 - side];
    return true;
}

}  // namespace offlinetz
