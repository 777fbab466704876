// Answers at places between grid points: the zones beside a border, and beyond it.
#pragma once

#include <reader/read_budget.h>

#include <cstddef>
#include <cstdint>

#include "border_edge.h"
#include "database.h"

namespace offlinetz {

// The ids of an answer, in ascending order.
struct ZoneSet {
    static constexpr size_t kMost = 64;  // More are left out; honest answers have a few.

    int32_t ids[kMost];
    size_t count = 0;

    // cppcheck-suppress uninitMemberVar ; the first `count` ids are filled.
    ZoneSet() {}  // NOLINT(modernize-use-equals-default): a default would clear the array.

    void Add(int32_t id);
    friend bool operator==(const ZoneSet& a, const ZoneSet& b);
    friend bool operator!=(const ZoneSet& a, const ZoneSet& b) { return !(a == b); }
};

// The distance in units from a line to the places that stand for its sides: less than a millimetre
// at precision 21.
constexpr double kBeside = 0x1p-16;

// Answers at places that are not grid points, by winding numbers in double precision. Each function
// reads the tile of the place and charges that to the budget. It returns false if a ring cannot be
// decoded or the budget is spent.
class ExactAnswers {
  public:
    ExactAnswers(const offlinetz_database& database, zonedetect::ReadBudget* budget)
        : mDatabase(database), mBudget(*budget) {}

    // The answer at a place that is on no border. Without zones it is the nautical zone, if there
    // is one, and else empty.
    bool At(const UnitPlace& place, ZoneSet* answer);

    // Whether an answer is a nautical zone.
    bool IsSea(const ZoneSet& answer) const {
        return answer.count > 0 && mDatabase.names.IsNautical(answer.ids[0]);
    }

    // The answers on both sides of an edge at a place of it: on the eastern and the western side,
    // or on the northern and the southern one if it runs along a parallel. They are the same where
    // the edge is no border. Where the edge runs along the meridian between two nautical zones,
    // each side has its own.
    bool Beside(const BorderEdge& edge, double share, ZoneSet answers[2]);

    // The answer beyond the nearest place to `origin` on an edge. `own` is that at the origin.
    // `*isBorder` becomes false if the answer does not change there; then `beyond` is not set.
    //
    // At a vertex several borders may meet. Then the one counts whose direction is nearest to the
    // direction from the origin; of equals the one to the southernmost, then westernmost vertex. Of
    // its sides the one in that direction is beyond, or the other one if this has the own answer.
    // That happens at corners, and within a grid diagonal of a border, where lookups may already
    // answer for its other side.
    bool Beyond(const Origin& origin, const ZoneSet& own, const BorderEdge& edge, double share,
                ZoneSet* beyond, bool* isBorder);

  private:
    struct Windings;
    struct Arms;

    // Calls visit(zone, block) for each block of the rings in the tile of a place.
    template <typename Visit>
    bool ForEachBlockAt(const UnitPlace& place, const Visit& visit);
    void AnswerOf(const Windings& windings, bool isAcross, double lon, ZoneSet* answer) const;
    bool FindArms(const zonedetect::Point& vertex, Arms* arms);
    // The same for one edge of a vertex, or for a place between its ends.
    bool BeyondEdge(const Origin::Direction& onward, const ZoneSet& own, const BorderEdge& edge,
                    double share, ZoneSet* beyond, bool* isBorder);

    const offlinetz_database& mDatabase;
    zonedetect::ReadBudget& mBudget;
};

}  // namespace offlinetz
