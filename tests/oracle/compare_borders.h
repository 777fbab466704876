// Compares the library's distances to borders with those by brute force.
#pragma once

#include <offlinetz.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

#include "true_borders.h"

namespace oracle {

inline Zones ZonesOf(const offlinetz_database* database, const int32_t* ids, size_t count) {
    Zones zones;
    for (size_t i = 0; i < count; ++i)
        zones.insert(offlinetz_zone_name(database, ids[i]));
    return zones;
}

// The place at a distance and a bearing in degrees.
inline offlinetz::Degrees PlaceAt(const offlinetz::Degrees& from, double metres, double bearing) {
    constexpr double kDegree = 3.14159265358979323846 / 180.0;
    const double angle = metres / 6371008.8;
    const double lat = from.lat * kDegree;
    const double sine = std::sin(lat) * std::cos(angle) +
                        std::cos(lat) * std::sin(angle) * std::cos(bearing * kDegree);
    const double east = std::atan2(std::sin(bearing * kDegree) * std::sin(angle) * std::cos(lat),
                                   std::cos(angle) - std::sin(lat) * sine);
    return {std::asin(sine) / kDegree, std::remainder(from.lon + east / kDegree, 360.0)};
}

// What is wrong with the nearest border of a point, and, if `metres` is not negative, with the
// zones within that distance; "" if nothing is. Distances must be right to a millimetre.
inline std::string DifferenceOfBorders(const offlinetz_database* database,
                                       const TrueBorders& borders, const offlinetz::Degrees& point,
                                       double metres) {
    constexpr double kExact = 0.001;
    std::ostringstream what;
    what.precision(17);
    what << point.lat << " " << point.lon << ": ";
    int32_t ids[OFFLINETZ_MOST_WITHIN];
    const Zones own =
            ZonesOf(database, ids,
                    offlinetz_find(database, point.lat, point.lon, ids, 64, nullptr, nullptr));

    offlinetz_border border;
    const int result = offlinetz_nearest_border(database, point.lat, point.lon, HUGE_VAL, &border);
    const double expected = borders.MetresFrom(point);
    if (result != (std::isinf(expected) ? 0 : 1)) return what.str() + "whether there is a border";
    if (result == 1) {
        const Zones beyond = ZonesOf(database, border.ids, static_cast<size_t>(border.count));
        if (std::fabs(border.metres - expected) > kExact) {
            what << border.metres << " metres, not " << expected;
            return what.str();
        }
        // At the world's edge the answers around a place are not all in the world.
        const bool isInside = std::fabs(border.lon) < 180.0 && std::fabs(border.lat) < 90.0;
        if (beyond == own ||
            (isInside && borders.AnswersAround({border.lat, border.lon}).count(beyond) == 0)) {
            return what.str() + "the zones beyond";
        }
        // The answer holds as far as is said, also in the direction in which it changes first.
        double radius;
        offlinetz_find(database, point.lat, point.lon, nullptr, 0, nullptr, &radius);
        for (const double holds : {border.holds, 1000.0 * radius}) {
            const offlinetz::Degrees place = PlaceAt(point, 0.999 * holds, border.bearing);
            const size_t count =
                    offlinetz_find(database, place.lat, place.lon, ids, 64, nullptr, nullptr);
            if (holds > 0.0 && ZonesOf(database, ids, count) != own) {
                what << "does not hold within " << holds << " metres";
                return what.str();
            }
        }
    }

    if (metres < 0.0) return "";
    double distances[OFFLINETZ_MOST_WITHIN];
    const size_t count = offlinetz_zones_within(database, point.lat, point.lon, metres, ids,
                                                distances, OFFLINETZ_MOST_WITHIN);
    if (!std::is_sorted(distances, distances + count)) return what.str() + "the order";
    std::map<std::string, double> within = borders.Within(point, metres, own);
    for (size_t i = 0; i < count; ++i) {
        const std::string name = offlinetz_zone_name(database, ids[i]);
        const auto zone = within.find(name);
        if (zone == within.end() || std::fabs(zone->second - distances[i]) > kExact) {
            what << name << " within " << metres << " metres, at " << distances[i];
            return what.str();
        }
        within.erase(zone);
    }
    for (const auto& [name, distance] : within) {
        if (distance > metres - kExact) continue;
        what << name << " not within " << metres << " metres, at " << distance;
        return what.str();
    }
    return "";
}

}  // namespace oracle
