#include "segment_rtree.h"

#include <algorithm>
#include <utility>

namespace offlinetz {

namespace {

constexpr size_t kLeafSegments = 8;

// The Morton code (Morton, 1966): the bits of both coordinates interleaved. Points with close codes
// lie close to each other.
uint64_t MortonCode(const GridPoint& p) {
    const auto spread = [](int32_t coordinate) {
        uint64_t bits = static_cast<uint32_t>(coordinate) ^ 0x80000000u;
        bits = (bits | bits << 16) & 0x0000FFFF0000FFFFu;
        bits = (bits | bits << 8) & 0x00FF00FF00FF00FFu;
        bits = (bits | bits << 4) & 0x0F0F0F0F0F0F0F0Fu;
        bits = (bits | bits << 2) & 0x3333333333333333u;
        return (bits | bits << 1) & 0x5555555555555555u;
    };
    return spread(p.lat) << 1 | spread(p.lon);
}

GridBox Union(const GridBox& x, const GridBox& y) {
    return {{std::min(x.min.lat, y.min.lat), std::min(x.min.lon, y.min.lon)},
            {std::max(x.max.lat, y.max.lat), std::max(x.max.lon, y.max.lon)}};
}

bool Overlap(const GridBox& x, const GridBox& y) {
    return x.min.lat <= y.max.lat && y.min.lat <= x.max.lat && x.min.lon <= y.max.lon &&
           y.min.lon <= x.max.lon;
}

int64_t FloorDivide(int64_t dividend, int64_t divisor) {
    const int64_t quotient = dividend / divisor;
    return dividend % divisor != 0 && (dividend < 0) != (divisor < 0) ? quotient - 1 : quotient;
}

}  // namespace

// A search for the first edge in a strip in front of a side. The "height" of a point is its
// coordinate along the side's outward direction, so that heights rise outward.
struct SegmentRTree::Search {
    const GridBox& ignored;
    BoxSide side;
    GridBox strip;
    int32_t first;    // The height at which the strip begins.
    int32_t nearest;  // The lowest height of an edge so far: edges from here on do not matter.

    int32_t HeightOf(const GridPoint& p) const { return side.sign * p.*side.axis; }

    // The lowest height of the part of a segment that lies in the strip's width, rounded down.
    int32_t LowestInWidth(const GridPoint& a, const GridPoint& b) const {
        int32_t GridPoint::*const across = side.CrossAxis();
        const auto heightInWidth = [&](const GridPoint& end, const GridPoint& other) -> int64_t {
            const int64_t cut = std::clamp(end.*across, strip.min.*across, strip.max.*across);
            if (cut == end.*across) return HeightOf(end);
            return HeightOf(end) +
                   FloorDivide((int64_t{HeightOf(other)} - HeightOf(end)) * (cut - end.*across),
                               int64_t{other.*across} - end.*across);
        };
        // The segment does not touch the side itself, but rounded down it could fall behind it.
        return std::max(static_cast<int32_t>(std::min(heightInWidth(a, b), heightInWidth(b, a))),
                        first);
    }
};

SegmentRTree::SegmentRTree(const std::vector<ZoneRings>& zones) {
    for (const ZoneRings& rings : zones) {
        for (const GridRing& ring : rings) {
            for (size_t i = 0; i < ring.size(); ++i) {
                const auto [a, b] = std::minmax(ring[i], ring[NextIndex(i, ring.size())]);
                mSegments.push_back({a, b});
            }
        }
    }
    std::sort(mSegments.begin(), mSegments.end());
    mSegments.erase(std::unique(mSegments.begin(), mSegments.end()), mSegments.end());
    std::stable_sort(mSegments.begin(), mSegments.end(), [](const Segment& x, const Segment& y) {
        return MortonCode(x.a) < MortonCode(y.a);
    });

    const size_t leaves = (mSegments.size() + kLeafSegments - 1) / kLeafSegments;
    size_t width = 1;
    while (width < leaves)
        width *= 2;
    mFirstLeaf = width - 1;
    const GridBox nothing = {{INT32_MAX, INT32_MAX}, {INT32_MIN, INT32_MIN}};
    mBoxes.assign(mFirstLeaf + width, nothing);
    for (size_t i = 0; i < mSegments.size(); ++i) {
        const Segment& s = mSegments[i];
        GridBox& box = mBoxes[mFirstLeaf + i / kLeafSegments];
        box = Union(box, BoxOf({s.a, s.b}));
    }
    for (size_t node = mFirstLeaf; node-- > 0;)
        mBoxes[node] = Union(mBoxes[2 * node + 1], mBoxes[2 * node + 2]);
}

bool SegmentRTree::Grow(GridBox* box, const BoxSide& side, int32_t limit,
                        const GridBox& ignored) const {
    GridBox strip = *box;
    side.Opposite().Of(&strip) = side.Of(*box) + side.sign;
    side.Of(&strip) = limit;
    const int32_t beyond = side.sign * limit + 1;
    Search search = {ignored, side, strip, side.sign * side.Of(*box) + 1, beyond};
    Visit(0, &search);
    side.Of(box) = side.sign * (search.nearest - 1);
    return search.nearest != beyond;
}

void SegmentRTree::Visit(size_t node, Search* search) const {
    if (!Overlap(mBoxes[node], search->strip)) return;
    const int32_t lowest = search->side.sign * search->side.Opposite().Of(mBoxes[node]);
    if (lowest >= search->nearest) return;
    if (node < mFirstLeaf) {
        Visit(2 * node + 1, search);
        Visit(2 * node + 2, search);
        return;
    }
    const size_t first = (node - mFirstLeaf) * kLeafSegments;
    const size_t last = std::min(first + kLeafSegments, mSegments.size());
    for (size_t i = first; i < last; ++i) {
        const Segment& s = mSegments[i];
        if (!TouchesBox(s.a, s.b, search->strip) || TouchesBox(s.a, s.b, search->ignored)) continue;
        search->nearest = std::min(search->nearest, search->LowestInWidth(s.a, s.b));
    }
}

}  // namespace offlinetz
