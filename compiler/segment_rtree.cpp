#include "segment_rtree.h"

#include <algorithm>
#include <utility>

namespace offlinetz {

namespace {

constexpr size_t kLeafSegments = 8;

// Interleaves the bits of a point's coordinates: points near each other get near numbers.
uint64_t CurvePosition(const GridPoint& p) {
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

GridBox Joined(const GridBox& x, const GridBox& y) {
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

// A search for the first edge in a strip, seen with the strip's direction as "up": `Along` is the
// coordinate that the side moves in, made to rise outward, `across` the other one.
struct SegmentRTree::Search {
    const GridBox& ignored;
    Side side;
    GridBox strip;
    int32_t first;    // Along: where the strip begins.
    int32_t nearest;  // Along: edges from here on do not matter.

    bool IsVertical() const { return side == Side::kNorth || side == Side::kSouth; }
    int32_t Sign() const { return side == Side::kNorth || side == Side::kEast ? 1 : -1; }
    int32_t Along(const GridPoint& p) const { return Sign() * (IsVertical() ? p.lat : p.lon); }
    int32_t Across(const GridPoint& p) const { return IsVertical() ? p.lon : p.lat; }

    // The lowest along-coordinate of the part of a segment that lies in the strip's width, rounded
    // down.
    int32_t LowestInWidth(const GridPoint& a, const GridPoint& b) const {
        const int32_t from = Across(strip.min);
        const int32_t to = Across(strip.max);
        const auto at = [&](const GridPoint& end, const GridPoint& other) -> int64_t {
            const int32_t across = Across(end);
            if (across >= from && across <= to) return Along(end);
            const int32_t cut = across < from ? from : to;
            return Along(end) +
                   FloorDivide((int64_t{Along(other)} - Along(end)) * (int64_t{cut} - across),
                               int64_t{Across(other)} - across);
        };
        // Rounded down it could fall behind the side itself, which the segment does not touch.
        return std::max(static_cast<int32_t>(std::min(at(a, b), at(b, a))), first);
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
        return CurvePosition(x.a) < CurvePosition(y.a);
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
        box = Joined(box, BoxOf({s.a, s.b}));
    }
    for (size_t node = mFirstLeaf; node-- > 0;)
        mBoxes[node] = Joined(mBoxes[2 * node + 1], mBoxes[2 * node + 2]);
}

bool SegmentRTree::Grow(GridBox* box, Side side, int32_t limit, const GridBox& ignored) const {
    Search search = {ignored, side, *box, 0, 0};
    int32_t* moved;
    switch (side) {
        case Side::kNorth:
            search.strip.min.lat = box->max.lat + 1;
            search.strip.max.lat = limit;
            moved = &box->max.lat;
            break;
        case Side::kEast:
            search.strip.min.lon = box->max.lon + 1;
            search.strip.max.lon = limit;
            moved = &box->max.lon;
            break;
        case Side::kSouth:
            search.strip.max.lat = box->min.lat - 1;
            search.strip.min.lat = limit;
            moved = &box->min.lat;
            break;
        default:
            search.strip.max.lon = box->min.lon - 1;
            search.strip.min.lon = limit;
            moved = &box->min.lon;
            break;
    }
    search.first = search.Sign() * *moved + 1;
    const int32_t beyond = search.Sign() * limit + 1;
    search.nearest = beyond;
    Visit(0, &search);
    *moved = search.Sign() * (search.nearest - 1);
    return search.nearest != beyond;
}

void SegmentRTree::Visit(size_t node, Search* search) const {
    if (!Overlap(mBoxes[node], search->strip)) return;
    const int32_t lowest =
            std::min(search->Along(mBoxes[node].min), search->Along(mBoxes[node].max));
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
