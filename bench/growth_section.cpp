#include <fmt/format.h>

#include <cmath>
#include <filesystem>

#include "files.h"
#include "input_files.h"
#include "reader.h"
#include "sections.h"
#include "timing.h"

namespace bench {

namespace {

constexpr int kRounds = 3;
constexpr int kHandles = 20;
constexpr uint64_t kSeed = 4;

// Milliseconds of a handle's first lookup.
double FirstLookup(const std::string& path, const std::vector<Point>& points) {
    std::vector<double> times;
    for (size_t i = 0; i < kHandles; ++i) {
        const DatabasePtr database = OpenDatabase(path);
        const auto start = std::chrono::steady_clock::now();
        LookWithDistance(database.get(), points[i]);
        times.push_back(NanosecondsSince(start));
    }
    return Median(times) / 1e6;
}

Candidate LooksInto(const DatabasePtr& database, const std::vector<Point>& points) {
    return {[db = database.get()](const Point& p) { LookWithDistance(db, p); }, &points};
}

std::string CopiesTable(const std::string& directory) {
    constexpr size_t kPoints = 20000;
    std::vector<DatabasePtr> databases;
    std::vector<std::vector<Point>> points;
    std::vector<Candidate> candidates;
    for (const int perSide : kCopiesPerSide) {
        databases.push_back(OpenDatabase(CopiesFile(directory, perSide)));
        points.push_back(DrawPointsInZones(databases.back().get(), kPoints, kSeed,
                                           [](Random* r) { return r->OnMap(); }));
    }
    for (size_t i = 0; i < databases.size(); ++i)
        candidates.push_back(LooksInto(databases[i], points[i]));
    const std::vector<Times> times = MeasureInTurns(candidates, kRounds);
    std::string text =
            "| copies | file, bytes | first lookup, ms | mean, µs | 99 %, µs |\n"
            "|--:|--:|--:|--:|--:|\n";
    std::string data;
    for (size_t i = 0; i < databases.size(); ++i) {
        const int copies = kCopiesPerSide[i] * kCopiesPerSide[i];
        const std::string path = CopiesFile(directory, kCopiesPerSide[i]);
        const auto bytes = std::filesystem::file_size(path);
        const double first = FirstLookup(path, points[i]);
        text += fmt::format("| {} | {} | {:.2f} | {:.2f} | {:.2f} |\n", copies,
                            fmt::group_digits(bytes), first, times[i].mean / 1e3,
                            times[i].p99 / 1e3);
        data += fmt::format("{} {} {} {}\n", copies, static_cast<double>(bytes) / 1e6, first,
                            times[i].mean / 1e3);
    }
    WriteFile(directory + "/growth-copies.dat", data.data(), data.size());
    return text;
}

// Points inside a zigzag ring, beside it.
std::vector<Point> PointsInRing(size_t count, size_t ringPoints) {
    return DrawPoints(count, kSeed, [&](Random* random) {
        const double radius = ZigzagInnerRadius(ringPoints) * (1.0 - 1e-4 * random->Uniform());
        const double angle = 6.283185307179586 * random->Uniform();
        return Point{static_cast<float>(90.0 * radius * std::sin(angle)),
                     static_cast<float>(180.0 * radius * std::cos(angle))};
    });
}

std::string RingsTable(const std::string& directory) {
    constexpr size_t kPoints = 500;
    std::vector<std::vector<Point>> points;
    for (const size_t ringPoints : kRingPoints)
        points.push_back(PointsInRing(kPoints, ringPoints));
    std::vector<DatabasePtr> databases;
    std::vector<Candidate> candidates;
    for (size_t i = 0; i < points.size(); ++i) {
        const size_t ringPoints = kRingPoints[i];
        for (const size_t tilePoints : {kWhole, offlinetz::kDefaultMaxTilePoints}) {
            databases.push_back(OpenDatabase(RingFile(directory, ringPoints, tilePoints)));
            candidates.push_back(LooksInto(databases.back(), points[i]));
        }
    }
    const std::vector<Times> times = MeasureInTurns(candidates, kRounds);
    std::string text =
            "| points of the ring | whole, mean µs | tiled, mean µs |\n"
            "|--:|--:|--:|\n";
    std::string data;
    for (size_t i = 0; i < std::size(kRingPoints); ++i) {
        const double whole = times[2 * i].mean / 1e3;
        const double tiled = times[2 * i + 1].mean / 1e3;
        text += fmt::format("| {} | {:.2f} | {:.2f} |\n", fmt::group_digits(kRingPoints[i]), whole,
                            tiled);
        data += fmt::format("{} {} {}\n", kRingPoints[i], whole, tiled);
    }
    WriteFile(directory + "/growth-rings.dat", data.data(), data.size());
    return text;
}

}  // namespace

std::string GrowthSection(const std::string& directory) {
    return fmt::format(
                   "## Growth\n\n"
                   "![Growth](../docs/growth.svg)\n\n"
                   "Copies of the world, thinned within {} m, side by side, each as much smaller "
                   "and with zones of its own; points on the drawing's land, with a distance.\n\n",
                   kCoarseTolerance) +
           CopiesTable(directory) +
           "\nA single zigzag ring around the middle of the map, and points inside it that lie "
           "beside "
           "it, with a distance.\n\n" +
           RingsTable(directory);
}

}  // namespace bench
