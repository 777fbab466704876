// Random points, the same for the same seed on every machine but for the last bit of a latitude,
// which the mathematical library computes.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>

namespace offlinetz {

struct Degrees {
    double lat;
    double lon;
};

class RandomPoints {
  public:
    explicit RandomPoints(uint64_t seed) : mNumbers(seed) {}

    // Evenly from 0 up to, and without, 1.
    double Uniform() { return static_cast<double>(mNumbers() >> 11) * 0x1p-53; }

    // Evenly on the sphere.
    Degrees OnSphere() {
        constexpr double kDegreesPerRadian = 57.29577951308232;
        const double lat = std::asin(2.0 * Uniform() - 1.0) * kDegreesPerRadian;
        return {lat, 360.0 * Uniform() - 180.0};
    }

  private:
    std::mt19937_64 mNumbers;
};

}  // namespace offlinetz
