#include <reader/exact_floats.h>  // Must be the first include.

#include "nearest_border.h"

#include <reader/format.h>
#include <reader/nautical.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "exact_answers.h"
#include "find.h"
#include "near_edges.h"
#include "nearest_first.h"

namespace offlinetz {

namespace {

using zonedetect::RunTree;

// The nearest border so far.
struct Nearest {
    double haversine;
    UnitPlace place = {0.0, 0.0};
    enum { kNone, kEdge, kBandEnd, kAntimeridian } kind = kNone;
    BorderEdge edge = {{0, 0}, {0, 0}};  // Of kEdge, ...
    double share = 0.0;                  // ... and the place on it.
    double beside = 0.0;                 // Of kBandEnd: toward the other nautical zone.
    ZoneSet beyond = {};
};

// How far from a border lookups may answer for its other side, in metres; docs/design.md ("The
// nearest border") proves it. Truncation moves a point by up to a unit in each coordinate, and two
// units of longitude are one at Greenwich. The rest is single precision: of the degrees, which have
// the same error in every database, and of the longitude at which an edge crosses a parallel.
double LookupError(const SphereUnits& units, bool isAtGreenwich) {
    constexpr double kLatError = 0.15 * 0.5 * kPi * 0x1p-20;
    constexpr double kLonError = 0.45 * kPi * 0x1p-20;
    const double lat = units.Lat(1.0) + kLatError;
    const double lon = units.Lon(isAtGreenwich ? 2.0 : 1.0) + kLonError;
    return kEarthRadius * std::sqrt(lat * lat + lon * lon);
}

class Search {
  public:
    Search(const offlinetz_database& database, double lat, double lon, double limit)
        : mDatabase(database),
          mUnits(database.units),
          mAt(mUnits.FromDegrees(lat, lon)),
          mOrigin(mUnits.PlaceOf(mAt)),
          mBudget(database.reader->length, kBudgetLookups),
          mEdges(database, mOrigin, &mBudget),
          mAnswers(database, &mBudget),
          mNearest{LimitOfMetres(limit)} {
        int32_t ids[ZoneSet::kMost];
        const size_t count = Find(database, lat, lon, ids, ZoneSet::kMost, nullptr, nullptr);
        for (size_t i = 0; i < std::min(count, ZoneSet::kMost); ++i)
            mOwn.Add(ids[i]);
    }

    // Returns false if a ring cannot be decoded or the budget is spent.
    bool Run() {
        const Nearest start = mNearest;
        bool isBorder;
        if (!RunOnce() || !FindBeyond(&isBorder)) return false;
        if (isBorder) return true;
        // The edge has the same zones on both sides: rings of one zone touch or overlap there.
        // That is so rare that edges are tried, before they count, only now.
        mTriesEdges = true;
        mNearest = start;
        return RunOnce() && FindBeyond(&isBorder);
    }

    void Fill(offlinetz_border* border) const {
        const Place place = mUnits.PlaceOf(mNearest.place);
        border->metres = MetresOfHaversine(mNearest.haversine);
        border->lat = mUnits.LatDegrees(mNearest.place.lat);
        border->lon = mUnits.LonDegrees(mNearest.place.lon);
        const double bearing = mOrigin.BearingTo(place) * (180.0 / kPi);
        border->bearing = bearing < 360.0 ? bearing : 0.0;
        border->count = static_cast<int32_t>(mNearest.beyond.count);
        std::copy_n(mNearest.beyond.ids,
                    std::min<size_t>(mNearest.beyond.count, OFFLINETZ_BORDER_ROOM), border->ids);
    }
    bool IsFound() const { return mNearest.kind != Nearest::kNone; }

    // The distance within which lookups have the same answer, in metres.
    double Holds() const {
        const double metres = MetresOfHaversine(mNearest.haversine);
        const Origin::OnMeridian greenwich = mOrigin.NearestOnMeridian(0.0, -0.5 * kPi, 0.5 * kPi);
        // So far from Greenwich all units are alike.
        const double beside = 10.0 * kEarthRadius * mUnits.Lon(1.0);
        const bool mayReach = MetresOfHaversine(greenwich.haversine) < metres + beside;
        return std::max(metres - LookupError(mUnits, mayReach), 0.0);
    }

    // For NearestFirst.
    double Limit() const { return mNearest.haversine; }
    bool Visit(const RunTree::Part& leaf, double /*haversine*/) {
        return ForEachRun(
                mDatabase.index, leaf,
                [this](const ZoneIndex::Step* first, const BorderArea& area) {
                    return mEdges.Visit(
                            first, area, [this](uint32_t) { return mNearest.haversine; },
                            [](const BorderEdge&) { return true; },
                            [this](uint32_t, const BorderEdge& edge, const WorldPart&,
                                   const Origin::OnEdge& on) { return TakeEdge(edge, on); });
                });
    }

  private:
    bool RunOnce() {
        TakeBandEnds();
        NearestFirst search(mDatabase.index.Tree(), mUnits, mOrigin);
        if (!search.Run(this)) return false;
        TakeAntimeridian();
        return true;
    }

    // Sets what is beyond. `*isBorder` becomes false if the answer does not change there.
    bool FindBeyond(bool* isBorder) {
        *isBorder = true;
        const UnitPlace& place = mNearest.place;
        if (mNearest.kind == Nearest::kEdge) {
            return mAnswers.Beyond(mOrigin, mOwn, mNearest.edge, mNearest.share, &mNearest.beyond,
                                   isBorder);
        }
        // A coast may run along the meridian.
        return mNearest.kind != Nearest::kBandEnd ||
               mAnswers.At({place.lat, place.lon + mNearest.beside}, &mNearest.beyond);
    }

    // Of equal distances the southernmost place counts, of these the westernmost.
    bool IsNearer(double haversine, const UnitPlace& place) const {
        if (haversine != mNearest.haversine) return haversine < mNearest.haversine;
        if (mNearest.kind == Nearest::kNone) return true;
        return place.lat != mNearest.place.lat ? place.lat < mNearest.place.lat
                                               : place.lon < mNearest.place.lon;
    }

    // The meridians at which the own nautical zone ends. Where the nearest point of one is on land,
    // a coast is nearer.
    void TakeBandEnds() {
        if (!mAnswers.IsSea(mOwn)) return;
        const int band = mOwn.ids[0] - mDatabase.names.NauticalId(0);
        for (const int next : {band - 1, band + 1}) {
            if (std::abs(next) > kBands) continue;
            const int outer = std::max(std::abs(band), std::abs(next));
            const double lon = zonedetect::NauticalBandStart(outer);
            Nearest nearest = {0.0, {0.0, band + next > 0 ? lon : -lon}, Nearest::kBandEnd};
            nearest.beside = next > band ? kBeside : -kBeside;
            TakeMeridian(nearest, -mUnits.Scale(), mUnits.Scale());
        }
    }

    void TakeAntimeridian() {
        const double end = mUnits.Scale();
        const double east = mAt.lon >= 0.0 ? end : -end;
        const Origin::OnMeridian whole =
                mOrigin.NearestOnMeridian(mUnits.Lon(east), -0.5 * kPi, 0.5 * kPi);
        if (whole.haversine > mNearest.haversine) return;
        for (const AntimeridianPart& part : mDatabase.antimeridian) {
            const std::vector<int32_t>* answers = part.answers;
            const size_t own = mAt.lon >= 0.0 ? 0 : 1;
            ZoneSet sides[2];
            for (const size_t side : {0u, 1u}) {
                for (const int32_t id : answers[side])
                    sides[side].Add(id);
            }
            Nearest nearest = {0.0, {0.0, east}, Nearest::kAntimeridian};
            nearest.beyond = sides[1 - own] != mOwn ? sides[1 - own] : sides[own];
            TakeMeridian(nearest, part.south, part.north);
        }
    }

    // Takes the nearest place on the meridian of `nearest`, between two latitudes.
    void TakeMeridian(Nearest nearest, double south, double north) {
        const Origin::OnMeridian on = mOrigin.NearestOnMeridian(
                mUnits.Lon(nearest.place.lon), mUnits.Lat(south), mUnits.Lat(north));
        nearest.haversine = on.haversine;
        nearest.place.lat = std::clamp(mUnits.LatUnits(on.lat), south, north);
        if (IsNearer(nearest.haversine, nearest.place)) mNearest = nearest;
    }

    bool TakeEdge(const BorderEdge& edge, const Origin::OnEdge& on) {
        const UnitPlace place = edge.At(on.share);
        if (on.haversine > mNearest.haversine || !IsNearer(on.haversine, place)) return true;
        if (mTriesEdges) {
            ZoneSet answers[2];
            if (!mAnswers.Beside(edge, on.share, answers)) return false;
            if (answers[0] == answers[1]) return true;
        }
        Nearest nearest = {on.haversine, place, Nearest::kEdge};
        nearest.edge = edge;
        nearest.share = on.share;
        mNearest = nearest;
        return true;
    }

    static constexpr int kBands = zonedetect::kNauticalBands;

    const offlinetz_database& mDatabase;
    const SphereUnits& mUnits;
    const UnitPlace mAt;
    const Origin mOrigin;
    zonedetect::ReadBudget mBudget;
    NearEdges mEdges;
    ExactAnswers mAnswers;
    ZoneSet mOwn;
    Nearest mNearest;
    bool mTriesEdges = false;
};

}  // namespace

void PrepareBorders(offlinetz_database* database) {
    constexpr int kMinPrecision = 8;
    constexpr int kMaxPrecision = 23;
    const ZDDatabase& reader = *database->reader;
    if (ZDGetTableType(&reader) != zonedetect::kTiledTable || !database->index.HasTree() ||
        reader.precision < kMinPrecision || reader.precision > kMaxPrecision) {
        return;
    }
    const int32_t reach = 2 << (reader.precision - 1);
    const zonedetect::Box& world = database->index.Tree().World();
    if (world.minLat < -reach || world.minLon < -reach || world.maxLat > reach ||
        world.maxLon > reach) {
        return;
    }
    database->units = SphereUnits(static_cast<double>(database->scale));
    database->coastLeaves.Resize(database->index.Tree().NodeCount());
    database->hasBorders = FindAntimeridianParts(*database, &database->antimeridian);
}

int NearestBorder(const offlinetz_database& database, double lat, double lon, double limit,
                  offlinetz_border* border) {
    constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
    *border = {kNothing, 0.0, kNothing, kNothing, kNothing, 0, {}};
    if (!(lat >= -90.0 && lat <= 90.0 && lon >= -180.0 && lon <= 180.0))
        return OFFLINETZ_INVALID_POINT;
    if (!database.hasBorders) return OFFLINETZ_UNKNOWN;
    Search search(database, lat, lon, limit > 0.0 ? limit : 0.0);
    if (!search.Run()) return OFFLINETZ_UNKNOWN;
    border->holds = search.Holds();
    if (!search.IsFound()) return 0;
    search.Fill(border);
    return 1;
}

}  // namespace offlinetz
