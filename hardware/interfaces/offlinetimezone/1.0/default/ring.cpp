#include "exact_floats.h"
// First, for all that follows.
#include "ring.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "deltas.h"

namespace zonedetect {

namespace {

constexpr uint32_t kMaxRingPoints = 1000000;
constexpr size_t kBlockPoints = 64;

// --- Edges -------------------------------------------------------------------------------

// The line through an oblique edge: lat = slope * lon + intercept, in single precision.
struct EdgeLine {
    float slope;
    float intercept;

    EdgeLine(const Point& from, const Point& to)
        : slope(static_cast<float>(int64_t{to.lat} - from.lat) /
                static_cast<float>(int64_t{to.lon} - from.lon)),
          intercept(static_cast<float>(to.lat) - slope * static_cast<float>(to.lon)) {}

    int32_t LongitudeAt(int32_t lat) const {
        return TruncateToInt32((static_cast<float>(lat) - intercept) / slope);
    }
};

inline bool LiesBetween(int32_t value, int32_t a, int32_t b) {
    return value >= std::min(a, b) && value <= std::max(a, b);
}

// Squared distance in latitude units from the target to the edge's perpendicular foot where
// that lies within the edge, else to the edge's end `to`.
uint64_t SquaredDistance(const Point& from, const Point& to, const Point& target) {
    const auto targetLat = static_cast<float>(target.lat);
    const auto targetLon = static_cast<float>(target.lon);
    float footLat;
    float footLon;
    if (from.lon == to.lon) {
        footLat = targetLat;
        footLon = static_cast<float>(to.lon);
    } else if (from.lat == to.lat) {
        footLat = static_cast<float>(to.lat);
        footLon = targetLon;
    } else {
        const EdgeLine line(from, to);
        const float s = targetLon + line.slope * targetLat;
        const float m = 1.0f + line.slope * line.slope;
        footLon = (s - line.slope * line.intercept) / m;
        footLat = (line.intercept + line.slope * s) / m;
    }
    int64_t deltaLat = int64_t{to.lat} - target.lat;
    int64_t deltaLon = int64_t{to.lon} - target.lon;
    if (LiesBetween(TruncateToInt32(footLat), to.lat, from.lat) &&
        LiesBetween(TruncateToInt32(footLon), to.lon, from.lon)) {
        deltaLat = TruncateToInt64(footLat - targetLat);
        deltaLon = TruncateToInt64(footLon - targetLon);
    }
    // Unsigned, so that far points wrap instead of overflowing.
    const auto lat = static_cast<uint64_t>(deltaLat);
    const auto lon = static_cast<uint64_t>(deltaLon);
    return lat * lat + 4 * (lon * lon);
}

// --- Points in blocks --------------------------------------------------------------------

// Loops over the slots of a block go on behind the last one, to where eight marks from there end,
// and then to the next multiple of kStep, which compilers turn into whole vectors.
constexpr size_t kStep = 16;
constexpr size_t kAhead = 8;
constexpr size_t kRoom = (kBlockPoints + 2 + kStep - 1) / kStep * kStep + kStep;

inline size_t RoundUp(size_t slots) {
    return (slots + kStep - 1) & ~(kStep - 1);
}

// Bytes, one a slot, of which eight at a time are looked at.
struct Marks {
    uint8_t at[kRoom];

    uint64_t EightFrom(size_t slot) const { return LoadLittleEndian(at + slot); }
};

// Some consecutive points of a ring, from slot 1 on; slot 0 holds the one before them. The first
// point of a ring comes again behind its last one.
struct Block {
    int32_t lat[kRoom];
    int32_t lon[kRoom];
    size_t last = 0;       // The last slot in use.
    size_t firstEdge = 1;  // The first slot that an edge leads to.

    Point At(size_t slot) const { return {lat[slot], lon[slot]}; }
    void Put(size_t slot, const Point& p) {
        lat[slot] = p.lat;
        lon[slot] = p.lon;
    }
    // Repeats the last point in the slots that loops go on to.
    void Fill() {
        const Point p = At(last);
        for (size_t i = 1; i < kStep + kAhead; ++i)
            Put(last + i, p);
    }
    size_t RoundedSlots() const { return RoundUp(last + kAhead); }
};

// Calls `visit(slot)` for each slot from `first` to `last` whose byte of `bytesOf(slot)`, the eight
// from a slot on, has its top bit set; stops where it returns false.
template <typename BytesOf, typename Visit>
inline void VisitMarked(size_t first, size_t last, BytesOf bytesOf, Visit visit) {
    for (size_t base = first; base <= last; base += 8) {
        uint64_t marked = bytesOf(base) & 0x8080808080808080u;
        if (last - base < 7) marked &= ~uint64_t{0} >> (8 * (7 - (last - base)));
        for (; marked != 0; marked &= marked - 1) {
            if (!visit(base + static_cast<size_t>(__builtin_ctzll(marked)) / 8)) return;
        }
    }
}

// The top bit of each byte of `word` that is not zero.
inline uint64_t NonZeroBytes(uint64_t word) {
    constexpr uint64_t kLow = 0x7F7F7F7F7F7F7F7Fu;
    return ((word & kLow) + kLow) | word;
}

// --- Winding -----------------------------------------------------------------------------

constexpr uint8_t kNorth = 1;   // Not south of the target.
constexpr uint8_t kEast = 2;    // Not west of it.
constexpr uint8_t kVertex = 4;  // The target itself.

// Quadrants around the target, counted counterclockwise: north-east 0, north-west 1,
// south-west 2, south-east 3.
inline int QuadrantOf(uint8_t mark) {
    constexpr unsigned kQuadrants = 2u | 1u << 2 | 3u << 4 | 0u << 6;
    return static_cast<int>(kQuadrants >> (2 * (mark & 3u)) & 3u);
}

// Counts the quarter turns that the visits of a block make around the target. Only where the
// quadrant changes is there anything to do.
struct Winding {
    int64_t quarters = 0;
    ZDLookupResult stop = ZDLookupNotInZone;  // What ended the ring, if anything did ...
    size_t stopSlot = 0;                      // ... and where.

    void Add(const Block& block, const Point& target) {
        Marks marks;
        marks.at[0] = 0;
        const size_t slots = block.RoundedSlots();
        for (size_t i = 0; i < slots; ++i) {
            const bool isVertex = (block.lat[i] == target.lat) & (block.lon[i] == target.lon);
            marks.at[i] = static_cast<uint8_t>((block.lat[i] >= target.lat ? kNorth : 0) |
                                               (block.lon[i] >= target.lon ? kEast : 0) |
                                               (isVertex ? kVertex : 0));
        }
        // A vertex hit ends the ring where it is found, so the point before was none, and the bit
        // shows as a change.
        marks.at[0] = static_cast<uint8_t>(marks.at[0] & ~kVertex);
        VisitMarked(
                1, block.last,
                [&](size_t slot) {
                    return NonZeroBytes(marks.EightFrom(slot) ^ marks.EightFrom(slot - 1));
                },
                [&](size_t slot) { return Turn(block, marks, target, slot); });
    }

    // False when the visit ends the ring.
    bool Turn(const Block& block, const Marks& marks, const Point& target, size_t slot) {
        stopSlot = slot;
        if ((marks.at[slot] & kVertex) != 0) {
            stop = ZDLookupBorderVertex;
            return false;
        }
        const int quadrant = QuadrantOf(marks.at[slot]);
        const int turn = (quadrant - QuadrantOf(marks.at[slot - 1])) & 3;
        if (turn == 1) {
            quarters += 1;
        } else if (turn == 3) {
            quarters -= 1;
        } else if (turn == 2) {
            // Opposite quadrants: the side on which the edge passes decides.
            const int32_t crossing =
                    EdgeLine(block.At(slot - 1), block.At(slot)).LongitudeAt(target.lat);
            if (crossing == target.lon) {
                stop = ZDLookupOnBorder;
                return false;
            }
            const bool southward = quadrant >= 2;
            quarters += (target.lon > crossing) == southward ? 2 : -2;
        }
        return true;
    }
};

// --- Distance ----------------------------------------------------------------------------

// Below this floats hold coordinates, and their differences, exactly.
constexpr int32_t kExactLimit = 1 << 23;

// Zero in its top bits where a coordinate lies within the limit.
inline uint32_t ExactnessOf(int32_t coordinate) {
    return static_cast<uint32_t>(coordinate) + kExactLimit;
}
inline bool AreExact(uint32_t exactness) {
    return exactness < 2 * kExactLimit;
}

// The part of the grid that an edge must reach into to come nearer than the nearest one so far.
//
// Let an edge's box lie `b` units away from the target in latitude (or in longitude, where a unit
// counts twice). Its squared distance is taken to its end, which is at least b away, or to a foot
// that truncates into the box, which is more than b - 1 away; the difference to the target is
// rounded to a float and truncated, and both leave a whole number of b - 1 or more alone while
// floats hold it exactly. So it is at least (b - 1)^2, or 4 * (b - 1)^2 in longitude, and an edge
// beyond the reach in either cannot win.
struct Reach {
    int32_t south = INT32_MIN;
    int32_t north = INT32_MAX;
    int32_t west = INT32_MIN;
    int32_t east = INT32_MAX;

    static constexpr uint64_t kInfinite = uint64_t{1} << 52;

    static Reach Around(const Point& target, uint64_t squared) {
        Reach reach;
        if (squared >= kInfinite) return reach;
        // At least the root, whatever the square root rounds.
        const auto root = static_cast<int32_t>(std::sqrt(static_cast<double>(squared))) + 1;
        reach.south = target.lat - root - 1;
        reach.north = target.lat + root + 1;
        reach.west = target.lon - root / 2 - 1;
        reach.east = target.lon + root / 2 + 1;
        return reach;
    }
};

// The bound of an edge's squared distance, for coordinates that floats hold exactly.
uint64_t LeastSquaredDistance(const Point& from, const Point& to, const Point& target) {
    const auto outside = [](int32_t a, int32_t b, int32_t t) -> int64_t {
        const int32_t away = std::max(std::min(a, b) - t, t - std::max(a, b));
        return std::max(away - 1, 0);
    };
    const int64_t lat = outside(from.lat, to.lat, target.lat);
    const int64_t lon = outside(from.lon, to.lon, target.lon);
    return static_cast<uint64_t>(lat * lat + 4 * lon * lon);
}

// Keeps the smallest squared distance of a target's edges.
class Nearest {
  public:
    Nearest(const Point& target, uint64_t* squared)
        : mTarget(target),
          mSquared(squared),
          mExactness(ExactnessOf(target.lat) | ExactnessOf(target.lon)) {}

    void Add(const Block& block) {
        const size_t slots = block.RoundedSlots();
        uint32_t exactness = mExactness;
        for (size_t i = 0; i < slots; ++i)
            exactness |= ExactnessOf(block.lat[i]) | ExactnessOf(block.lon[i]);
        if (!AreExact(exactness)) {
            for (size_t slot = block.firstEdge; slot <= block.last; ++slot)
                *mSquared = std::min(*mSquared, DistanceOf(block, slot));
            return;
        }
        if (*mSquared >= Reach::kInfinite) Start(block);
        const Reach reach = Reach::Around(mTarget, *mSquared);
        Marks sides;  // Of the reach, that a point lies beyond.
        for (size_t i = 0; i < slots; ++i) {
            sides.at[i] = static_cast<uint8_t>(
                    (block.lat[i] < reach.south ? 1 : 0) | (block.lat[i] > reach.north ? 2 : 0) |
                    (block.lon[i] < reach.west ? 4 : 0) | (block.lon[i] > reach.east ? 8 : 0));
        }
        VisitMarked(
                block.firstEdge, block.last,
                [&](size_t slot) {
                    return ~NonZeroBytes(sides.EightFrom(slot) & sides.EightFrom(slot - 1));
                },
                [&](size_t slot) {
                    AddEdge(block, slot);
                    return true;
                });
    }

  private:
    uint64_t DistanceOf(const Block& block, size_t slot) const {
        return SquaredDistance(block.At(slot - 1), block.At(slot), mTarget);
    }

    void AddEdge(const Block& block, size_t slot) {
        if (LeastSquaredDistance(block.At(slot - 1), block.At(slot), mTarget) >= *mSquared) return;
        *mSquared = std::min(*mSquared, DistanceOf(block, slot));
    }

    // Without any distance yet every edge would be in reach: begins with one beside a near point.
    void Start(const Block& block) {
        // Less than 2^26, with the slot in the place of the lowest bits.
        constexpr uint32_t kSlots = 128;
        static_assert(kRoom <= kSlots, "a slot must fit");
        uint32_t nearest = UINT32_MAX;
        const size_t slots = block.RoundedSlots();
        for (size_t i = 0; i < slots; ++i) {
            const auto lat = static_cast<uint32_t>(std::abs(block.lat[i] - mTarget.lat));
            const auto lon = static_cast<uint32_t>(std::abs(block.lon[i] - mTarget.lon));
            const uint32_t distance = std::max(lat, 2 * lon);
            nearest = std::min(nearest, (distance & ~(kSlots - 1)) | static_cast<uint32_t>(i));
        }
        if (block.firstEdge > block.last) return;
        AddEdge(block, std::clamp<size_t>(nearest & (kSlots - 1), block.firstEdge, block.last));
    }

    const Point mTarget;
    uint64_t* const mSquared;
    const uint32_t mExactness;
};

}  // namespace

ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance) {
    uint32_t count;
    if (!ReadUnsigned(cursor, &count) || count > kMaxRingPoints) return ZDLookupParsingError;

    Winding winding;
    Point first = {0, 0};
    Block block;
    block.Put(0, first);
    for (uint32_t begin = 0;; begin += kBlockPoints) {
        const size_t wanted = std::min<size_t>(count - begin, kBlockPoints);
        const bool isLastBlock = count - begin <= kBlockPoints;
        const Cursor start = *cursor;
        int32_t deltas[2 * kBlockPoints + kDeltaSlack];
        const size_t points = DecodeDeltas(cursor, deltas, 2 * wanted) / 2;
        Point point = block.At(0);
        for (size_t i = 0; i < points; ++i) {
            point = {WrappingAdd(point.lat, deltas[2 * i]),
                     WrappingAdd(point.lon, deltas[2 * i + 1])};
            block.Put(i + 1, point);
        }
        block.last = points;
        block.firstEdge = 1;
        if (begin == 0) {  // No edge leads to the first point.
            if (points > 0) first = block.At(1);
            block.Put(0, first);
            block.firstEdge = 2;
        }
        if (isLastBlock && points == wanted) block.Put(++block.last, first);  // Closes the ring.
        block.Fill();

        winding.Add(block, target);
        if (winding.stop != ZDLookupNotInZone) {
            if (minDistance != nullptr) *minDistance = 0;
            if (winding.stopSlot <= points) {
                *cursor = start;
                DecodeDeltasPortable(cursor, deltas, 2 * winding.stopSlot);
            }
            return winding.stop;
        }
        if (minDistance != nullptr) Nearest(target, minDistance).Add(block);
        if (points < wanted) return ZDLookupParsingError;
        if (isLastBlock) break;
        block.Put(0, block.At(block.last));
    }

    switch (winding.quarters) {
        case -4:
            return ZDLookupInZone;
        case 0:
            return ZDLookupNotInZone;
        case 4:
            return ZDLookupInExcludedZone;
        default:
            if (minDistance != nullptr) *minDistance = 0;
            return ZDLookupOnBorder;
    }
}

}  // namespace zonedetect
