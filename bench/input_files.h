// The files that make_bench_inputs writes into a directory and lookup_bench reads there.
#pragma once

#include <cstddef>
#include <string>

#include "compiler/compile.h"

namespace bench {

constexpr size_t kWhole = 0;  // In place of a tile's points: rings are kept whole.
constexpr size_t kTilePoints[] = {64,  128, 200,   256, offlinetz::kDefaultMaxTilePoints,
                                  512, 768, kWhole};
constexpr int kTolerances[] = {5, 10, 15, 20};  // Metres.
constexpr int kDefaultTolerance = 20;
constexpr int kCopiesPerSide[] = {1, 2, 4, 8};  // Of the coarse world.
constexpr int kCoarseTolerance = 2000;          // Metres.
constexpr size_t kRingPoints[] = {10, 100, 1000, 10000, 100000, 1000000};

// The world with at most `tilePoints` points a tile, thinned within `tolerance` metres.
inline std::string WorldFile(const std::string& directory, size_t tilePoints, int tolerance) {
    return directory + "/world-" + std::to_string(tilePoints) + "-" + std::to_string(tolerance) +
           ".bin";
}

// The world as the compiler makes it by default.
inline std::string DefaultWorldFile(const std::string& directory) {
    return WorldFile(directory, offlinetz::kDefaultMaxTilePoints, kDefaultTolerance);
}

// Copies of the coarse world side by side, tiled as by default.
inline std::string CopiesFile(const std::string& directory, int perSide) {
    return directory + "/copies-" + std::to_string(perSide * perSide) + ".bin";
}

// One zone whose border is a single ring.
inline std::string RingFile(const std::string& directory, size_t points, size_t tilePoints) {
    return directory + "/ring-" + std::to_string(points) + "-" + std::to_string(tilePoints) +
           ".bin";
}

// Of its zigzag ring, which runs around the middle of the map: the least distance from there, as a
// share of that to the map's edges.
constexpr double kZigzagOuterRadius = 0.9;
inline double ZigzagInnerRadius(size_t points) {
    return kZigzagOuterRadius * (1.0 - 3.141592653589793 / static_cast<double>(points));
}

// The zone of each source polygon, a line each, and the polygons in that order, as each peer
// loads them.
inline std::string PolygonZonesFile(const std::string& directory) {
    return directory + "/polygon-zones.txt";
}
inline std::string GeosFile(const std::string& directory) {
    return directory + "/polygons.wkb";
}
inline std::string S2File(const std::string& directory) {
    return directory + "/polygons.s2";
}

}  // namespace bench
