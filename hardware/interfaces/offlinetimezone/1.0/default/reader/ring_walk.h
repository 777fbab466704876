// The walk along a ring that classifies a point, with any measure of the distance to its edges.
//
// Sources that include this header include exact_floats.h before all others.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "deltas.h"
#include "edge.h"
#include "format.h"
#include "simd.h"
#include "simd_edges.h"
#include "units.h"
#include "varint.h"

namespace zonedetect {

constexpr size_t kBlockSteps = 128;  // At most, in a block of a ring.
constexpr size_t kLanes = 4;
constexpr size_t kStepsToNarrow = 16;
static_assert(kBlockSteps % kLanes == 0, "only a ring's last block has a rest");

// Consecutive steps of a ring. A step is the delta from one vertex to the next: latitude,
// longitude. Zeros follow the last step: the SIMD path reads steps in groups of four, and the group
// of the closing edge reaches past the last step.
struct StepBlock {
    int32_t deltas[2 * kBlockSteps + kDeltaSlack];
    size_t steps = 0;
    bool isWhole = false;  // All steps wanted could be decoded.
    bool closes = false;   // The edge back to the ring's first vertex follows.

    static_assert(kDeltaSlack >= 4 * kLanes, "zeros must fit");

    // Decodes up to `wanted` steps, at most kBlockSteps. Leaves `closes` unset.
    void Read(Cursor* cursor, size_t wanted) {
        steps = DecodeDeltas(cursor, deltas, 2 * wanted) / 2;
        isWhole = steps == wanted;
        std::fill_n(deltas + 2 * steps, 4 * kLanes, 0);
    }
};

// Decodes a ring block by block. The cursor is advanced past what is decoded.
class RingReader {
  public:
    // cppcheck-suppress uninitMemberVar ; Next reads the deltas that it has filled.
    explicit RingReader(Cursor* cursor) : mCursor(*cursor) {}

    // Reads the number of points and the first vertex; 0,0 in a ring without points. Returns false
    // if they cannot be decoded.
    bool Begin(Point* first) {
        uint32_t count;
        if (!ReadUnsigned(&mCursor, &count) || count > kMaxRingPoints) return false;
        *first = {0, 0};
        if (count > 0 && (!ReadSigned(&mCursor, &first->lat) || !ReadSigned(&mCursor, &first->lon)))
            return false;
        mLeft = count > 0 ? count - 1 : 0;
        mIsClosed = count == 0;
        return true;
    }

    // The next block, valid until the next call; null behind the last one. A block that is not
    // whole is the last.
    const StepBlock* Next() {
        if (mIsClosed) return nullptr;
        const size_t wanted = std::min<size_t>(mLeft, kBlockSteps);
        mLeft -= static_cast<uint32_t>(wanted);
        mBlock.Read(&mCursor, wanted);
        mBlock.closes = mIsClosed = mLeft == 0 && mBlock.isWhole;
        return &mBlock;
    }

  private:
    Cursor& mCursor;
    uint32_t mLeft = 0;  // Steps that no block has yet.
    bool mIsClosed = true;
    StepBlock mBlock;
};

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

// Computes the winding number of a ring around a target, in quarter turns, and the smallest squared
// distance from the target to an edge. Call BeginAt with the first vertex, then Take for each
// block.
//
// Measure says which distance, and holds it. A Measure has
// - kMeasures: false if it measures nothing; the rest is then not needed.
// - Lanes: measures four edges at a time, as NearestDistance (simd_edges.h) does. Its constructor
//   takes the target, the vertex before the first edge, and the Measure.
// - Take(lanes): takes over what Lanes found.
// - Add(from, to, target): measures one edge.
//
// Each block has a SIMD path (TakeWithSimd) and a scalar path (TakeScalar). Both give the same
// bits: simd_edges.h says why. If the SIMD path meets an edge that it cannot decide, it leaves the
// walk unchanged, and the scalar path takes the whole block.
template <typename Measure>
class RingWalk {
  public:
    RingWalk(const Point& target, Measure* measure) : mTarget(target), mMeasure(*measure) {}

    // Sets the first vertex of the ring. It ends the walk if it is the target.
    void BeginAt(const Point& first) {
        mFirst = first;
        Visit(first);
    }

    // Adds the edges of a block, and the closing edge if it follows. Each of them may end the walk.
    // Requires that nothing has ended the walk yet.
    void Take(const StepBlock& block) {
        if (!block.isWhole || !TakeWithSimd(block)) TakeScalar(block);
    }

    // What ended the walk early: ZDLookupBorderVertex or ZDLookupOnBorder. ZDLookupNotInZone if
    // nothing did.
    ZDLookupResult Stop() const { return mStop; }
    int64_t QuarterTurns() const { return mQuarterTurns; }

  private:
    // SIMD path. Returns false and changes nothing if an edge needs the scalar path: it ends in the
    // target, leads to the opposite quadrant, or, if distances are measured, has coordinates that
    // floats do not hold exactly.
    bool TakeWithSimd(const StepBlock& block) {
        VertexSums points(mAt);
        TurnCounter turns(mTarget, mAt);
        typename Measure::Lanes distances(mTarget, mAt, mMeasure);
        size_t step = 0;
        for (; step + kLanes <= block.steps; step += kLanes) {
            const FourEdges edges = points.Next(block.deltas + 2 * step);
            turns.Add(edges.lat, edges.lon);
            if constexpr (Measure::kMeasures) {
                distances.Add(edges);
                if (step % kStepsToNarrow == 0) distances.Narrow();
            }
        }
        if (block.closes) {
            FourEdges edges = points.Next(block.deltas + 2 * step);
            // The first lanes take the remaining steps. All others go to the ring's first vertex:
            // the closing edge, and edges without length.
            const Int32x4 lane = {0, 1, 2, 3};
            const Int32x4 rest = Broadcast(static_cast<int32_t>(block.steps - step));
            edges.lat = Select(lane < rest, edges.lat, Broadcast(mFirst.lat));
            edges.lon = Select(lane < rest, edges.lon, Broadcast(mFirst.lon));
            turns.Add(edges.lat, edges.lon);
            if constexpr (Measure::kMeasures) distances.Add(edges);
        }
        if (turns.HasAmbiguousEdge()) return false;
        if constexpr (Measure::kMeasures) {
            if (!distances.AreExact()) return false;
            mMeasure.Take(distances);
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
        if constexpr (Measure::kMeasures) mMeasure.Add(from, to, mTarget);
    }

    const Point mTarget;
    Measure& mMeasure;
    Point mFirst = {0, 0};
    Point mAt = {0, 0};
    int64_t mQuarterTurns = 0;
    ZDLookupResult mStop = ZDLookupNotInZone;
};

// Measures nothing.
struct NoDistance {
    static constexpr bool kMeasures = false;
    struct Lanes {
        Lanes(const Point& /*target*/, const Point& /*start*/, const NoDistance& /*measure*/) {}
    };
};

// -4 is a clockwise ring around the target, 4 a counterclockwise one.
inline ZDLookupResult ResultOf(int64_t quarterTurns) {
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

// Classifies `target` against a ring as ClassifyAgainstRing (ring.h) does. `ring` is a RingReader
// or another source of its blocks. The measure sees the edges up to the one that ends the walk.
template <typename Ring, typename Measure>
ZDLookupResult WalkRing(Ring* ring, const Point& target, Measure* measure) {
    Point first;
    if (!ring->Begin(&first)) return ZDLookupParsingError;
    RingWalk<Measure> walk(target, measure);
    walk.BeginAt(first);
    while (walk.Stop() == ZDLookupNotInZone) {
        const StepBlock* const block = ring->Next();
        if (block == nullptr) return ResultOf(walk.QuarterTurns());
        walk.Take(*block);
        if (!block->isWhole && walk.Stop() == ZDLookupNotInZone) return ZDLookupParsingError;
    }
    return walk.Stop();
}

}  // namespace zonedetect
