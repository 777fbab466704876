#include "exact_floats.h"  // Must be the first include.

#include "ring.h"

#include <algorithm>

#include "ring_walk.h"

namespace zonedetect {

namespace {

// The distance of the reader's interface.
struct ReaderDistance {
    static constexpr bool kMeasures = true;
    struct Lanes : NearestDistance {
        Lanes(const Point& target, const Point& start, const ReaderDistance& measure)
            : NearestDistance(target, start, measure.squared) {}
    };

    void Take(const Lanes& lanes) { squared = lanes.Smallest(squared); }
    void Add(const Point& from, const Point& to, const Point& target) {
        squared = std::min(squared, SquaredDistance(from, to, target));
    }

    uint64_t squared;  // The smallest, in units of latitude.
};

}  // namespace

ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance) {
    RingReader ring(cursor);
    if (minDistance == nullptr) {
        NoDistance none;
        return WalkRing(&ring, target, &none);
    }
    ReaderDistance distance = {*minDistance};
    const ZDLookupResult result = WalkRing(&ring, target, &distance);
    const bool isOnBorder = result == ZDLookupBorderVertex || result == ZDLookupOnBorder;
    *minDistance = isOnBorder ? 0 : distance.squared;
    return result;
}

}  // namespace zonedetect
