#include "cut.h"

#include <algorithm>
#include <array>

namespace offlinetz {

namespace {

constexpr size_t kReaderMaxPoints = 1000000;
constexpr size_t kFencePoints = 10;  // What AddFence adds to a piece.

// Distances from a piece's box, in units. Edges that come within kKeepMargin stay, whatever the
// reader's shift (3 units) and its rounding of crossings do; the fence stands there; detours run
// further out, so that no smaller box of a later cut keeps their edges.
constexpr int32_t kKeepMargin = 6;
constexpr int32_t kDetourMargin = 12;
constexpr int32_t kMinBoxUnits = 64;  // Boxes are not cut smaller, however many points they hold.

// The eight regions around a box, counterclockwise from east; odd ones are the corners.
enum Region { kEast, kNorthEast, kNorth, kNorthWest, kWest, kSouthWest, kSouth, kSouthEast };

// Corner points of a box by quarter: north-east, north-west, south-west, south-east.
std::array<GridPoint, 4> CornersOf(const GridBox& box) {
    return {box.max, GridPoint{box.max.lat, box.min.lon}, box.min,
            GridPoint{box.min.lat, box.max.lon}};
}

// The region of a point outside `box`.
int RegionOf(const GridPoint& p, const GridBox& box) {
    const int x = p.lon > box.max.lon ? 1 : (p.lon < box.min.lon ? -1 : 0);
    const int y = p.lat > box.max.lat ? 1 : (p.lat < box.min.lat ? -1 : 0);
    static constexpr int kRegions[3][3] = {
            {kSouthWest, kSouth, kSouthEast}, {kWest, -1, kEast}, {kNorthWest, kNorth, kNorthEast}};
    return kRegions[y + 1][x + 1];
}

// Whether two points outside `box` lie beyond the same side of it.
bool ShareSide(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    return (p.lat > box.max.lat && q.lat > box.max.lat) ||
           (p.lat < box.min.lat && q.lat < box.min.lat) ||
           (p.lon > box.max.lon && q.lon > box.max.lon) ||
           (p.lon < box.min.lon && q.lon < box.min.lon);
}

bool Touches(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    if (ShareSide(p, q, box)) return false;
    // The line misses the box when all corners lie on one side of it.
    bool left = false;
    bool right = false;
    for (const GridPoint& corner : CornersOf(box)) {
        const int64_t side = Cross(p, q, corner);
        left = left || side >= 0;
        right = right || side <= 0;
    }
    return left && right;
}

// The eighths of a turn around `box`, counterclockwise, that an edge makes which does not touch
// it.
int TurnOf(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    const int difference = (RegionOf(q, box) - RegionOf(p, box)) & 7;
    if (difference == 0) return 0;
    if (ShareSide(p, q, box)) return difference <= 2 ? difference : difference - 8;
    const GridPoint center = {box.min.lat + (box.max.lat - box.min.lat) / 2,
                              box.min.lon + (box.max.lon - box.min.lon) / 2};
    return Cross(p, q, center) > 0 ? difference : difference - 8;
}

// What is left of a ring around a box.
struct Reduced {
    GridRing ring;     // Empty when no edge comes near the box.
    int winding = 0;   // For an empty ring: its counterclockwise windings around the box.
    bool cut = false;  // Whether anything of the ring is missing.
};

// Replaces each stretch of edges away from `keep` by a detour around it that turns as often.
Reduced Reduce(const GridRing& ring, const GridBox& box) {
    const GridBox keep = box.Expanded(kKeepMargin);
    const auto corners = CornersOf(box.Expanded(kDetourMargin));
    const size_t count = ring.size();
    const auto at = [&](size_t i) -> const GridPoint& { return ring[i % count]; };
    const auto touches = [&](size_t i) { return Touches(at(i), at(i + 1), keep); };

    Reduced reduced;
    size_t start = 0;
    while (start < count && !touches(start))
        ++start;
    if (start == count) {
        int turn = 0;
        for (size_t i = 0; i < count; ++i)
            turn += TurnOf(at(i), at(i + 1), keep);
        reduced.winding = turn / 8;
        reduced.cut = true;
        return reduced;
    }
    for (size_t i = start; i < start + count;) {
        reduced.ring.push_back(at(i));
        if (touches(i)) {
            ++i;
            continue;
        }
        const int region = RegionOf(at(i), keep);
        const size_t stretchStart = i;
        int turn = 0;
        for (; i < start + count && !touches(i); ++i)
            turn += TurnOf(at(i), at(i + 1), keep);
        // A single edge stays as it is; it is its own shortest detour.
        if (i == stretchStart + 1) continue;
        reduced.cut = true;
        const int step = turn > 0 ? 1 : -1;
        for (int t = step; t != turn && turn != 0; t += step) {
            const int passed = (region + t) & 7;
            if (passed % 2 == 1) reduced.ring.push_back(corners[static_cast<size_t>(passed / 2)]);
        }
    }
    return reduced;
}

// A path along the box and back: it encloses nothing, but is as near as anything outside.
GridRing Fence(const GridBox& box, size_t firstCorner) {
    const auto corners = CornersOf(box.Expanded(kKeepMargin));
    GridRing fence;
    for (const size_t step : std::array<size_t, 8>{0, 1, 2, 3, 0, 3, 2, 1}) {
        fence.push_back(corners[(firstCorner + step) % 4]);
    }
    return fence;
}

// Hangs the fence on a vertex of a reduced ring that lies outside the box, on a side that it
// shares with a corner of the fence, so that the way there and back stays outside.
void AddFence(const GridBox& box, GridRing* ring) {
    const GridBox keep = box.Expanded(kKeepMargin - 1);
    const auto outside = std::find_if(ring->begin(), ring->end(),
                                      [&](const GridPoint& p) { return !keep.Contains(p); });
    if (outside == ring->end()) return;  // All inside: nothing was cut off.
    const GridPoint vertex = *outside;
    // The corner of the vertex's own region, or one at the end of its side.
    const int region = RegionOf(vertex, keep);
    const auto corner = static_cast<size_t>(region % 2 == 1 ? region / 2 : (region / 2) % 4);
    GridRing detour = Fence(box, corner);
    detour.push_back(detour.front());
    detour.push_back(vertex);
    ring->insert(outside + 1, detour.begin(), detour.end());
}

class Cutter {
  public:
    Cutter(size_t maxPoints, bool clockwise, std::vector<Piece>* pieces)
        : mMaxPoints(maxPoints), mClockwise(clockwise), mPieces(pieces) {}

    void Cut(const GridRing& ring, const GridBox& box, bool isCut) {
        const int32_t height = box.max.lat - box.min.lat;
        const int32_t width = box.max.lon - box.min.lon;
        if (ring.size() <= mMaxPoints || std::max(height, width) < kMinBoxUnits) {
            GridRing piece = ring;
            if (isCut) AddFence(box, &piece);
            mPieces->push_back({box, std::move(piece)});
            return;
        }
        GridBox low = box;
        GridBox high = box;
        if (height > width) {
            low.max.lat = box.min.lat + height / 2;
            high.min.lat = low.max.lat + 1;
        } else {
            low.max.lon = box.min.lon + width / 2;
            high.min.lon = low.max.lon + 1;
        }
        for (const GridBox& half : {low, high}) {
            Reduced reduced = Reduce(ring, half);
            if (!reduced.ring.empty()) {
                Cut(reduced.ring, half, isCut || reduced.cut);
            } else if (reduced.winding == 0) {
                mPieces->push_back({half, Fence(half, 0)});
            } else {
                mPieces->push_back({half, Frame(half)});
            }
        }
    }

  private:
    // A ring around a box that lies wholly inside the ring.
    GridRing Frame(const GridBox& box) const {
        const auto corners = CornersOf(box.Expanded(kKeepMargin));  // Counterclockwise.
        GridRing frame(corners.begin(), corners.end());
        if (mClockwise) std::reverse(frame.begin(), frame.end());
        return frame;
    }

    size_t mMaxPoints;
    bool mClockwise;
    std::vector<Piece>* mPieces;
};

}  // namespace

std::vector<Piece> CutRing(const GridRing& ring, size_t maxPoints) {
    std::vector<Piece> pieces;
    constexpr size_t kMost = kReaderMaxPoints - kFencePoints;
    const size_t limit = maxPoints == 0 ? kMost : std::min(maxPoints, kMost);
    GridBox box = BoxOf(ring);
    box.min.lon -= kReaderShift;  // The box also holds the ring where it is stored.
    Cutter(limit, DoubleArea(ring) < 0, &pieces).Cut(ring, box, false);
    return pieces;
}

}  // namespace offlinetz
