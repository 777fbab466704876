#include "exact_floats.h"  // Must be the first include.

#include "ring.h"

#include <algorithm>

#include "deltas.h"
#include "edge.h"
#include "format.h"
#include "simd.h"
#include "simd_edges.h"

namespace zonedetect {

namespace {

constexpr size_t kBlockSteps = 128;
constexpr size_t kLanes = 4;
constexpr size_t kStepsToNarrow = 16;
static_assert(kBlockSteps % kLanes == 0, "only a ring's last block has a rest");

// Consecutive steps of a ring. A step is the delta from one vertex to the next: latitude,
// longitude. Zeros follow the last step: the SIMD path reads steps in groups of four, and the group
// of the closing edge reaches past the last step.
struct StepBlock {
    int32_t deltas[2 * kBlockSteps + kDeltaSlack];
    size_t steps;
    bool isWhole;  // All steps wanted could be decoded.
    bool closes;   // The edge back to the ring's first vertex follows.

    static_assert(kDeltaSlack >= 4 * kLanes, "zeros must fit");

    // Decodes up to `wanted` steps, at most kBlockSteps. Leaves `closes` unset.
    void Read(Cursor* cursor, size_t wanted) {
        steps = DecodeDeltas(cursor, deltas, 2 * wanted) / 2;
        isWhole = steps == wanted;
        std::fill_n(deltas + 2 * steps, 4 * kLanes, 0);
    }
};

// Computes the winding number of a ring around a target, in quarter turns, and the smallest squared
// distance from the target to an edge. Call BeginAt with the first vertex, then Take for each
// block.
//
// Each block has a SIMD path (TakeWithSimd) and a scalar path (TakeScalar). Both give the same
// bits: simd_edges.h says why. If the SIMD path meets an edge that it cannot decide, it leaves the
// walk unchanged, and the scalar path takes the whole block.
class RingWalk {
  public:
    // `nearest`: the squared distance to lower, in units of latitude. Null: measure no distances.
    RingWalk(const Point& target, const uint64_t* nearest)
        : mTarget(target),
          mMeasures(nearest != nullptr),
          mNearest(nearest != nullptr ? *nearest : 0) {}

    // Sets the first vertex of the ring. It ends the walk if it is the target.
    void BeginAt(const Point& first) {
        mFirst = first;
        Visit(first);
    }

    // Adds the edges of a block, and the closing edge if it follows. Each of them may end the walk.
    // Requires that nothing has ended the walk yet.
    void Take(const StepBlock& block) {
        const bool isDone = block.isWhole &&
                            (mMeasures ? TakeWithSimd<true>(block) : TakeWithSimd<false>(block));
        if (!isDone) TakeScalar(block);
    }

    // What ended the walk early: ZDLookupBorderVertex or ZDLookupOnBorder. ZDLookupNotInZone if
    // nothing did.
    ZDLookupResult Stop() const { return mStop; }
    int64_t QuarterTurns() const { return mQuarterTurns; }
    uint64_t Nearest() const { return mNearest; }

  private:
    // Computes the vertices of four edges from their deltas: a prefix sum over the lanes.
    struct VertexSums {
        Uint32x4 last;  // The last vertex, twice: latitude, longitude.

        explicit VertexSums(const Point& at)
            : last(AsUnsigned(Int32x4{at.lat, at.lon, at.lat, at.lon})) {}

        // Returns the edges of the next four steps, which are the eight numbers at `deltas`.
        FourEdges Next(const int32_t* deltas) {
            const Uint32x4 none = {0, 0, 0, 0};
            const Uint32x4 a = LoadUnaligned(deltas);
            const Uint32x4 b = LoadUnaligned(deltas + kLanes);
            const Uint32x4 pointsA = last + a + __builtin_shufflevector(none, a, 0, 1, 4, 5);
            const Uint32x4 lastA = __builtin_shufflevector(pointsA, pointsA, 2, 3, 2, 3);
            const Uint32x4 pointsB = lastA + b + __builtin_shufflevector(none, b, 0, 1, 4, 5);
            last = __builtin_shufflevector(pointsB, pointsB, 2, 3, 2, 3);
            const Uint32x4 lat = __builtin_shufflevector(pointsA, pointsB, 0, 2, 4, 6);
            const Uint32x4 lon = __builtin_shufflevector(pointsA, pointsB, 1, 3, 5, 7);
            return {AsSigned(lat - __builtin_shufflevector(a, b, 0, 2, 4, 6)),
                    AsSigned(lon - __builtin_shufflevector(a, b, 1, 3, 5, 7)), AsSigned(lat),
                    AsSigned(lon)};
        }
    };

    // SIMD path. Returns false and changes nothing if an edge needs the scalar path: it ends in the
    // target, leads to the opposite quadrant, or, with kMeasures, has coordinates that floats do
    // not hold exactly.
    template <bool kMeasures>
    bool TakeWithSimd(const StepBlock& block) {
        VertexSums points(mAt);
        TurnCounter turns(mTarget);
        NearestDistance distances(mTarget, mAt, mNearest);
        size_t step = 0;
        for (; step + kLanes <= block.steps; step += kLanes) {
            const FourEdges edges = points.Next(block.deltas + 2 * step);
            turns.Add(edges, Broadcast(-1));
            if constexpr (kMeasures) {
                distances.Add(edges);
                if (step % kStepsToNarrow == 0) distances.Narrow();
            }
        }
        if (block.closes) {
            FourEdges edges = points.Next(block.deltas + 2 * step);
            // The first lanes take the remaining steps. All others hold the closing edge; the first
            // of them is counted.
            const Int32x4 lane = {0, 1, 2, 3};
            const Int32x4 rest = Broadcast(static_cast<int32_t>(block.steps - step));
            edges.lat = Select(lane < rest, edges.lat, Broadcast(mFirst.lat));
            edges.lon = Select(lane < rest, edges.lon, Broadcast(mFirst.lon));
            turns.Add(edges, lane <= rest);
            if constexpr (kMeasures) distances.Add(edges);
        }
        if (turns.HasAmbiguousEdge()) return false;
        if constexpr (kMeasures) {
            if (!distances.AreExact()) return false;
            mNearest = distances.Smallest(mNearest);
        }
        mAt = {static_cast<int32_t>(points.last[0]), static_cast<int32_t>(points.last[1])};
        mQuarterTurns += turns.QuarterTurns();
        return true;
    }

    // Scalar path.
    void TakeScalar(const StepBlock& block) {
        for (size_t i = 0; i < 2 * block.steps && mStop == ZDLookupNotInZone; i += 2) {
            StepTo({WrappingAdd(mAt.lat, block.deltas[i]),
                    WrappingAdd(mAt.lon, block.deltas[i + 1])});
        }
        if (block.closes && mStop == ZDLookupNotInZone) StepTo(mFirst);
    }

    // Moves to a vertex, and ends the walk if it is the target.
    void Visit(const Point& point) {
        mAt = point;
        if (point.lat == mTarget.lat && point.lon == mTarget.lon) mStop = ZDLookupBorderVertex;
    }

    // Adds the edge to the next vertex.
    void StepTo(const Point& to) {
        const Point from = mAt;
        Visit(to);
        if (mStop != ZDLookupNotInZone) return;
        const int turn = QuarterTurn(from, to, mTarget);
        if (turn == 2) {
            // Opposite quadrants: the side on which the edge passes the target decides.
            const int32_t crossing = EdgeLine(from, to).LongitudeAt(mTarget.lat);
            if (crossing == mTarget.lon) {
                mStop = ZDLookupOnBorder;
                return;
            }
            const bool southward = QuadrantOf(to, mTarget) >= 2;
            mQuarterTurns += (mTarget.lon > crossing) == southward ? 2 : -2;
        } else {
            mQuarterTurns += turn;
        }
        if (mMeasures) mNearest = std::min(mNearest, SquaredDistance(from, to, mTarget));
    }

    const Point mTarget;
    const bool mMeasures;
    uint64_t mNearest;
    Point mFirst = {0, 0};
    Point mAt = {0, 0};
    int64_t mQuarterTurns = 0;
    ZDLookupResult mStop = ZDLookupNotInZone;
};

// -4 is a clockwise ring around the target, 4 a counterclockwise one.
ZDLookupResult ResultOf(int64_t quarterTurns) {
    switch (quarterTurns) {
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

    RingWalk walk(target, minDistance);
    walk.BeginAt(first);
    uint32_t left = count > 0 ? count - 1 : 0;
    bool isClosed = count == 0;
    while (walk.Stop() == ZDLookupNotInZone && !isClosed) {
        StepBlock block;
        const size_t wanted = std::min<size_t>(left, kBlockSteps);
        left -= static_cast<uint32_t>(wanted);
        block.Read(cursor, wanted);
        block.closes = isClosed = left == 0 && block.isWhole;
        walk.Take(block);
        if (!block.isWhole && walk.Stop() == ZDLookupNotInZone) {
            if (minDistance != nullptr) *minDistance = walk.Nearest();
            return ZDLookupParsingError;
        }
    }
    const ZDLookupResult result =
            walk.Stop() != ZDLookupNotInZone ? walk.Stop() : ResultOf(walk.QuarterTurns());
    const bool isOnBorder = result == ZDLookupBorderVertex || result == ZDLookupOnBorder;
    if (minDistance != nullptr) *minDistance = isOnBorder ? 0 : walk.Nearest();
    return result;
}

}  // namespace zonedetect
