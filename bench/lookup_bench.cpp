// Measures the reader and its peers in one run. DIRECTORY, which make_bench_inputs fills before,
// receives the tables of RESULTS.md, a file each.
//
// Usage: lookup_bench DIRECTORY
#include <fmt/format.h>
#include <malloc.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "inputs.h"
#include "measure.h"
#include "peer.h"

namespace {

using namespace bench;
using offlinetz::DatabasePtr;
using offlinetz::Degrees;
using offlinetz::RandomPoints;

constexpr size_t kHandles = 50;
constexpr int kRounds = 3;
constexpr uint64_t kGrowthSeed = 4;

double HeapBytes() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks) + static_cast<double>(heap.hblkhd);
}

// Medians over kHandles handles, each of which looks up one of the points.
struct OpeningCost {
    double opening;      // Nanoseconds.
    double firstLookup;  // Nanoseconds.
    double heap;         // Bytes that the first lookup keeps.
};

OpeningCost CostOfOpening(const std::string& path, const Points& points) {
    std::vector<double> opening;
    std::vector<double> firstLookup;
    std::vector<double> heap;
    for (size_t i = 0; i < kHandles; ++i) {
        auto start = std::chrono::steady_clock::now();
        const DatabasePtr database = MapDatabase(path);
        opening.push_back(NanosecondsSince(start));
        const double before = HeapBytes();
        start = std::chrono::steady_clock::now();
        LookUpWithDistance(*database, points[i]);
        firstLookup.push_back(NanosecondsSince(start));
        heap.push_back(HeapBytes() - before);
    }
    return {Median(opening), Median(firstLookup), Median(heap)};
}

void MeasureOpening(const std::string& directory, const Points& land) {
    const OpeningCost cost = CostOfOpening(WorldFile(directory), land);
    WriteText(directory + "/opening.md",
              fmt::format("| medians of {} handles | |\n"
                          "|---|--:|\n"
                          "| opening | {:.0f} µs |\n"
                          "| first lookup, with a distance | {:.2f} ms |\n"
                          "| heap that the spatial index takes | {:.0f} KB |\n",
                          kHandles, cost.opening / 1e3, cost.firstLookup / 1e6, cost.heap / 1e3));
}

// A database, and points to look up in it with a distance.
struct Subject {
    std::string label;
    std::string path;
    Points points;
};

std::vector<Times> Measure(const std::vector<Subject>& subjects) {
    std::vector<DatabasePtr> databases;
    std::vector<Candidate> candidates;
    for (const Subject& subject : subjects) {
        databases.push_back(MapDatabase(subject.path));
        candidates.push_back({[database = databases.back().get()](const Point& p) {
                                  LookUpWithDistance(*database, p);
                              },
                              &subject.points});
    }
    return MeasureInTurns(candidates, kRounds);
}

void MeasureTable(const std::string& path, const char* heading,
                  const std::vector<Subject>& subjects) {
    std::string table = fmt::format(
            "| {} | file, bytes | first lookup, ms | mean, µs | 99 %, µs |\n"
            "|--:|--:|--:|--:|--:|\n",
            heading);
    const std::vector<Times> times = Measure(subjects);
    for (size_t i = 0; i < subjects.size(); ++i) {
        const auto bytes = std::filesystem::file_size(subjects[i].path);
        const double first = CostOfOpening(subjects[i].path, subjects[i].points).firstLookup / 1e6;
        table += fmt::format("| {} | {} | {:.2f} | {:.2f} | {:.2f} |\n", subjects[i].label,
                             fmt::group_digits(bytes), first, times[i].mean / 1e3,
                             times[i].p99 / 1e3);
    }
    WriteText(path, table);
}

void MeasureSizes(const std::string& directory, const Points& land) {
    // In whole rings a lookup takes a hundred times as long.
    const Points fewPoints(land.begin(),
                           land.begin() + static_cast<std::ptrdiff_t>(land.size()) / 20);
    std::vector<Subject> tiles;
    for (const size_t points : kTilePoints) {
        const bool isWhole = points == kWhole;
        tiles.push_back({isWhole ? "whole rings" : std::to_string(points),
                         WorldFile(directory, points), isWhole ? fewPoints : land});
    }
    MeasureTable(directory + "/size-tiles.md", "points a tile", tiles);
    std::vector<Subject> errors;
    for (const int metres : kMaxErrors) {
        errors.push_back({fmt::format("{} m", metres),
                          WorldFile(directory, offlinetz::kDefaultMaxTilePoints, metres), land});
    }
    MeasureTable(directory + "/size-error.md", "certified error", errors);
}

void MeasureCopies(const std::string& directory) {
    const auto onMap = [](RandomPoints* random) {
        const double lat = 180.0 * random->Uniform() - 90.0;
        return Degrees{lat, 360.0 * random->Uniform() - 180.0};
    };
    std::vector<Subject> copies;
    for (const int perSide : kCopiesPerSide) {
        const std::string path = CopiesFile(directory, perSide);
        copies.push_back({std::to_string(perSide * perSide), path,
                          DrawPoints(20000, kGrowthSeed, onMap, MapDatabase(path).get())});
    }
    MeasureTable(directory + "/growth-copies.md", "copies", copies);
}

void MeasureRings(const std::string& directory) {
    std::vector<Subject> rings;  // For each number of points: whole, then tiled.
    for (const size_t ringPoints : kRingPoints) {
        // Inside the ring, close to it.
        const Points points = DrawPoints(500, kGrowthSeed, [&](RandomPoints* random) {
            const double radius = ZigzagInnerRadius(ringPoints) * (1.0 - 1e-4 * random->Uniform());
            const double angle = 6.283185307179586 * random->Uniform();
            return Degrees{90.0 * radius * std::sin(angle), 180.0 * radius * std::cos(angle)};
        });
        for (const size_t tilePoints : {kWhole, offlinetz::kDefaultMaxTilePoints})
            rings.push_back({"", RingFile(directory, ringPoints, tilePoints), points});
    }
    const std::vector<Times> times = Measure(rings);
    std::string table =
            "| points of the ring | whole, mean µs | tiled, mean µs |\n"
            "|--:|--:|--:|\n";
    for (size_t i = 0; i < times.size(); i += 2) {
        table += fmt::format("| {} | {:.2f} | {:.2f} |\n", fmt::group_digits(kRingPoints[i / 2]),
                             times[i].mean / 1e3, times[i + 1].mean / 1e3);
    }
    WriteText(directory + "/growth-rings.md", table);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    // The reader prints a line for each file that it opens.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    const std::string directory = argv[1];
    MeasurePeers(directory);
    const Points land = LandPoints(*MapDatabase(WorldFile(directory)), 100000);
    MeasureOpening(directory, land);
    MeasureSizes(directory, land);
    MeasureCopies(directory);
    MeasureRings(directory);
    return 0;
}
