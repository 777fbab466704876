#include <reader/exact_floats.h>  // Must be the first include.

#include "proved_tile.h"

#include <reader/format.h>
#include <reader/read_budget.h>
#include <reader/ring_walk.h>

namespace offlinetz {

namespace {

using zonedetect::Box;
using zonedetect::Point;

// A ring with more points or bytes has a border in its tile. The others outline the tile.
constexpr uint32_t kMostPoints = 8;
constexpr uint32_t kMostBytes = 64;

// The sides of a box that a point lies beyond, a bit each (Cohen and Sutherland's code).
unsigned SidesBeyond(const Box& box, const Point& p) {
    return (p.lat < box.minLat ? 1u : 0u) | (p.lat > box.maxLat ? 2u : 0u) |
           (p.lon < box.minLon ? 4u : 0u) | (p.lon > box.maxLon ? 8u : 0u);
}

// Whether the ring at `cursor` has no edge that passes `box`. `*quarterTurns` receives its winding
// number around the points of the box, in quarter turns.
bool WindsAround(const Box& box, zonedetect::Cursor* cursor, int64_t* quarterTurns) {
    uint32_t count;
    int32_t deltas[2 * kMostPoints + zonedetect::kDeltaSlack];
    if (!zonedetect::ReadUnsigned(cursor, &count) || count == 0 || count > kMostPoints ||
        zonedetect::DecodeDeltas(cursor, deltas, 2 * count) < 2 * count) {
        return false;
    }
    const Point corner = {box.minLat, box.minLon};
    const Point first = {deltas[0], deltas[1]};
    Point at = first;
    unsigned beyond = SidesBeyond(box, first);
    *quarterTurns = 0;
    for (uint32_t i = 1; i <= count; ++i) {
        const Point next = i == count ? first
                                      : Point{zonedetect::WrappingAdd(at.lat, deltas[2 * i]),
                                              zonedetect::WrappingAdd(at.lon, deltas[2 * i + 1])};
        const unsigned nextBeyond = SidesBeyond(box, next);
        if ((beyond & nextBeyond) == 0) return false;
        *quarterTurns += zonedetect::QuarterTurn(at, next, corner);
        at = next;
        beyond = nextBeyond;
    }
    return true;
}

// Whether the rings prove that at most one of them contains points of `box`, and all of them.
// `*answer` receives that ring, or null.
bool IsProved(const ZDDatabase& database, const Box& box, uint32_t unreadable,
              ZoneIndex::Step* steps, ZoneIndex::Step** answer) {
    *answer = nullptr;
    // Lookups shift their points west before they compare them with rings.
    if (box.minLon < INT32_MIN + zonedetect::kRingShift || box.minLat > box.maxLat ||
        box.minLon > box.maxLon) {
        return false;
    }
    const Box shifted = {box.minLat, box.minLon - zonedetect::kRingShift, box.maxLat,
                         box.maxLon - zonedetect::kRingShift};
    zonedetect::ReadBudget budget(database.length);
    for (ZoneIndex::Step* step = steps;; ++step) {
        // Where the next ring follows, its place tells the size of this one without a look at it.
        const uint32_t place = step->Place();
        const uint32_t next = step[1].Place();
        if (next > place && next - place > kMostBytes) return false;
        zonedetect::Cursor cursor = zonedetect::CursorAt(database, place);
        int64_t quarterTurns;
        if (!WindsAround(shifted, &cursor, &quarterTurns)) return false;
        budget.Spend(zonedetect::PositionOf(database, cursor) - int64_t{place});
        if (budget.IsSpent()) return false;
        const ZDLookupResult result = zonedetect::ResultOf(quarterTurns);
        if (result == ZDLookupInZone && *answer == nullptr && step->Zone() < unreadable) {
            *answer = step;
        } else if (result != ZDLookupNotInZone) {
            return false;
        }
        if (step->IsLast()) return true;
    }
}

}  // namespace

void MarkProved(const ZDDatabase& database, const Box& box, uint32_t unreadable,
                ZoneIndex::Step* steps) {
    using Kind = ZoneIndex::Kind;
    ZoneIndex::Step* ring;
    if (!IsProved(database, box, unreadable, steps, &ring)) return;
    const ZoneIndex::Step first = steps[0];
    if (ring == nullptr) {
        steps[0] = {Kind::kNoAnswer, first.Place(), first.Zone(), first.IsLast()};
        return;
    }
    // The order of the rings does not matter where only one of them is hit.
    const ZoneIndex::Step answer = *ring;
    *ring = {Kind::kRing, first.Place(), first.Zone(), answer.IsLast()};
    steps[0] = {Kind::kAnswer, answer.Place(), answer.Zone(), first.IsLast()};
}

}  // namespace offlinetz
