// The files that make_bench_inputs writes into a directory and lookup_bench reads there. The
// numbers stand in RESULTS.md.in too.
#pragma once

#include <cstddef>
#include <string>

#include "compiler/compile.h"
#include "database/output_file.h"

namespace bench {

constexpr size_t kWhole = 0;  // Instead of the points of a tile: rings are kept whole.
constexpr size_t kTilePoints[] = {64,  128, 200,   256, offlinetz::kDefaultMaxTilePoints,
                                  512, 768, kWhole};
constexpr int kMaxErrors[] = {37, 40, 50, 63, 100};  // Certified, in metres.
constexpr auto kDefaultMaxError = static_cast<int>(offlinetz::kDefaultMaxErrorMetres);
constexpr int kCopiesPerSide[] = {1, 2, 4, 8};  // Of the coarse world.
constexpr int kCoarseMetres = 2000;             // By which its borders were moved.
constexpr size_t kRingPoints[] = {10, 100, 1000, 10000, 100000, 1000000};

// The world with a certified error of `maxError` metres, and at most `tilePoints` points a tile.
inline std::string WorldFile(const std::string& directory,
                             size_t tilePoints = offlinetz::kDefaultMaxTilePoints,
                             int maxError = kDefaultMaxError) {
    return directory + "/world-" + std::to_string(tilePoints) + "-" + std::to_string(maxError) +
           ".bin";
}

// `perSide` times `perSide` copies of the coarse world, side by side.
inline std::string CopiesFile(const std::string& directory, int perSide) {
    return directory + "/copies-" + std::to_string(perSide * perSide) + ".bin";
}

// One zone whose border is a single zigzag ring.
inline std::string RingFile(const std::string& directory, size_t points, size_t tilePoints) {
    return directory + "/ring-" + std::to_string(points) + "-" + std::to_string(tilePoints) +
           ".bin";
}

// The vertices of the zigzag ring lie on two ellipses around the middle of the map, in turn. Their
// radii, as a share of the distance to the edges of the map:
constexpr double kZigzagOuterRadius = 0.9;
inline double ZigzagInnerRadius(size_t points) {
    return kZigzagOuterRadius * (1.0 - 3.141592653589793 / static_cast<double>(points));
}

// Replaces a file. Throws std::exception.
inline void WriteText(const std::string& path, const std::string& text) {
    offlinetz::WriteOutput(path, {text.begin(), text.end()});
}

}  // namespace bench
