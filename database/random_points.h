// Random points. The same seed gives the same points on every machine, except for the last bit of
// latitudes, which come from the mathematical library.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>

#include "grid.h"

namespace offlinetz {

struct Degrees {
    double lat;
    double lon;
};

// Not thread-safe.
class RandomPoints {
  public:
    explicit RandomPoints(uint64_t seed) : mNumbers(seed) {}

    // Uniform in [0, 1).
    double Uniform() { return static_cast<double>(mNumbers() >> 11) * 0x1p-53; }

    // Uniform on the sphere.
    Degrees OnSphere() {
        const double lat = std::asin(2.0 * Uniform() - 1.0) * kDegreesPerRadian;
        return {lat, 360.0 * Uniform() - 180.0};
    }

  private:
    std::mt19937_64 mNumbers;
};

}  // namespace offlinetz
