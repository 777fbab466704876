// The points that are looked up. The same seed gives the same points.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace bench {

struct Point {
    float lat;
    float lon;
};

class Random {
  public:
    explicit Random(uint64_t seed) : mNumbers(seed) {}
    double Uniform() { return static_cast<double>(mNumbers() >> 11) * 0x1p-53; }  // [0, 1)
    Point OnSphere();
    Point OnMap();  // Evenly on the plane of latitude and longitude.

  private:
    std::mt19937_64 mNumbers;
};

using Draw = std::function<Point(Random*)>;

std::vector<Point> DrawPoints(size_t count, uint64_t seed, const Draw& draw);

// Those that `database` has a zone for.
std::vector<Point> DrawPointsInZones(const ZDDatabase* database, size_t count, uint64_t seed,
                                     const Draw& draw);

// So many points of the sphere that lie in a zone, the same everywhere.
std::vector<Point> LandPoints(const ZDDatabase* database, size_t count);

// The cities of a table of geonames.org. Throws std::runtime_error.
std::vector<Point> Cities(const std::string& path);

}  // namespace bench
