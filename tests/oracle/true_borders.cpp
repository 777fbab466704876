#include "true_borders.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <tuple>

#include "inspector/zones.h"

namespace oracle {

using offlinetz::Degrees;
using offlinetz::GridPoint;

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kEarthRadius = 6371008.8;
constexpr double kInside = 1e-6;  // From the edge of the world, in units.
constexpr double kBeside = 1e-7;  // From a line, to ask for the answer on a side.
constexpr double kRows = 32768;

double DistanceOf(double haversine) {
    return 2.0 * std::atan2(std::sqrt(haversine), std::sqrt(std::max(0.0, 1.0 - haversine)));
}

std::array<double, 3> DirectionOf(double lat, double lon) {
    return {std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat)};
}

// The place where `f` is smallest between two places, if it has one minimum there: the method of
// the golden section.
template <typename Function>
double PlaceOfMinimum(double from, double to, double accuracy, const Function& f) {
    const double golden = (std::sqrt(5.0) - 1.0) / 2.0;
    double low = to - golden * (to - from);
    double high = from + golden * (to - from);
    double atLow = f(low);
    double atHigh = f(high);
    while (to - from > accuracy) {
        if (atLow < atHigh) {
            to = high;
            high = low;
            atHigh = atLow;
            atLow = f(low = to - golden * (to - from));
        } else {
            from = low;
            low = high;
            atLow = atHigh;
            atHigh = f(high = from + golden * (to - from));
        }
    }
    return (from + to) / 2.0;
}

}  // namespace

TrueBorders::Line TrueBorders::Line::Part(double first, double last) const {
    return {lat + first * ByLat(), lon + first * ByLon(), lat + last * ByLat(),
            lon + last * ByLon()};
}

TrueBorders::TrueBorders(const ZDDatabase& database)
    : mScale(std::ldexp(1.0, database.precision - 1)) {
    const offlinetz::InspectedDatabase inspected =
            offlinetz::InspectZones(database, [](const char*, size_t, size_t) {});
    for (const offlinetz::InspectedZone& zone : inspected.zones) {
        for (const offlinetz::GridRing& ring : zone.rings) {
            for (size_t i = 0; i < ring.size(); ++i) {
                const GridPoint& a = ring[i];
                const GridPoint& b = ring[offlinetz::NextIndex(i, ring.size())];
                const Line line = {static_cast<double>(a.lat), static_cast<double>(a.lon),
                                   static_cast<double>(b.lat), static_cast<double>(b.lon)};
                mRings.push_back({line, mNames.size()});
            }
        }
        mNames.push_back(zone.tzid);
    }
    // Nautical zones begin at odd multiples of 7.5 degrees, truncated to units.
    for (int hours = -12; hours <= 12 && database.precision == 21; ++hours) {
        mNames.push_back(hours == 0 ? "Etc/GMT"
                                    : "Etc/GMT" + std::string(hours < 0 ? "+" : "-") +
                                              std::to_string(std::abs(hours)));
        if (hours < 12) mMeridians.push_back(std::trunc((2 * hours + 1) * mScale / 24.0));
    }
    const auto rowOf = [&](double lat) {
        return static_cast<size_t>((lat / mScale + 2.0) / 4.0 * kRows);
    };
    mRows.resize(static_cast<size_t>(kRows) + 1);
    for (const RingEdge& edge : mRings) {
        const auto [south, north] = std::minmax(edge.lat, edge.toLat);
        for (size_t row = rowOf(south); row <= rowOf(north); ++row)
            mRows[row].push_back(&edge);
    }
    AddEdges();
    AddMeridians();
    FillBuckets();
}

// By the winding number of each zone.
TrueBorders::Answer TrueBorders::AnswerAt(double lat, double lon) const {
    std::map<size_t, int> windings;
    for (const RingEdge* e : mRows[static_cast<size_t>((lat / mScale + 2.0) / 4.0 * kRows)]) {
        if ((e->lat <= lat) == (e->toLat <= lat)) continue;
        if (e->lon + e->ByLon() * ((lat - e->lat) / e->ByLat()) > lon)
            windings[e->zone] += e->ByLat() > 0.0 ? 1 : -1;
    }
    Answer answer;
    for (const auto& [zone, winding] : windings) {
        if (winding != 0) answer.insert(zone);
    }
    if (answer.empty() && !mMeridians.empty()) {
        const auto band = std::upper_bound(mMeridians.begin(), mMeridians.end(), lon);
        answer.insert(mNames.size() - 25 + static_cast<size_t>(band - mMeridians.begin()));
    }
    return answer;
}

std::pair<TrueBorders::Answer, TrueBorders::Answer> TrueBorders::AnswersBeside(
        const Line& line, double share, double distance) const {
    const double by = distance / std::hypot(line.ByLat(), line.ByLon());
    const Line place = line.Part(share, share);
    return {AnswerAt(place.lat + by * line.ByLon(), place.lon - by * line.ByLat()),
            AnswerAt(place.lat - by * line.ByLon(), place.lon + by * line.ByLat())};
}

void TrueBorders::AddBorder(const Line& line, const std::pair<Answer, Answer>& sides) {
    const auto& [a, b] = sides;
    if (a == b) return;
    Border border = {line, {}};
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(),
                                  std::back_inserter(border.zones));
    mBorders.push_back(std::move(border));
}

// Cuts edges off at the edge of the world, along which is no border, and apart where nautical zones
// begin.
void TrueBorders::AddEdges() {
    std::set<std::tuple<double, double, double, double>> all;
    for (const RingEdge& e : mRings) {
        all.insert(std::min(std::tie(e.lat, e.lon, e.toLat, e.toLon),
                            std::tie(e.toLat, e.toLon, e.lat, e.lon)));
    }
    for (const auto& ends : all) {
        const Line line = std::apply([](auto... values) { return Line{values...}; }, ends);
        double first = 0.0;
        double last = 1.0;
        for (const auto& [from, to] :
             {std::pair(line.lat, line.toLat), std::pair(line.lon, line.toLon)}) {
            if (std::max(from, to) <= -mScale || std::min(from, to) >= mScale) last = -1.0;
            for (const double side : {-mScale, mScale}) {
                if ((from < side) == (to < side)) continue;
                const bool entersAtSide = (from < side) == (side < 0.0);
                const double share = (side - from) / (to - from);
                entersAtSide ? first = std::max(first, share) : last = std::min(last, share);
            }
        }
        if (first >= last) continue;
        std::set<double> cuts = {first, last};
        for (const double meridian : mMeridians) {
            const double share = line.ShareAt(meridian);
            if (share > first && share < last) cuts.insert(share);
        }
        for (auto from = cuts.begin(), to = std::next(from); to != cuts.end(); from = to++)
            AddBorder(line.Part(*from, *to), AnswersBeside(line.Part(*from, *to), 0.5, kBeside));
    }
}

// Cuts meridians apart where edges pass them. The antimeridian has its sides at both longitudes.
void TrueBorders::AddMeridians() {
    std::vector<double> meridians = mMeridians;
    meridians.push_back(mScale);
    for (const double meridian : meridians) {
        const bool isEnd = meridian == mScale;
        std::set<double> cuts = {-mScale, mScale};
        for (const double lon :
             {isEnd ? meridian - kInside : meridian, isEnd ? kInside - meridian : meridian}) {
            for (const RingEdge& e : mRings) {
                if ((e.lon <= lon) == (e.toLon <= lon)) continue;
                const double lat = e.lat + e.ShareAt(lon) * e.ByLat();
                if (std::fabs(lat) < mScale) cuts.insert(lat);
            }
        }
        for (auto from = cuts.begin(), to = std::next(from); to != cuts.end(); from = to++) {
            const Line line = {*from, meridian, *to, meridian};
            const double lat = (*from + *to) / 2.0;
            AddBorder(line, isEnd ? std::pair(AnswerAt(lat, meridian - kInside),
                                              AnswerAt(lat, kInside - meridian))
                                  : AnswersBeside(line, 0.5, kBeside));
        }
    }
}

// Sorts the borders by squares of a degree. Long ones have buckets of their own.
void TrueBorders::FillBuckets() {
    std::map<std::tuple<double, double, bool>, Bucket> buckets;
    for (const Border& border : mBorders) {
        const Line middle = border.Part(0.5, 0.5);
        buckets[{std::floor(middle.lat * 90.0 / mScale), std::floor(middle.lon * 180.0 / mScale),
                 AngleOf(border) > 0.01}]
                .borders.push_back(&border);
    }
    for (auto& [square, bucket] : buckets) {
        bucket.center = DirectionOf((std::get<0>(square) + 0.5) * kPi / 180.0,
                                    (std::get<1>(square) + 0.5) * kPi / 180.0);
        double longest = 0.0;
        for (const Border* border : bucket.borders)
            longest = std::max(longest, AngleOf(*border));
        // Half of the diagonal of a square degree, and half of a border from its middle.
        bucket.angle = 0.0124 + longest / 2.0;
        mBuckets.push_back(std::move(bucket));
    }
}

// At least the angle from one end to the other.
double TrueBorders::AngleOf(const Line& line) const {
    return std::hypot(line.ByLat(), 2.0 * line.ByLon()) * kPi / 2.0 / mScale;
}

double TrueBorders::Haversine(const Degrees& point, double lat, double lon) const {
    const double from = point.lat * kPi / 180.0;
    const double to = lat * kPi / 2.0 / mScale;
    const double a = std::sin((to - from) / 2.0);
    const double b = std::sin((lon * kPi / mScale - point.lon * kPi / 180.0) / 2.0);
    return a * a + std::cos(from) * std::cos(to) * b * b;
}

// Divides the line into pieces so short that the distance has one minimum in each.
double TrueBorders::HaversineTo(const Degrees& point, const Line& line, double limit) const {
    const double length = AngleOf(line);
    const int pieces = 1 + static_cast<int>(length / (line.lon == line.toLon ? 0.2 : 0.003));
    const auto haversineAt = [&](double share) {
        const Line place = line.Part(share, share);
        return Haversine(point, place.lat, place.lon);
    };
    double least = std::nextafter(limit, 4.0);
    for (int i = 0; i < pieces; ++i) {
        const double from = static_cast<double>(i) / pieces;
        const double to = static_cast<double>(i + 1) / pieces;
        if (DistanceOf(haversineAt((from + to) / 2.0)) - length / pieces > DistanceOf(least))
            continue;
        const double best = PlaceOfMinimum(from, to, 1e-14 / (1e-2 + length), haversineAt);
        least = std::min({least, haversineAt(from), haversineAt(best), haversineAt(to)});
    }
    return least;
}

void TrueBorders::VisitNear(const Degrees& point, const double* limit,
                            const std::function<void(const Border&)>& visit) const {
    const auto at = DirectionOf(point.lat * kPi / 180.0, point.lon * kPi / 180.0);
    std::vector<double> angles;  // To the centers of the buckets.
    for (const Bucket& bucket : mBuckets) {
        const auto& c = bucket.center;
        const double cosine = at[0] * c[0] + at[1] * c[1] + at[2] * c[2];
        angles.push_back(std::acos(std::clamp(cosine, -1.0, 1.0)));
    }
    const auto visitBucket = [&](size_t i) {
        if (angles[i] - mBuckets[i].angle > DistanceOf(*limit) + 1e-7) return;
        for (const Border* b : mBuckets[i].borders) {
            if (DistanceOf(Haversine(point, b->lat, b->lon)) - AngleOf(*b) <=
                DistanceOf(*limit) + 1e-9) {
                visit(*b);
            }
        }
    };
    // The nearest one first, so that others are too far away.
    const auto nearest =
            static_cast<size_t>(std::min_element(angles.begin(), angles.end()) - angles.begin());
    for (size_t i = nearest; i < angles.size(); ++i)
        visitBucket(i);
    for (size_t i = 0; i < nearest; ++i)
        visitBucket(i);
}

double TrueBorders::MetresFrom(const Degrees& point) const {
    double least = 4.0;
    VisitNear(point, &least, [&](const Border& border) {
        least = std::min(least, HaversineTo(point, border, least));
    });
    return least < 4.0 ? kEarthRadius * DistanceOf(least) : HUGE_VAL;
}

std::map<std::string, double> TrueBorders::Within(const Degrees& point, double metres,
                                                  const Zones& own) const {
    const double half = std::min(metres / kEarthRadius / 2.0 + 1e-9, kPi / 2.0);
    const double limit = std::sin(half) * std::sin(half);
    std::map<std::string, double> found;
    for (const std::string& zone : own)
        found[zone] = 0.0;
    VisitNear(point, &limit, [&](const Border& border) {
        double furthest = 0.0;
        for (const size_t zone : border.zones)
            furthest = std::max(furthest, found.emplace(mNames[zone], limit).first->second);
        const double haversine = HaversineTo(point, border, furthest);
        for (const size_t zone : border.zones)
            found[mNames[zone]] = std::min(found[mNames[zone]], haversine);
    });
    for (auto& [zone, haversine] : found)
        haversine = kEarthRadius * DistanceOf(haversine);
    return found;
}

std::set<Zones> TrueBorders::AnswersAround(const Degrees& place) const {
    std::set<Zones> answers;
    const double lat = place.lat / 90.0 * mScale;
    const double lon = place.lon / 180.0 * mScale;
    const double limit = 0.0;
    VisitNear(place, &limit, [&](const Border& b) {
        const double length = std::hypot(b.ByLat(), b.ByLon());
        const double at =
                ((lat - b.lat) * b.ByLat() + (lon - b.lon) * b.ByLon()) / (length * length);
        const Line nearest = b.Part(std::clamp(at, 0.0, 1.0), 0.0);
        if (std::hypot(lat - nearest.lat, lon - nearest.lon) > 1e-6) return;
        // Not too near to the ends of the border, where others are.
        const double least = std::min(0.3 / length, 0.5);
        const auto sides = AnswersBeside(b, std::clamp(at, least, 1.0 - least), kBeside);
        for (const Answer& answer : {sides.first, sides.second}) {
            Zones names;
            for (const size_t zone : answer)
                names.insert(mNames[zone]);
            answers.insert(names);
        }
    });
    return answers;
}

Degrees TrueBorders::EndAt(double share) const {
    const Line& line = mBorders[static_cast<size_t>(share * static_cast<double>(Count()))];
    return {line.lat * 90.0 / mScale, line.lon * 180.0 / mScale};
}

}  // namespace oracle
