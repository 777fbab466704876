#include <reader/exact_floats.h>  // Must be the first include.

#include "border_edge.h"

#include <algorithm>
#include <cmath>

namespace offlinetz {

using zonedetect::Point;

UnitPlace BorderEdge::At(double share) const {
    const auto lat = static_cast<double>(from.lat);
    const auto lon = static_cast<double>(from.lon);
    return {lat + share * (static_cast<double>(to.lat) - lat),
            lon + share * (static_cast<double>(to.lon) - lon)};
}

// Liang and Barsky, "A new concept and method for line clipping", 1984. The sides of the world do
// not belong to it.
WorldPart::WorldPart(const BorderEdge& edge, double scale) : first(0.0), last(1.0) {
    const auto clip = [&](int32_t fromUnits, int32_t toUnits) {
        const auto from = static_cast<double>(fromUnits);
        const auto to = static_cast<double>(toUnits);
        const double least = std::min(from, to);
        const double most = std::max(from, to);
        if (most <= -scale || least >= scale || least < -2.0 * scale || most > 2.0 * scale) {
            last = -1.0;
            return;
        }
        const double by = to - from;
        if (from < -scale) first = std::max(first, (-scale - from) / by);
        if (from > scale) first = std::max(first, (scale - from) / by);
        if (to < -scale) last = std::min(last, (-scale - from) / by);
        if (to > scale) last = std::min(last, (scale - from) / by);
    };
    clip(edge.from.lat, edge.to.lat);
    clip(edge.from.lon, edge.to.lon);
}

BorderArea::BorderArea(const ZoneIndex& index, const zonedetect::Box& leaf,
                       const ZoneIndex::Step& step)
    : mBox(leaf) {
    if (step.KindOf() == ZoneIndex::Kind::kBox) {
        const zonedetect::Box& own = index.BoxOf(step).box;
        mBox = {std::max(mBox.minLat, own.minLat), std::max(mBox.minLon, own.minLon),
                std::min(mBox.maxLat, own.maxLat), std::min(mBox.maxLon, own.maxLon)};
    }
    if (!IsEmpty()) mBox = {mBox.minLat - 1, mBox.minLon - 1, mBox.maxLat + 1, mBox.maxLon + 1};
}

bool BorderArea::Touches(const Point& a, const Point& b) const {
    if ((a.lat < mBox.minLat && b.lat < mBox.minLat) ||
        (a.lat > mBox.maxLat && b.lat > mBox.maxLat) ||
        (a.lon < mBox.minLon && b.lon < mBox.minLon) ||
        (a.lon > mBox.maxLon && b.lon > mBox.maxLon)) {
        return false;
    }
    const auto lat = static_cast<double>(a.lat);
    const auto lon = static_cast<double>(a.lon);
    const double byLat = static_cast<double>(b.lat) - lat;
    const double byLon = static_cast<double>(b.lon) - lon;
    // It touches unless all corners are on one side of its line.
    const auto sideOf = [&](int32_t cornerLat, int32_t cornerLon) {
        return byLon * (static_cast<double>(cornerLat) - lat) -
               byLat * (static_cast<double>(cornerLon) - lon);
    };
    const double a1 = sideOf(mBox.minLat, mBox.minLon);
    const double a2 = sideOf(mBox.minLat, mBox.maxLon);
    const double a3 = sideOf(mBox.maxLat, mBox.minLon);
    const double a4 = sideOf(mBox.maxLat, mBox.maxLon);
    return std::min({a1, a2, a3, a4}) <= 0.0 && std::max({a1, a2, a3, a4}) >= 0.0;
}

}  // namespace offlinetz
