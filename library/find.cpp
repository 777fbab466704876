#include <reader/exact_floats.h>  // Must be the first include.

#include "find.h"

#include <reader/hits.h>
#include <reader/nautical.h>
#include <reader/ring_walk.h>
#include <reader/units.h>

#include <algorithm>
#include <cstring>

#include "safe_radius.h"
#include "segment_distance.h"

namespace offlinetz {

namespace {

using zonedetect::Point;
using Step = ZoneIndex::Step;
using Kind = ZoneIndex::Kind;

// A point on its way to an answer.
struct Query {
    double lat;
    double lon;
    bool isValid;
    Point target;  // In units.
    zonedetect::RunTree::Runs runs;
    const Step* onlyRun;  // Null if there are several runs or none.
};

Query QueryAt(const offlinetz_database& database, double lat, double lon) {
    Query query = {lat, lon, false, {0, 0}, {nullptr, 0, 0}, nullptr};
    query.isValid = lat >= -90.0 && lat <= 90.0 && lon >= -180.0 && lon <= 180.0;  // NaN is not.
    if (!query.isValid) return query;
    query.target = {zonedetect::LatitudeUnits(static_cast<float>(lat), database.scale),
                    zonedetect::LongitudeUnits(static_cast<float>(lon), database.scale)};
    query.runs = database.index.RunsAt(query.target);
    if (query.runs.count == 1) query.onlyRun = database.index.StepsFrom(query.runs.At(0));
    return query;
}

// The target, moved to where rings are stored.
Point ShiftedWest(const Point& target) {
    return {target.lat, zonedetect::WrappingAdd(target.lon, -zonedetect::kRingShift)};
}

// Whether the index holds the answer.
bool IsAnswered(const Query& query) {
    return query.onlyRun != nullptr && query.onlyRun->IsAnswer();
}

void PrefetchRings(const offlinetz_database& database, const Query& query) {
    if (query.onlyRun == nullptr) return;
    zonedetect::Prefetch(*database.reader, query.onlyRun->Place());
    if (!query.onlyRun->IsLast()) zonedetect::Prefetch(*database.reader, query.onlyRun[1].Place());
}

// Decodes each ring that is asked for.
class RingsOnce {
  public:
    explicit RingsOnce(const offlinetz_database& database) : mDatabase(database) {}

    // Classifies `target` against the ring of a step (reader/ring.h), which is ring number `ring`
    // of its run. `*bytes` receives the size of what was read.
    template <typename Measure>
    ZDLookupResult Classify(const Step& step, size_t /*ring*/, const Point& target,
                            Measure* measure, int64_t* bytes) {
        const ZDDatabase& reader = *mDatabase.reader;
        zonedetect::Cursor cursor = zonedetect::CursorAt(reader, step.Place());
        zonedetect::RingReader ring(&cursor);
        const ZDLookupResult result = zonedetect::WalkRing(&ring, target, measure);
        *bytes = int64_t{zonedetect::PositionOf(reader, cursor)} - step.Place();
        return result;
    }

  private:
    const offlinetz_database& mDatabase;
};

// Keeps the last rings decoded: points in the order of places ask for the same ones again.
class KeptRings {
  public:
    // cppcheck-suppress uninitMemberVar ; an empty slot says so.
    explicit KeptRings(const offlinetz_database& database) : mDatabase(database) {}

    template <typename Measure>
    ZDLookupResult Classify(const Step& step, size_t ring, const Point& target, Measure* measure,
                            int64_t* bytes) {
        Slot& slot = mSlots[ring % kSlots];
        if (slot.place != step.Place() && !slot.Keep(*mDatabase.reader, step.Place()))
            return RingsOnce(mDatabase).Classify(step, ring, target, measure, bytes);
        *bytes = slot.bytes;
        Blocks blocks = {slot, false};
        return zonedetect::WalkRing(&blocks, target, measure);
    }

  private:
    static constexpr size_t kSlots = 4;  // Most runs have one ring or two.
    static constexpr uint32_t kNoPlace = UINT32_MAX;

    struct Slot {
        uint32_t place = kNoPlace;
        int64_t bytes = 0;
        Point first = {0, 0};
        zonedetect::StepBlock block;

        // Returns false if the ring has more than one block or cannot be decoded.
        bool Keep(const ZDDatabase& reader, uint32_t wanted) {
            place = kNoPlace;
            zonedetect::Cursor cursor = zonedetect::CursorAt(reader, wanted);
            uint32_t count;
            if (!zonedetect::ReadUnsigned(&cursor, &count) || count == 0 ||
                count > zonedetect::kBlockSteps + 1 ||
                !zonedetect::ReadSigned(&cursor, &first.lat) ||
                !zonedetect::ReadSigned(&cursor, &first.lon)) {
                return false;
            }
            block.Read(&cursor, count - 1);
            if (!block.isWhole) return false;
            block.closes = true;
            bytes = int64_t{zonedetect::PositionOf(reader, cursor)} - wanted;
            place = wanted;
            return true;
        }
    };

    // What WalkRing reads.
    struct Blocks {
        const Slot& slot;
        bool isRead;

        bool Begin(Point* first) {
            *first = slot.first;
            return true;
        }
        const zonedetect::StepBlock* Next() {
            if (isRead) return nullptr;
            isRead = true;
            return &slot.block;
        }
    };

    const offlinetz_database& mDatabase;
    Slot mSlots[kSlots];
};

// Collects the rings that contain a point, in the order of the table, as ZDLookup does.
template <typename Rings, typename Measure>
class Scan {
  public:
    Scan(const offlinetz_database& database, const Query& query, Rings* rings, Measure* measure,
         zonedetect::HitList* hits)
        : mDatabase(database),
          mTarget(query.target),
          mRingTarget(ShiftedWest(query.target)),
          mRings(*rings),
          mMeasure(measure),
          mBudget(database.reader->length),
          mHits(*hits) {}

    // Returns false if a ring that cannot be decoded or a limit ended the search.
    bool Run(const zonedetect::RunTree::Runs& runs) {
        const ZoneIndex& index = mDatabase.index;
        if (!index.HasTree()) return TakeAll(index.StepsFrom(0), index.StepCount());
        for (uint32_t i = 0; i < runs.count; ++i) {
            if (!TakeRun(index.StepsFrom(runs.At(i)))) return false;
        }
        return true;
    }

  private:
    bool TakeAll(const Step* step, size_t count) {
        const Step* const end = step + count;
        while (step < end) {
            if (mDatabase.index.BoxOf(*step).box.minLat > mTarget.lat) return true;
            if (!TakeRun(step)) return false;
            while (!step->IsLast())
                ++step;
            ++step;
        }
        return true;
    }

    bool TakeRun(const Step* step) {
        const Step* first = step;
        if (step->KindOf() == Kind::kBox) {
            const ZoneIndex::BoxedRing& boxed = mDatabase.index.BoxOf(*step);
            if (!boxed.box.Contains(mTarget)) return true;
            first = &boxed.ring;
        }
        for (size_t ring = 0;; ++ring) {
            if (!TakeRing(ring == 0 ? *first : step[ring], ring)) return false;
            if (step[ring].IsLast()) return true;
        }
    }

    bool TakeRing(const Step& step, size_t ring) {
        int64_t bytes;
        const ZDLookupResult result = mRings.Classify(step, ring, mRingTarget, mMeasure, &bytes);
        if (result == ZDLookupParsingError) return false;
        mBudget.Spend(bytes);
        if (result != ZDLookupNotInZone && !mHits.Append({result, step.Zone()})) return false;
        return !mBudget.IsSpent();
    }

    const offlinetz_database& mDatabase;
    const Point mTarget;
    const Point mRingTarget;
    Rings& mRings;
    Measure* const mMeasure;
    zonedetect::ReadBudget mBudget;
    zonedetect::HitList& mHits;
};

int32_t NauticalAt(const offlinetz_database& database, const Query& query) {
    if (!database.isNautical) return OFFLINETZ_NO_ZONE;
    return database.names.NauticalId(zonedetect::NauticalBandAt(query.target.lon));
}

// The first ids of an answer, and the number of its zones.
struct Ids {
    int32_t* values;
    size_t room;
    size_t count;

    void Add(int32_t id) {
        if (count < room) values[count] = id;
        ++count;
    }
    // For an answer without zones.
    void SetNone(int32_t sentinel) const {
        if (room > 0) values[0] = sentinel;
    }
    void SetNautical(int32_t id) { id >= 0 ? Add(id) : SetNone(id); }
};

struct Walked {
    bool isWhole;  // All rings were read.
    bool isOnBorder;
    bool isAtSea;
};

// AskRings in general. Not inlined: the list of hits takes 32 KB of stack.
template <typename Rings, typename Measure>
__attribute__((noinline)) Walked AskAllRings(const offlinetz_database& database, const Query& query,
                                             Rings* rings, Measure* measure, Ids* ids) {
    zonedetect::HitList hits;
    Walked walked = {};
    if (database.reader == nullptr) {  // Opening has failed.
        ids->SetNone(OFFLINETZ_NO_ZONE);
        return walked;
    }
    walked.isWhole = Scan<Rings, Measure>(database, query, rings, measure, &hits).Run(query.runs);
    zonedetect::MergeZones(&hits);
    for (const zonedetect::Hit& zone : hits) {
        walked.isOnBorder = walked.isOnBorder || zone.result != ZDLookupInZone;
        if (zone.zone < database.index.Unreadable()) ids->Add(static_cast<int32_t>(zone.zone));
    }
    walked.isAtSea = hits.begin() == hits.end();
    if (walked.isAtSea) {
        ids->SetNautical(NauticalAt(database, query));
    } else if (ids->count == 0) {
        ids->SetNone(OFFLINETZ_NO_ZONE);
    }
    return walked;
}

// Answers where the rings decide.
//
// Most points lie in one run, in one of its rings or in none, on no border and with no limit near:
// they need no list of hits.
template <typename Rings, typename Measure>
Walked AskRings(const offlinetz_database& database, const Query& query, Rings* rings,
                Measure* measure, Ids* ids) {
    constexpr int64_t kFewBytes = 1 << 20;
    constexpr uint32_t kNone = UINT32_MAX;
    const Step* const run = query.onlyRun;
    if (run == nullptr || run->KindOf() == Kind::kBox)
        return AskAllRings(database, query, rings, measure, ids);
    const Point target = ShiftedWest(query.target);
    uint32_t zone = kNone;
    int64_t allBytes = 0;
    for (size_t ring = 0;; ++ring) {
        int64_t bytes;
        const ZDLookupResult result = rings->Classify(run[ring], ring, target, measure, &bytes);
        allBytes += bytes;
        if (result == ZDLookupInZone && zone == kNone) {
            zone = run[ring].Zone();
        } else if (result != ZDLookupNotInZone) {
            return AskAllRings(database, query, rings, measure, ids);
        }
        if (allBytes > kFewBytes) return AskAllRings(database, query, rings, measure, ids);
        if (run[ring].IsLast()) break;
    }
    if (zone != kNone && zone >= database.index.Unreadable())
        return AskAllRings(database, query, rings, measure, ids);
    zone != kNone ? ids->Add(static_cast<int32_t>(zone))
                  : ids->SetNautical(NauticalAt(database, query));
    return {true, false, zone == kNone};
}

// Answers a query. Returns whether the point is on a border.
template <typename Rings>
bool Answer(const offlinetz_database& database, const Query& query, Rings* rings, Ids* ids) {
    if (!query.isValid) {
        ids->SetNone(OFFLINETZ_INVALID_POINT);
        return false;
    }
    if (IsAnswered(query)) {
        if (query.onlyRun->KindOf() == Kind::kAnswer) {
            ids->Add(static_cast<int32_t>(query.onlyRun->Zone()));
        } else {
            ids->SetNautical(NauticalAt(database, query));
        }
        return false;
    }
    zonedetect::NoDistance none;
    return AskRings(database, query, rings, &none, ids).isOnBorder;
}

// The same with the safe radius.
template <typename Rings>
bool AnswerWithRadius(const offlinetz_database& database, const Query& query, Rings* rings,
                      Ids* ids, double* radius) {
    *radius = 0.0;
    if (!query.isValid || !database.hasRadius) return Answer(database, query, rings, ids);
    const double scale = static_cast<double>(database.scale);
    SegmentDistance distance(query.lat * (scale / 90.0),
                             query.lon * (scale / 180.0) - zonedetect::kRingShift);
    const Walked walked = AskRings(database, query, rings, &distance, ids);
    if (walked.isWhole && !walked.isOnBorder) {
        *radius = SafeRadiusKilometres(*database.reader, query.lat, query.lon, distance.Squared(),
                                       walked.isAtSea && database.isNautical);
    }
    return walked.isOnBorder;
}

template <typename T>
void SetValue(const Column<T>& column, size_t i, T value) {
    if (column.first != nullptr) std::memcpy(column.At(i), &value, sizeof value);
}

// Makes the query of each point and calls answer(i, query), in the order of the points.
//
// Takes them in groups. The memory that a query needs next is fetched while the other queries of
// its group are made.
template <typename Answer>
void ForEachQuery(const offlinetz_database& database, size_t count,
                  const Column<const double>& lats, const Column<const double>& lons,
                  bool wantsRadius, const Answer& answer) {
    constexpr size_t kGroup = 8;
    Query queries[kGroup];
    for (size_t begin = 0; begin < count; begin += kGroup) {
        const size_t size = std::min(kGroup, count - begin);
        for (size_t i = 0; i < size; ++i) {
            queries[i] = QueryAt(database, lats.ValueAt(begin + i), lons.ValueAt(begin + i));
            if (queries[i].onlyRun != nullptr) __builtin_prefetch(queries[i].onlyRun);
        }
        for (size_t i = 0; i < size; ++i) {
            if (wantsRadius || !IsAnswered(queries[i])) PrefetchRings(database, queries[i]);
        }
        for (size_t i = 0; i < size; ++i)
            answer(begin + i, queries[i]);
    }
}

}  // namespace

size_t Find(const offlinetz_database& database, double lat, double lon, int32_t* ids, size_t room,
            int* onBorder, double* radius) {
    const Query query = QueryAt(database, lat, lon);
    RingsOnce rings(database);
    Ids found = {ids, room, 0};
    if (radius != nullptr || !IsAnswered(query)) PrefetchRings(database, query);
    const bool isOnBorder = radius != nullptr
                                    ? AnswerWithRadius(database, query, &rings, &found, radius)
                                    : Answer(database, query, &rings, &found);
    if (onBorder != nullptr) *onBorder = isOnBorder ? 1 : 0;
    return found.count;
}

void FindMany(const offlinetz_database& database, size_t count, Column<const double> lats,
              Column<const double> lons, Column<int32_t> ids, Column<double> radii) {
    KeptRings rings(database);
    const bool wantsRadius = radii.first != nullptr;
    ForEachQuery(database, count, lats, lons, wantsRadius, [&](size_t i, const Query& query) {
        int32_t id;
        Ids first = {&id, 1, 0};
        if (wantsRadius) {
            double radius;
            AnswerWithRadius(database, query, &rings, &first, &radius);
            SetValue(radii, i, radius);
        } else {
            Answer(database, query, &rings, &first);
        }
        SetValue(ids, i, id);
    });
}

size_t FindAll(const offlinetz_database& database, size_t count, Column<const double> lats,
               Column<const double> lons, int64_t* offsets, int32_t* values, size_t room) {
    KeptRings rings(database);
    size_t used = 0;
    offsets[0] = 0;
    ForEachQuery(database, count, lats, lons, false, [&](size_t i, const Query& query) {
        Ids all = {values + std::min(used, room), room - std::min(used, room), 0};
        Answer(database, query, &rings, &all);
        used += std::max<size_t>(all.count, 1);  // A sentinel counts.
        offsets[i + 1] = static_cast<int64_t>(used);
    });
    return used;
}

}  // namespace offlinetz
