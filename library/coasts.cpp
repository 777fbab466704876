#include <reader/exact_floats.h>  // Must be the first include.

#include "coasts.h"

#include <algorithm>

#include "tile_edges.h"

namespace offlinetz {

namespace {

using zonedetect::Point;

constexpr uint32_t kMultiplier = 0x9E3779B1u;  // Knuth's multiplicative hashing.

uint32_t Mixed(uint32_t hash, const Point& p) {
    hash = (hash ^ static_cast<uint32_t>(p.lat)) * kMultiplier;
    return (hash ^ (hash >> 15) ^ static_cast<uint32_t>(p.lon)) * kMultiplier;
}

// The upper bits are the best ones.
template <size_t kSize>
size_t PlaceIn(uint32_t hash) {
    return static_cast<size_t>(uint64_t{hash} * kSize >> 32);
}

}  // namespace

bool Coasts::Collect(const ZoneIndex::Step* first, const BorderArea& area) {
    mArea = area.Sides();
    mHasLast = false;
    std::fill_n(mAlong, kSlots, uint8_t{0});
    std::fill_n(mBack, kSlots, uint8_t{0});
    std::fill_n(mEnds, kVertices, uint8_t{0});
    return ForEachRing(mDatabase.index, first, [&](const ZoneIndex::Step& step) {
        return ForEachBlock(*mDatabase.reader, step.Place(), &mBudget, [&](const EdgeBlock& block) {
            for (size_t i = 0; i < block.edges; ++i)
                Add(block.At(i), block.At(i + 1));
        });
    });
}

void Coasts::Add(const Point& from, const Point& to) {
    if (std::max(from.lat, to.lat) < mArea.minLat || std::min(from.lat, to.lat) > mArea.maxLat ||
        std::max(from.lon, to.lon) < mArea.minLon || std::min(from.lon, to.lon) > mArea.maxLon) {
        return;
    }
    for (const Point& end : {from, to}) {
        uint8_t& ends = mEnds[PlaceIn<kVertices>(Mixed(0, end))];
        if (ends < UINT8_MAX) ++ends;
    }
    const BorderEdge edge(from, to);
    const size_t slot = SlotOf(edge);
    if (slot == kSlots) return;
    mSlots[slot] = {edge.from, edge.to};
    uint8_t& rings = IsSame(edge.from, from) ? mAlong[slot] : mBack[slot];
    if (rings < kMost) ++rings;
}

// The slot of an edge, a free one if it has none, or kSlots if none is free near its hash.
size_t Coasts::SlotOf(const BorderEdge& edge) const {
    size_t slot = PlaceIn<kSlots>(Mixed(Mixed(0, edge.from), edge.to));
    for (size_t probe = 0; probe < kMostProbes; ++probe) {
        if (RingsOf(slot) == 0 ||
            (IsSame(mSlots[slot].from, edge.from) && IsSame(mSlots[slot].to, edge.to))) {
            return slot;
        }
        slot = (slot + 1) % kSlots;
    }
    return kSlots;
}

bool Coasts::MayBe(const BorderEdge& edge) const {
    const size_t slot = SlotOf(edge);
    return slot == kSlots || mAlong[slot] == 0 || mBack[slot] == 0;
}

// Whether an edge leads on from the last one at a vertex where no other edge ends.
bool Coasts::ContinuesLast(const BorderEdge& edge) const {
    const size_t last = SlotOf(mLast);
    const size_t next = SlotOf(edge);
    if (last == kSlots || next == kSlots) return false;
    const auto leadsOnAt = [&](const Point& vertex) {
        return (IsSame(vertex, mLast.from) || IsSame(vertex, mLast.to)) &&
               vertex.lat > mArea.minLat && vertex.lat < mArea.maxLat &&
               vertex.lon > mArea.minLon && vertex.lon < mArea.maxLon &&
               mEnds[PlaceIn<kVertices>(Mixed(0, vertex))] == RingsOf(last) + RingsOf(next);
    };
    return leadsOnAt(edge.from) || leadsOnAt(edge.to);
}

bool Coasts::Test(const BorderEdge& edge, double share, Sides* sides) {
    *sides = {{false, false}};
    if (!mHasLast || !ContinuesLast(edge)) {
        ZoneSet answers[2];
        if (!mAnswers.Beside(edge, share, answers)) return false;
        *sides = {{mAnswers.IsSea(answers[0]), mAnswers.IsSea(answers[1])}};
    }
    mHasLast = !sides->hasSea[0] && !sides->hasSea[1];
    if (mHasLast) mLast = edge;
    return true;
}

}  // namespace offlinetz
