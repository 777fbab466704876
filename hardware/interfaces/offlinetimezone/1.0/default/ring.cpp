#include "exact_floats.h"
// First, for all that follows.
#include "ring.h"

#include <algorithm>

#include "deltas.h"
#include "edge.h"
#include "four_edges.h"
#include "lanes.h"

namespace zonedetect {

namespace {

constexpr uint32_t kMaxRingPoints = 1000000;
constexpr size_t kBlockSteps = 128;
constexpr size_t kLanes = 4;
constexpr size_t kStepsToNarrow = 16;
static_assert(kBlockSteps % kLanes == 0, "only a ring's last block has a rest");

// Some consecutive steps of a ring, two numbers each. Those behind the last one are 0 as far as the
// lanes go on: to a whole four, and the four of the edge that closes the ring.
struct Block {
    int32_t deltas[2 * kBlockSteps + kDeltaSlack];
    size_t steps;
    bool isWhole;  // All that was asked for could be read.
    bool closes;   // The edge to the ring's first point follows.

    static_assert(kDeltaSlack >= 4 * kLanes, "zeros must fit");

    void Read(Cursor* cursor, size_t wanted) {
        steps = DecodeDeltas(cursor, deltas, 2 * wanted) / 2;
        isWhole = steps == wanted;
        std::fill_n(deltas + 2 * steps, 4 * kLanes, 0);
    }
};

// From where to where coordinates go on a way of `length` units to and fro that leads from one to
// another.
struct Span {
    int64_t min;
    int64_t max;

    Span(int32_t from, int32_t to, int64_t length) {
        const int64_t up = (length + to - from + 1) / 2;
        min = to - up;
        max = from + up;
    }
    void Include(int32_t coordinate) {
        min = std::min<int64_t>(min, coordinate);
        max = std::max<int64_t>(max, coordinate);
    }
    // How far it is from a coordinate; 0 where it contains it.
    int64_t Away(int32_t coordinate) const {
        return std::max(std::max(min - coordinate, coordinate - max), int64_t{0});
    }
};

// A walk along a ring, which counts the quarter turns around a target and keeps the smallest
// squared distance of an edge.
class Walk {
  public:
    // `nearest`: the squared distance that is to be lowered; null where none is wanted.
    Walk(const Point& target, const uint64_t* nearest)
        : mTarget(target),
          mMeasures(nearest != nullptr),
          mNearest(nearest != nullptr ? *nearest : 0) {}

    // Begins with a ring's first point, which may end the walk.
    void BeginAt(const Point& first) {
        mFirst = first;
        Visit(first);
    }

    // Takes the steps of a block, and the one that closes the ring if it follows. Any of them may
    // end the walk. Returns how many were taken.
    size_t Take(const Block& block, bool isFirst) {
        if (!block.isWhole) return TakeOneByOne(block);
        // Most rings have one block: it pays only with the next ones.
        if (!isFirst && PassBy(block)) return block.steps;
        const bool isDone = mMeasures ? TakeByFours<true>(block) : TakeByFours<false>(block);
        return isDone ? block.steps + (block.closes ? 1 : 0) : TakeOneByOne(block);
    }

    // What ended the walk: ZDLookupBorderVertex or ZDLookupOnBorder, or ZDLookupNotInZone while
    // nothing has.
    ZDLookupResult Stop() const { return mStop; }
    int64_t Quarters() const { return mQuarters; }
    uint64_t Nearest() const { return mNearest; }

  private:
    // Tells from sums alone how far a block, which has steps, may come, and takes one whole that
    // keeps too far away to matter: beyond the target's parallel or meridian, so that the quadrants
    // of its ends say how often it turns. False, with no step taken, for all others; one that may
    // come nearer than all before has its last edge measured. Long rings have most of their blocks
    // far from a target.
    bool PassBy(const Block& block) {
        Units sums = {0, 0, 0, 0};
        Units lengths = {0, 0, 0, 0};
        Units all = {0, 0, 0, 0};
        for (size_t i = 0; i < 2 * block.steps; i += 2 * kLanes) {
            const Units a = LoadUnits(block.deltas + i);
            const Units b = LoadUnits(block.deltas + i + kLanes);
            // One less if negative.
            const Units lengthA = a ^ AsUnits(AsInts(a) < 0);
            const Units lengthB = b ^ AsUnits(AsInts(b) < 0);
            sums += a + b;
            lengths += lengthA + lengthB;
            all |= lengthA | lengthB;
        }
        // Without long steps nothing has wrapped.
        if ((all[0] | all[1] | all[2] | all[3]) > uint32_t{kExactLimit}) return false;
        const Point end = {WrappingAdd(mAt.lat, static_cast<int32_t>(sums[0] + sums[2])),
                           WrappingAdd(mAt.lon, static_cast<int32_t>(sums[1] + sums[3]))};
        const auto missing = static_cast<uint32_t>(block.steps);
        Span lat(mAt.lat, end.lat, lengths[0] + lengths[2] + missing);
        Span lon(mAt.lon, end.lon, lengths[1] + lengths[3] + missing);
        if (block.closes) {
            lat.Include(mFirst.lat);
            lon.Include(mFirst.lon);
        }
        if (!IsExact(lat.min) || !IsExact(lat.max) || !IsExact(lon.min) || !IsExact(lon.max) ||
            !IsExact(mTarget.lat) || !IsExact(mTarget.lon)) {
            return false;
        }
        const int64_t awayLat = lat.Away(mTarget.lat);
        const int64_t awayLon = lon.Away(mTarget.lon);
        if (mMeasures && LeastSquaredDistance(awayLat, awayLon) < mNearest) {
            // A way that comes nearer is nearest at its end: then few of its other edges can win.
            const int32_t* const last = block.deltas + 2 * (block.steps - 1);
            const Point before = {WrappingAdd(end.lat, -last[0]), WrappingAdd(end.lon, -last[1])};
            mNearest = std::min(mNearest, SquaredDistance(before, end, mTarget));
            return false;
        }
        if (awayLat == 0 && awayLon == 0) return false;
        mQuarters += QuarterTurn(mAt, block.closes ? mFirst : end, mTarget);
        mAt = end;
        return true;
    }

    // Sums up the points for four edges at a time.
    struct Points {
        Units last;  // The latitude and longitude of the last one, twice.

        explicit Points(const Point& at) : last(AsUnits(Ints{at.lat, at.lon, at.lat, at.lon})) {}

        FourEdges Next(const int32_t* deltas) {
            const Units none = {0, 0, 0, 0};
            const Units a = LoadUnits(deltas);
            const Units b = LoadUnits(deltas + kLanes);
            const Units pointsA = last + a + __builtin_shufflevector(none, a, 0, 1, 4, 5);
            const Units lastA = __builtin_shufflevector(pointsA, pointsA, 2, 3, 2, 3);
            const Units pointsB = lastA + b + __builtin_shufflevector(none, b, 0, 1, 4, 5);
            last = __builtin_shufflevector(pointsB, pointsB, 2, 3, 2, 3);
            const Units lat = __builtin_shufflevector(pointsA, pointsB, 0, 2, 4, 6);
            const Units lon = __builtin_shufflevector(pointsA, pointsB, 1, 3, 5, 7);
            return {AsInts(lat - __builtin_shufflevector(a, b, 0, 2, 4, 6)),
                    AsInts(lon - __builtin_shufflevector(a, b, 1, 3, 5, 7)), AsInts(lat),
                    AsInts(lon)};
        }
    };

    // False, with nothing changed, where an edge needs to be looked at by itself.
    template <bool kMeasures>
    bool TakeByFours(const Block& block) {
        Points points(mAt);
        TurnCounter turns(mTarget);
        DistanceKeeper distances(mTarget, mAt, mNearest);
        size_t step = 0;
        for (; step + kLanes <= block.steps; step += kLanes) {
            const FourEdges edges = points.Next(block.deltas + 2 * step);
            turns.Add(edges, AllOf(-1));
            if constexpr (kMeasures) {
                distances.Add(edges);
                if (step % kStepsToNarrow == 0) distances.Narrow();
            }
        }
        if (block.closes) {
            FourEdges edges = points.Next(block.deltas + 2 * step);
            // The lanes behind the rest close the ring, all alike; one of them counts.
            const Ints lane = {0, 1, 2, 3};
            const Ints rest = AllOf(static_cast<int32_t>(block.steps - step));
            edges.lat = Select(lane < rest, edges.lat, AllOf(mFirst.lat));
            edges.lon = Select(lane < rest, edges.lon, AllOf(mFirst.lon));
            turns.Add(edges, lane <= rest);
            if constexpr (kMeasures) distances.Add(edges);
        }
        if (turns.MetOthers()) return false;
        if constexpr (kMeasures) {
            if (!distances.AreExact()) return false;
            mNearest = distances.Smallest(mNearest);
        }
        mAt = {static_cast<int32_t>(points.last[0]), static_cast<int32_t>(points.last[1])};
        mQuarters += turns.Quarters();
        return true;
    }

    size_t TakeOneByOne(const Block& block) {
        size_t step = 0;
        while (step < block.steps && mStop == ZDLookupNotInZone) {
            StepTo({WrappingAdd(mAt.lat, block.deltas[2 * step]),
                    WrappingAdd(mAt.lon, block.deltas[2 * step + 1])});
            ++step;
        }
        if (block.closes && mStop == ZDLookupNotInZone) {
            StepTo(mFirst);
            ++step;
        }
        return step;
    }

    void Visit(const Point& point) {
        mAt = point;
        if (point.lat == mTarget.lat && point.lon == mTarget.lon) mStop = ZDLookupBorderVertex;
    }

    void StepTo(const Point& to) {
        const Point from = mAt;
        Visit(to);
        if (mStop != ZDLookupNotInZone) return;
        const int turn = QuarterTurn(from, to, mTarget);
        if (turn == 2) {
            // Opposite quadrants: the side on which the edge passes decides.
            const int32_t crossing = EdgeLine(from, to).LongitudeAt(mTarget.lat);
            if (crossing == mTarget.lon) {
                mStop = ZDLookupOnBorder;
                return;
            }
            const bool southward = QuadrantOf(to, mTarget) >= 2;
            mQuarters += (mTarget.lon > crossing) == southward ? 2 : -2;
        } else {
            mQuarters += turn;
        }
        if (mMeasures) mNearest = std::min(mNearest, SquaredDistance(from, to, mTarget));
    }

    const Point mTarget;
    const bool mMeasures;
    uint64_t mNearest;
    Point mFirst = {0, 0};
    Point mAt = {0, 0};
    int64_t mQuarters = 0;
    ZDLookupResult mStop = ZDLookupNotInZone;
};

ZDLookupResult ResultOf(int64_t quarters) {
    switch (quarters) {
        case -4:
            return ZDLookupInZone;
        case 0:
            return ZDLookupNotInZone;
        case 4:
            return ZDLookupInExcludedZone;
        default:
            return ZDLookupOnBorder;
    }
}

}  // namespace

ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance) {
    uint32_t count;
    if (!ReadUnsigned(cursor, &count) || count > kMaxRingPoints) return ZDLookupParsingError;
    Point first = {0, 0};
    if (count > 0 && (!ReadSigned(cursor, &first.lat) || !ReadSigned(cursor, &first.lon)))
        return ZDLookupParsingError;

    Walk walk(target, minDistance);
    walk.BeginAt(first);
    uint32_t left = count > 0 ? count - 1 : 0;
    bool isClosed = count == 0;
    for (bool isFirst = true; walk.Stop() == ZDLookupNotInZone && !isClosed; isFirst = false) {
        Block block;
        const Cursor start = *cursor;
        const size_t wanted = std::min<size_t>(left, kBlockSteps);
        left -= static_cast<uint32_t>(wanted);
        block.Read(cursor, wanted);
        block.closes = isClosed = left == 0 && block.isWhole;
        const size_t taken = walk.Take(block, isFirst);
        if (walk.Stop() != ZDLookupNotInZone && taken <= block.steps) {
            *cursor = start;
            DecodeDeltasPortable(cursor, block.deltas, 2 * taken);
        }
        if (!block.isWhole && walk.Stop() == ZDLookupNotInZone) {
            if (minDistance != nullptr) *minDistance = walk.Nearest();
            return ZDLookupParsingError;
        }
    }
    const ZDLookupResult result =
            walk.Stop() != ZDLookupNotInZone ? walk.Stop() : ResultOf(walk.Quarters());
    const bool isOnBorder = result == ZDLookupBorderVertex || result == ZDLookupOnBorder;
    if (minDistance != nullptr) *minDistance = isOnBorder ? 0 : walk.Nearest();
    return result;
}

}  // namespace zonedetect
