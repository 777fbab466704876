#include <reader/exact_floats.h>  // Must be the first include.

#include "zones_within.h"

#include <offlinetz.h>
#include <reader/nautical.h>

#include <algorithm>
#include <cmath>

#include "coasts.h"
#include "find.h"
#include "near_edges.h"
#include "nearest_first.h"

namespace offlinetz {

namespace {

using zonedetect::RunTree;

constexpr int kBands = zonedetect::kNauticalBands;

// The zones found so far, each with the haversine to its nearest place found so far.
class FoundZones {
  public:
    struct Zone {
        double haversine;
        int32_t id;
    };

    // Zones further away than `limit` are not wanted.
    // cppcheck-suppress uninitMemberVar ; the first mCount zones are filled.
    explicit FoundZones(double limit) : mLimit(limit) {}

    double Limit() const { return mLimit; }
    // The greatest haversine of a place that is news of a zone.
    double LimitOf(int32_t id) const {
        const size_t i = IndexOf(id);
        return i < mCount ? mZones[i].haversine : mLimit;
    }

    void Add(int32_t id, double haversine) {
        if (haversine > mLimit) return;
        const size_t i = IndexOf(id);
        if (i < mCount) {
            mZones[i].haversine = std::min(mZones[i].haversine, haversine);
        } else if (mCount < kRoom) {
            mZones[mCount++] = {haversine, id};
        } else {  // The furthest makes room.
            *Furthest() = {haversine, id};
            mLimit = Furthest()->haversine;
        }
    }

    // Sorts them, the nearest first.
    void Sort() { std::sort(mZones, mZones + mCount, IsNearer); }
    size_t Count() const { return mCount; }
    const Zone& At(size_t i) const { return mZones[i]; }

  private:
    static constexpr size_t kRoom = OFFLINETZ_MOST_WITHIN;

    static bool IsNearer(const Zone& a, const Zone& b) {
        return a.haversine != b.haversine ? a.haversine < b.haversine : a.id < b.id;
    }
    size_t IndexOf(int32_t id) const {
        size_t i = 0;
        while (i < mCount && mZones[i].id != id)
            ++i;
        return i;
    }
    Zone* Furthest() { return std::max_element(mZones, mZones + mCount, IsNearer); }

    double mLimit;
    size_t mCount = 0;
    Zone mZones[kRoom];
};

class Search {
  public:
    Search(const offlinetz_database& database, double lat, double lon, double metres)
        : mDatabase(database),
          mUnits(database.units),
          mOrigin(mUnits.PlaceOf(mUnits.FromDegrees(lat, lon))),
          mBudget(database.reader->length, kBudgetLookups),
          mEdges(database, mOrigin, &mBudget),
          mAnswers(database, &mBudget),
          mFound(LimitOfMetres(metres)) {
        int32_t ids[ZoneSet::kMost];
        const size_t count = Find(database, lat, lon, ids, ZoneSet::kMost, nullptr, nullptr);
        for (size_t i = 0; i < std::min(count, ZoneSet::kMost); ++i)
            mFound.Add(ids[i], 0.0);
    }

    // Returns false if a ring cannot be decoded or the budget is spent.
    bool Run() {
        if (mDatabase.isNautical && !AddBandStarts()) return false;
        AddAntimeridian();
        NearestFirst search(mDatabase.index.Tree(), mUnits, mOrigin);
        if (!search.Run(this)) return false;
        mFound.Sort();
        return true;
    }
    const FoundZones& Found() const { return mFound; }

    // For NearestFirst.
    double Limit() const { return mFound.Limit(); }
    bool Visit(const RunTree::Part& leaf, double haversine) {
        // Nothing in the leaf is nearer than what is known of a zone.
        const auto limitOf = [&](int32_t id) {
            const double limit = mFound.LimitOf(id);
            return limit > haversine || limit == mFound.Limit() ? limit : -1.0;
        };
        const auto limitOfZone = [&](uint32_t zone) {
            const bool isNamed = zone < mDatabase.index.Unreadable();
            return isNamed ? limitOf(static_cast<int32_t>(zone)) : -1.0;
        };
        if (!ForEachRun(mDatabase.index, leaf,
                        [&](const ZoneIndex::Step* first, const BorderArea& area) {
                            return mEdges.Visit(
                                    first, area, limitOfZone,
                                    [](const BorderEdge&) { return true; },
                                    [&](uint32_t zone, const BorderEdge&, const WorldPart&,
                                        const Origin::OnEdge& on) {
                                        mFound.Add(static_cast<int32_t>(zone), on.haversine);
                                        return true;
                                    });
                        })) {
            return false;
        }
        if (!mDatabase.isNautical) return true;
        const int west = BandAt(static_cast<double>(leaf.area.minLon) - 1.0);
        const int east = BandAt(static_cast<double>(leaf.area.maxLon) + 1.0);
        const auto limitOfSea = [&](uint32_t) {
            double limit = -1.0;
            for (int band = west; band <= east; ++band)
                limit = std::max(limit, limitOf(mDatabase.names.NauticalId(band)));
            return limit;
        };
        if (limitOfSea(0) < 0.0) return true;
        bool mayHaveCoast;
        if (!mDatabase.coastLeaves.Test(mDatabase, leaf, &mBudget, &mayHaveCoast)) return false;
        return !mayHaveCoast || VisitCoasts(leaf, limitOfSea);
    }

  private:
    // Not inlined: the coasts take 8 KB of stack.
    template <typename Limit>
    __attribute__((noinline)) bool VisitCoasts(const RunTree::Part& leaf, const Limit& limit) {
        Coasts coasts(mDatabase, &mBudget);
        return ForEachRun(
                mDatabase.index, leaf, [&](const ZoneIndex::Step* first, const BorderArea& area) {
                    return coasts.Collect(first, area) &&
                           mEdges.Visit(
                                   first, area, limit,
                                   [&](const BorderEdge& edge) { return coasts.MayBe(edge); },
                                   [&](uint32_t, const BorderEdge& edge, const WorldPart& part,
                                       const Origin::OnEdge& on) {
                                       return AddCoast(edge, part, on, &coasts);
                                   });
                });
    }

    int BandAt(double lon) const {
        return zonedetect::NauticalBandAt(
                static_cast<int32_t>(std::clamp(lon, -mUnits.Scale(), mUnits.Scale())));
    }

    // Adds the nautical zones along an edge if it is a coast. `on` is its nearest point.
    bool AddCoast(const BorderEdge& edge, const WorldPart& part, const Origin::OnEdge& on,
                  Coasts* coasts) {
        const UnitPlace ends[] = {edge.At(part.first), edge.At(part.last)};
        const double west = std::min(ends[0].lon, ends[1].lon);
        const double east = std::max(ends[0].lon, ends[1].lon);
        for (int band = BandAt(west - kBeside); band <= BandAt(east + kBeside); ++band) {
            const int32_t id = mDatabase.names.NauticalId(band);
            // Along a meridian the bands of the eastern and of the western side may differ.
            const bool isOnSide[] = {west < east || band == BandAt(east + kBeside),
                                     west < east || band == BandAt(west - kBeside)};
            const WorldPart piece = west < east ? PartIn(band, edge, part) : part;
            if (piece.IsEmpty()) continue;
            const bool isWhole = piece.first == part.first && piece.last == part.last;
            const Origin::OnEdge nearest =
                    isWhole ? on : mEdges.NearestOn(edge, piece, mFound.LimitOf(id));
            if (nearest.haversine > mFound.LimitOf(id)) continue;
            Coasts::Sides sides;
            if (!coasts->Test(edge, nearest.share, &sides)) return false;
            if ((sides.hasSea[0] && isOnSide[0]) || (sides.hasSea[1] && isOnSide[1]))
                mFound.Add(id, nearest.haversine);
        }
        return true;
    }

    // The part of an edge in a band.
    WorldPart PartIn(int band, const BorderEdge& edge, WorldPart part) const {
        const auto clip = [&](int32_t lon, bool isWestEnd) {
            const auto from = static_cast<double>(edge.from.lon);
            const auto to = static_cast<double>(edge.to.lon);
            const double share = (static_cast<double>(lon) - from) / (to - from);
            if ((to > from) == isWestEnd) {
                part.first = std::max(part.first, share);
            } else {
                part.last = std::min(part.last, share);
            }
        };
        // The band ends where the next one to the west or east begins.
        if (band > -kBands) clip(WestEndOf(band), true);
        if (band < kBands) clip(WestEndOf(band + 1), false);
        return part;
    }

    // Where a band and the one west of it meet.
    static int32_t WestEndOf(int band) {
        return band > 0 ? zonedetect::NauticalBandStart(band)
                        : -zonedetect::NauticalBandStart(1 - band);
    }

    // The meridians where nautical zones meet. The nearest point of a zone is on one if it is not
    // on a coast.
    bool AddBandStarts() {
        for (int band = 1 - kBands; band <= kBands; ++band) {
            const double lon = WestEndOf(band);
            // The least haversine, from the sine of the distance to the meridian or the pole.
            const double angle =
                    std::min(std::fabs(mOrigin.LongitudeFrom(mUnits.Lon(lon))), 0.5 * kPi);
            const double sine = mOrigin.Cosine() * angle * (1.0 - angle * angle * (1.0 / 6.0));
            if (0.25 * sine * sine > mFound.Limit()) continue;
            const Origin::OnMeridian on =
                    mOrigin.NearestOnMeridian(mUnits.Lon(lon), -0.5 * kPi, 0.5 * kPi);
            if (on.haversine > mFound.Limit()) continue;
            for (const double beside : {-kBeside, kBeside}) {
                ZoneSet answer;
                if (!mAnswers.At({mUnits.LatUnits(on.lat), lon + beside}, &answer)) return false;
                if (mAnswers.IsSea(answer)) mFound.Add(answer.ids[0], on.haversine);
            }
        }
        return true;
    }

    void AddAntimeridian() {
        for (const AntimeridianPart& part : mDatabase.antimeridian) {
            const Place south = mUnits.PlaceOf({part.south, mUnits.Scale()});
            const Place north = mUnits.PlaceOf({part.north, mUnits.Scale()});
            if (mOrigin.LeastHaversineTo({south.lat, south.lon, north.lat, north.lon}) >
                mFound.Limit()) {
                continue;
            }
            const Origin::OnMeridian on =
                    mOrigin.NearestOnMeridian(south.lon, south.lat, north.lat);
            for (const std::vector<int32_t>& answer : part.answers) {
                for (const int32_t id : answer)
                    mFound.Add(id, on.haversine);
            }
        }
    }

    const offlinetz_database& mDatabase;
    const SphereUnits& mUnits;
    const Origin mOrigin;
    zonedetect::ReadBudget mBudget;
    NearEdges mEdges;
    ExactAnswers mAnswers;
    FoundZones mFound;
};

}  // namespace

size_t ZonesWithin(const offlinetz_database& database, double lat, double lon, double metres,
                   int32_t* ids, double* distances, size_t room) {
    const auto none = [&](int32_t sentinel) {
        if (room > 0) ids[0] = sentinel;
        return size_t{0};
    };
    if (!(lat >= -90.0 && lat <= 90.0 && lon >= -180.0 && lon <= 180.0))
        return none(OFFLINETZ_INVALID_POINT);
    if (!database.hasBorders) return none(OFFLINETZ_UNKNOWN);
    Search search(database, lat, lon, metres > 0.0 ? metres : 0.0);
    if (!search.Run()) return none(OFFLINETZ_UNKNOWN);
    const FoundZones& found = search.Found();
    for (size_t i = 0; i < std::min(found.Count(), room); ++i) {
        ids[i] = found.At(i).id;
        if (distances != nullptr) distances[i] = MetresOfHaversine(found.At(i).haversine);
    }
    return found.Count() > 0 ? found.Count() : none(OFFLINETZ_NO_ZONE);
}

}  // namespace offlinetz
