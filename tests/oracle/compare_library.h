// Compares the C library with the reference reader.
#pragma once

#include <offlinetz.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "reference_reader.h"

using LibraryPtr = std::unique_ptr<offlinetz_database, void (*)(offlinetz_database*)>;

inline const std::string kNoName = "there is no zone: ";  // And the id that says so.

// The names of the zones that the reference reader finds, or of the nautical zone if it finds none.
inline std::vector<std::string> ExpectedNames(const oracle::ReferenceReader& reference,
                                              const oracle::Answer& answer, double lat,
                                              double lon) {
    if (!(std::fabs(lat) <= 90.0 && std::fabs(lon) <= 180.0)) return {kNoName + "-1"};
    std::vector<std::string> names;
    const bool isNamed = !reference.FieldNames().empty() && reference.FieldNames()[0].has_value();
    for (const oracle::ZoneHit& hit : answer.hits) {
        if (!isNamed || !hit.text.has_value()) continue;
        const std::string text = hit.text->c_str();
        const bool isQuoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
        names.push_back(isQuoted ? text.substr(1, text.size() - 2) : text);
    }
    if (answer.hits.empty() && reference.Precision() == 21) {
        // A unit of longitude at the precision 21 is 180 / 2^20 degrees. Bands begin at odd
        // multiples of 7.5 degrees, truncated to units.
        const double units =
                std::trunc(static_cast<double>(static_cast<float>(lon) / 180.0f) * 1048576.0);
        int band = 0;
        while (band < 12 && std::fabs(units) >= std::floor((2 * band + 1) * 1048576.0 / 24.0))
            ++band;
        names.push_back(band == 0 ? "Etc/GMT"
                                  : "Etc/GMT" + std::string(units < 0 ? "+" : "-") +
                                            std::to_string(band));
    }
    if (names.empty()) names.push_back(kNoName + "-2");
    return names;
}

inline std::vector<std::string> NamesOf(const offlinetz_database* database, const int32_t* ids,
                                        size_t count) {
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        const char* name = offlinetz_zone_name(database, ids[i]);
        names.push_back(name != nullptr ? name : kNoName + std::to_string(ids[i]));
    }
    return names;
}

// What is wrong in itself with the library's distances at a point of any database; null if nothing
// is.
inline const char* FaultOfDistances(const offlinetz_database* database, double lat, double lon) {
    offlinetz_border border;
    const int result = offlinetz_nearest_border(database, lat, lon, HUGE_VAL, &border);
    if (std::isnan(border.metres) != (result != 1)) return "whether there is a border";
    if (result == 1) {
        if (!(std::fabs(border.lat) <= 90.0 && std::fabs(border.lon) <= 180.0 &&
              border.bearing >= 0.0 && border.bearing < 360.0)) {
            return "the place of the border";
        }
        constexpr double kRadians = 3.14159265358979323846 / 180.0;
        const double a = std::sin((border.lat - lat) / 2.0 * kRadians);
        const double b = std::sin((border.lon - lon) / 2.0 * kRadians);
        const double haversine =
                a * a + std::cos(lat * kRadians) * std::cos(border.lat * kRadians) * b * b;
        const double metres = 2.0 * 6371008.8 * std::asin(std::sqrt(std::min(haversine, 1.0)));
        // Near the other side of the earth the arc sine is not exact.
        if (std::fabs(metres - border.metres) > (haversine > 0.99 ? 1.0 : 0.001))
            return "the distance of the border";
        offlinetz_border again;
        if (offlinetz_nearest_border(database, lat, lon, border.metres, &again) != 1 ||
            again.metres != border.metres || again.lat != border.lat || again.lon != border.lon) {
            return "the border with its distance as the limit";
        }
        constexpr double kFar = 1.9e7;  // From there on distances are less exact.
        if (border.metres > 0.001 && border.metres < kFar &&
            offlinetz_nearest_border(database, lat, lon, border.metres - 0.001, &again) != 0) {
            return "the border with a limit before it";
        }
    }
    int32_t ids[OFFLINETZ_MOST_WITHIN];
    double distances[OFFLINETZ_MOST_WITHIN];
    int32_t own[OFFLINETZ_MOST_WITHIN];
    const size_t owned = offlinetz_find(database, lat, lon, own, 64, nullptr, nullptr);
    for (const double metres : {0.0, 1e5, 1e8}) {
        const size_t count = offlinetz_zones_within(database, lat, lon, metres, ids, distances,
                                                    OFFLINETZ_MOST_WITHIN);
        if (count == 0 && ids[0] >= 0) return "why there are no zones within a distance";
        if (count == 0) continue;
        if (count > OFFLINETZ_MOST_WITHIN || !std::is_sorted(distances, distances + count) ||
            !(distances[0] >= 0.0 && distances[count - 1] <= metres + 0.001)) {
            return "the zones within a distance";
        }
        for (size_t i = 0; i < std::min<size_t>(owned, 64); ++i) {
            const auto at = std::find(ids, ids + count, own[i]) - ids;
            if (at == static_cast<ptrdiff_t>(count) || distances[at] != 0.0)
                return "the zones at the point";
        }
    }
    return nullptr;
}

// What differs between the library's functions and the reference reader's answers for points, which
// are pairs of floats: latitude, longitude. Null if nothing does. Asks each function for each
// answer in each form.
inline const char* DifferenceOfLibrary(const offlinetz_database* database,
                                       const oracle::ReferenceReader& reference,
                                       const std::vector<float>& points) {
    struct Row {  // A table's row with other columns.
        char padding[3];
        double values[3];
    } __attribute__((packed));
    constexpr ptrdiff_t kStride = sizeof(Row);
    const size_t count = points.size() / 2;
    std::vector<Row> rows(count + 1);
    for (size_t i = 0; i < count; ++i) {
        rows[i].values[0] = static_cast<double>(points[2 * i]);
        rows[i].values[2] = static_cast<double>(points[2 * i + 1]);
    }
    const auto column = [&](int i) {
        return reinterpret_cast<const double*>(reinterpret_cast<const char*>(rows.data()) + 3 +
                                               8 * i);
    };
    std::vector<int32_t> firsts(count + 1);
    std::vector<double> radii(count + 1);
    std::vector<int64_t> offsets(count + 1);
    offlinetz_find_many(database, count, column(0), kStride, column(2), kStride, firsts.data(),
                        sizeof(int32_t), nullptr, 0);
    const size_t needed = offlinetz_find_all(database, count, column(0), kStride, column(2),
                                             kStride, offsets.data(), nullptr, 0);
    std::vector<int32_t> values(needed + 1, 12345);
    if (offlinetz_find_all(database, count, column(0), kStride, column(2), kStride, offsets.data(),
                           values.data(), needed) != needed ||
        values[needed] != 12345 || static_cast<size_t>(offsets[count]) != needed) {
        return "the size needed";
    }
    std::vector<int32_t> withRadius(count + 1);
    offlinetz_find_many(database, count, column(0), kStride, column(2), kStride, withRadius.data(),
                        sizeof(int32_t), radii.data(), sizeof(double));
    if (withRadius != firsts) return "the first zones with radii";
    for (size_t i = 0; i < count; ++i) {
        const double lat = static_cast<double>(points[2 * i]);
        const double lon = static_cast<double>(points[2 * i + 1]);
        const oracle::Answer answer = reference.Lookup(points[2 * i], points[2 * i + 1]);
        const std::vector<std::string> expected = ExpectedNames(reference, answer, lat, lon);
        const bool isNone = expected[0].rfind(kNoName, 0) == 0;
        if (NamesOf(database, &firsts[i], 1)[0] != expected[0]) return "the first zone";
        if (NamesOf(database, &values[static_cast<size_t>(offsets[i])],
                    static_cast<size_t>(offsets[i + 1] - offsets[i])) != expected) {
            return "all zones";
        }
        int32_t ids[64] = {0};
        int onBorder = 2;
        double radius = -1.0;
        const size_t found = offlinetz_find(database, lat, lon, ids, 64, &onBorder, nullptr);
        if (found != (isNone ? 0 : expected.size())) return "the number of zones";
        const auto shown = static_cast<ptrdiff_t>(std::min<size_t>(expected.size(), 64));
        if (NamesOf(database, ids, static_cast<size_t>(shown)) !=
            std::vector<std::string>(expected.begin(), expected.begin() + shown)) {
            return "the zones";
        }
        const bool isBorder =
                std::any_of(answer.hits.begin(), answer.hits.end(),
                            [](const oracle::ZoneHit& hit) { return hit.result != 1; });
        if (onBorder != (isBorder && expected[0] != kNoName + "-1" ? 1 : 0)) return "the border";
        if (offlinetz_find(database, lat, lon, ids, 1, nullptr, &radius) != found ||
            ids[0] != firsts[i]) {
            return "the zone with a radius";
        }
        if (!(radius >= 0.0) || radius != radii[i]) return "the radius";
        const char* const fault = FaultOfDistances(database, std::clamp(lat, -90.0, 90.0),
                                                   std::clamp(lon, -180.0, 180.0));
        if (fault != nullptr) return fault;
    }
    return nullptr;
}
