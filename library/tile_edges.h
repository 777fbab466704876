// The edges of a tile's rings, decoded block by block.
//
// Sources that include this header include exact_floats.h before all others.
#pragma once

#include <reader/read_budget.h>
#include <reader/ring_walk.h>

#include <algorithm>

#include "zone_index.h"

namespace offlinetz {

// The budget of a question for distances, and of opening a database for them, is that of so many
// lookups: a border takes a few looks on the sphere, and all borders of a small database may be
// equally far away.
constexpr int64_t kBudgetLookups = 16;

// Consecutive edges of a ring in true units, without kRingShift: edge i leads from vertex i to
// vertex i + 1.
struct EdgeBlock {
    static constexpr size_t kMost = zonedetect::kBlockSteps + 1;  // With the closing edge.
    static constexpr size_t kRoom = kMost + zonedetect::kLanes;   // Lanes reach past the end.

    int32_t lat[kRoom + 1];  // Behind the last vertex that vertex again.
    int32_t lon[kRoom + 1];
    size_t edges = 0;

    // cppcheck-suppress uninitMemberVar ; the first `edges` + 1 vertices are filled.
    EdgeBlock() {}  // NOLINT(modernize-use-equals-default): a default would clear the arrays.

    zonedetect::Point At(size_t i) const { return {lat[i], lon[i]}; }
    void Append(const zonedetect::Point& to) {
        ++edges;
        lat[edges] = to.lat;
        lon[edges] = to.lon;
    }
    void Pad() {
        std::fill_n(&lat[edges + 1], zonedetect::kLanes, lat[edges]);
        std::fill_n(&lon[edges + 1], zonedetect::kLanes, lon[edges]);
    }
};

// Calls visit(block) for each block of edges of the ring at `place`, and charges what was read to
// `budget`, and something for the ring itself. Returns false if the ring cannot be decoded or the
// budget is spent.
template <typename Visit>
bool ForEachBlock(const ZDDatabase& reader, uint32_t place, zonedetect::ReadBudget* budget,
                  const Visit& visit) {
    using zonedetect::WrappingAdd;
    zonedetect::Cursor cursor = zonedetect::CursorAt(reader, place);
    zonedetect::RingReader ring(&cursor);
    zonedetect::Point at;
    if (!ring.Begin(&at)) return false;
    at.lon = WrappingAdd(at.lon, zonedetect::kRingShift);
    const zonedetect::Point first = at;
    EdgeBlock block;
    while (const zonedetect::StepBlock* steps = ring.Next()) {
        block.edges = 0;
        block.lat[0] = at.lat;
        block.lon[0] = at.lon;
        for (size_t i = 0; i < steps->steps; ++i) {
            at = {WrappingAdd(at.lat, steps->deltas[2 * i]),
                  WrappingAdd(at.lon, steps->deltas[2 * i + 1])};
            block.Append(at);
        }
        if (steps->closes) block.Append(first);
        block.Pad();
        visit(block);
        if (!steps->isWhole) return false;
    }
    constexpr int64_t kRingBytes = 32;  // A ring takes as long as the reading of so many bytes.
    budget->Spend(kRingBytes + int64_t{zonedetect::PositionOf(reader, cursor)} - place);
    return !budget->IsSpent();
}

// Calls visit(step) for each ring of the run whose first step is given, as long as it returns true,
// and returns whether it did for all.
template <typename Visit>
bool ForEachRing(const ZoneIndex& index, const ZoneIndex::Step* step, const Visit& visit) {
    const bool isBoxed = step->KindOf() == ZoneIndex::Kind::kBox;
    if (!visit(isBoxed ? index.BoxOf(*step).ring : *step)) return false;
    while (!step->IsLast()) {
        ++step;
        if (!visit(*step)) return false;
    }
    return true;
}

}  // namespace offlinetz
