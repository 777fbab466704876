#include "points.h"

#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "files.h"

namespace bench {

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr uint64_t kLandSeed = 1;

bool HasZone(const ZDDatabase* database, const Point& p) {
    ZDResult* results = ZDLookup(database, p.lat, p.lon, nullptr);
    const bool has = results[0].result != ZDLookupEnd;
    ZDFreeResults(results);
    return has;
}

// The text behind so many tabs.
const char* Column(const std::string& line, int column) {
    size_t start = 0;
    for (int i = 0; i < column; ++i) {
        const size_t tab = line.find('\t', start);
        if (tab == std::string::npos) throw std::runtime_error("a row lacks columns: " + line);
        start = tab + 1;
    }
    return line.c_str() + start;
}

}  // namespace

Point Random::OnSphere() {
    const double lat = std::asin(2.0 * Uniform() - 1.0) * kDegreesPerRadian;
    return {static_cast<float>(lat), static_cast<float>(360.0 * Uniform() - 180.0)};
}

Point Random::OnMap() {
    const double lat = 180.0 * Uniform() - 90.0;
    return {static_cast<float>(lat), static_cast<float>(360.0 * Uniform() - 180.0)};
}

std::vector<Point> DrawPoints(size_t count, uint64_t seed, const Draw& draw) {
    Random random(seed);
    std::vector<Point> points;
    while (points.size() < count)
        points.push_back(draw(&random));
    return points;
}

std::vector<Point> DrawPointsInZones(const ZDDatabase* database, size_t count, uint64_t seed,
                                     const Draw& draw) {
    return DrawPoints(count, seed, [&](Random* random) {
        Point p = draw(random);
        while (!HasZone(database, p))
            p = draw(random);
        return p;
    });
}

std::vector<Point> LandPoints(const ZDDatabase* database, size_t count) {
    return DrawPointsInZones(database, count, kLandSeed, [](Random* r) { return r->OnSphere(); });
}

std::vector<Point> Cities(const std::string& path) {
    std::vector<Point> points;
    for (const std::string& line : ReadLines(path)) {
        points.push_back(
                {std::strtof(Column(line, 4), nullptr), std::strtof(Column(line, 5), nullptr)});
    }
    return points;
}

}  // namespace bench
