#include <fmt/format.h>

#include <filesystem>

#include "files.h"
#include "input_files.h"
#include "reader.h"
#include "sections.h"
#include "timing.h"

namespace bench {

namespace {

struct World {
    std::string label;
    std::string path;
};

// A table of the worlds; the same numbers go to `dataPath`.
std::string Table(const std::vector<World>& worlds, const char* heading,
                  const std::string& dataPath) {
    constexpr size_t kPoints = 100000;
    constexpr int kRounds = 3;
    std::vector<DatabasePtr> databases;
    databases.reserve(worlds.size());
    for (const World& world : worlds)
        databases.push_back(OpenDatabase(world.path));
    const std::vector<Point> points = LandPoints(databases[0].get(), kPoints);
    // Where a lookup takes a hundred times as long, fewer must do.
    const std::vector<Point> fewPoints(points.begin(), points.begin() + kPoints / 20);
    std::vector<Candidate> candidates;
    for (const DatabasePtr& database : databases) {
        const bool isTiled = ZDGetTableType(database.get()) == zonedetect::kTiledTable;
        candidates.push_back({[db = database.get()](const Point& p) { LookWithDistance(db, p); },
                              isTiled ? &points : &fewPoints});
    }
    const std::vector<Times> times = MeasureInTurns(candidates, kRounds);
    std::string text = fmt::format(
            "\n| {} | file, bytes | mean, µs | 99 %, µs |\n"
            "|---|--:|--:|--:|\n",
            heading);
    std::string data;
    for (size_t i = 0; i < worlds.size(); ++i) {
        const auto bytes = std::filesystem::file_size(worlds[i].path);
        text += fmt::format("| {} | {} | {:.2f} | {:.2f} |\n", worlds[i].label,
                            fmt::group_digits(bytes), times[i].mean / 1e3, times[i].p99 / 1e3);
        data += fmt::format("\"{}\" {} {} {}\n", worlds[i].label, static_cast<double>(bytes) / 1e6,
                            times[i].mean / 1e3, times[i].p99 / 1e3);
    }
    WriteFile(dataPath, data.data(), data.size());
    return text;
}

}  // namespace

std::string SizeSection(const std::string& directory) {
    std::vector<World> tiles;
    for (const size_t points : kTilePoints) {
        tiles.push_back({points == kWhole ? "whole rings" : std::to_string(points),
                         WorldFile(directory, points, kDefaultTolerance)});
    }
    std::vector<World> tolerances;
    for (const int tolerance : kTolerances) {
        tolerances.push_back({fmt::format("{} m", tolerance),
                              WorldFile(directory, offlinetz::kDefaultMaxTilePoints, tolerance)});
    }
    return fmt::format(
                   "## Size against speed\n\n"
                   "Lookups on land with a distance. The compiler's defaults are {} points a tile "
                   "and {} m.\n\n![Size against speed](../docs/size-speed.svg)\n",
                   offlinetz::kDefaultMaxTilePoints, kDefaultTolerance) +
           Table(tiles, "points a tile", directory + "/size-speed-tiles.dat") +
           Table(tolerances, "tolerance", directory + "/size-speed-tolerance.dat");
}

}  // namespace bench
