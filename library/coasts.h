// Coasts: borders with sea on one side, where no zone is.
//
// Sources that include this header include exact_floats.h before all others.
#pragma once

#include <cstdint>

#include "border_edge.h"
#include "exact_answers.h"

namespace offlinetz {

// Tells which edges of the rings of a run are coasts.
//
// A border between two zones is an edge of both, in opposite directions: it is no coast. An edge in
// one direction is a coast unless another zone covers both of its sides. That takes a look at all
// rings, but not for each edge: along a line that no other line meets, it stays the same.
//
// The edges and vertices are in hash tables of fixed size, on the stack. What finds no room in them
// costs more looks.
class Coasts {
  public:
    // Borrows the arguments. What is read is charged to the budget.
    // cppcheck-suppress uninitMemberVar ; Collect fills the tables.
    Coasts(const offlinetz_database& database, zonedetect::ReadBudget* budget)
        : mDatabase(database), mBudget(*budget), mAnswers(database, budget) {}

    // Takes the rings of a run, whose first step is given, and their borders in an area. Returns
    // false if a ring cannot be decoded or the budget is spent.
    bool Collect(const ZoneIndex::Step* first, const BorderArea& area);

    // Whether an edge that touches the area may be a coast.
    bool MayBe(const BorderEdge& edge) const;
    // On which sides it has sea, for edges that may be a coast: those of ExactAnswers::Beside.
    // Returns false if a ring cannot be decoded or the budget is spent.
    struct Sides {
        bool hasSea[2];
    };
    bool Test(const BorderEdge& edge, double share, Sides* sides);

  private:
    static constexpr size_t kSlots = 384;
    static constexpr size_t kVertices = 1024;
    static constexpr size_t kMostProbes = 16;
    static constexpr uint8_t kMost = 15;

    void Add(const zonedetect::Point& from, const zonedetect::Point& to);
    size_t SlotOf(const BorderEdge& edge) const;
    int RingsOf(size_t slot) const { return mAlong[slot] + mBack[slot]; }
    bool ContinuesLast(const BorderEdge& edge) const;

    const offlinetz_database& mDatabase;
    zonedetect::ReadBudget& mBudget;
    ExactAnswers mAnswers;
    zonedetect::Box mArea = {0, 0, -1, -1};
    // The ends of an edge, and how many rings run along it and back, up to kMost. A slot is found
    // by linear probing.
    struct Slot {
        zonedetect::Point from;
        zonedetect::Point to;
    };
    Slot mSlots[kSlots];
    uint8_t mAlong[kSlots];
    uint8_t mBack[kSlots];
    // For each hash of a vertex: how many ends of edges, counted once for each ring, have it.
    uint8_t mEnds[kVertices];
    // The last edge that Test found to be no coast.
    bool mHasLast = false;
    BorderEdge mLast = {{0, 0}, {0, 0}};
};

}  // namespace offlinetz
