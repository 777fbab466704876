#include <reader/exact_floats.h>  // Must be the first include.

#include "coast_leaves.h"

#include "coasts.h"
#include "database.h"
#include "tile_edges.h"

namespace offlinetz {

namespace {

using zonedetect::ReadBudget;
using zonedetect::RunTree;

// Whether a run may have a coast in an area: there is sea at a corner, or beside a border. Returns
// false if a ring cannot be decoded or the budget is spent. Not inlined: the coasts take 8 KB of
// stack.
__attribute__((noinline)) bool TestRun(const offlinetz_database& database,
                                       const ZoneIndex::Step* first, const BorderArea& area,
                                       ReadBudget* budget, bool* mayHave) {
    ExactAnswers answers(database, budget);
    const UnitPlace corner = {static_cast<double>(area.Sides().minLat) + 0.75,
                              static_cast<double>(area.Sides().minLon) + 0.75};
    ZoneSet answer;
    if (!answers.At(corner, &answer)) return false;
    *mayHave = answers.IsSea(answer);
    if (*mayHave) return true;
    Coasts coasts(database, budget);
    if (!coasts.Collect(first, area)) return false;
    const auto testEdge = [&](const BorderEdge& edge) {
        if (!area.Touches(edge.from, edge.to) || !coasts.MayBe(edge) ||
            WorldPart(edge, database.units.Scale()).IsEmpty()) {
            return true;
        }
        Coasts::Sides sides;
        if (!coasts.Test(edge, 0.5, &sides)) return false;
        *mayHave = sides.hasSea[0] || sides.hasSea[1];
        return true;
    };
    bool isGood = true;
    const bool isWhole = ForEachRing(database.index, first, [&](const ZoneIndex::Step& step) {
        return ForEachBlock(*database.reader, step.Place(), budget,
                            [&](const EdgeBlock& block) {
                                for (size_t i = 0; i < block.edges && isGood && !*mayHave; ++i)
                                    isGood = testEdge({block.At(i), block.At(i + 1)});
                            }) &&
               isGood && !*mayHave;
    });
    return isWhole || *mayHave;
}

}  // namespace

void CoastLeaves::Resize(size_t nodes) {
    mLeaves = std::make_unique<std::atomic<uint8_t>[]>(nodes / kLeavesInByte + 1);
}

bool CoastLeaves::Test(const offlinetz_database& database, const RunTree::Part& leaf,
                       ReadBudget* budget, bool* mayHave) const {
    std::atomic<uint8_t>& byte = mLeaves[leaf.node / kLeavesInByte];
    const unsigned shift = kBits * (leaf.node % kLeavesInByte);
    unsigned bits = static_cast<unsigned>(byte.load(std::memory_order_relaxed)) >> shift;
    if ((bits & kKnown) == 0) {
        *mayHave = false;
        if (!ForEachRun(database.index, leaf,
                        [&](const ZoneIndex::Step* first, const BorderArea& area) {
                            return *mayHave || TestRun(database, first, area, budget, mayHave);
                        })) {
            return false;
        }
        bits = kKnown | (*mayHave ? kCoast : 0u);
        byte.fetch_or(static_cast<uint8_t>(bits << shift), std::memory_order_relaxed);
    }
    *mayHave = (bits & kCoast) != 0;
    return true;
}

}  // namespace offlinetz
