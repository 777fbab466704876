// Faults of the compiler that neither its whole runs (cli/compile.transcript,
// world/world.transcript, compiler_fuzz) nor its self-check would show.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <fstream>
#include <limits>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "compiler/compile.h"
#include "compiler/minimum_vertices.h"
#include "compiler/rebuild_rings.h"
#include "compiler/self_check.h"
#include "compiler/simplify.h"
#include "compiler/source.h"
#include "database/encode.h"
#include "database/grid.h"
#include "database/output_file.h"
#include "raw_database.h"
#include "temporary_directory.h"

using offlinetz::Grid;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using offlinetz::ZoneRings;

// The compiler's call of fsync: at this point a signal finds the temporary output file.
bool raisesInSync = false;
extern "C" int fsync(int) {
    return raisesInSync ? std::raise(SIGTERM) : 0;
}

namespace {

TEST(Simplifying, KeepsIslandsAndEdges) {
    const Grid grid(21);
    // An island whose northern tip is nearer to the rest than the tolerance, and one that has only
    // two vertices on its bounding box.
    const GridRing island = {{3000, 3010}, {3001, 3000}, {3002, 3010}, {3001, 3020}};
    const GridRing sliver = {{4000, 4000}, {4002, 4001}, {4003, 4003}, {4001, 4002}};
    std::vector<ZoneRings> zones = {{island, sliver}};
    zones[0][0].insert(zones[0][0].end() - 1, {{3002, 3012}, {3001, 3018}});
    offlinetz::RebuildRings(&zones, [](const char*, size_t, size_t) {});
    EXPECT_LE(offlinetz::Simplify(&zones, grid, 30.0), 30.0);
    EXPECT_TRUE(offlinetz::MeetInVerticesOnly(zones));
    EXPECT_EQ(island, zones[0][0]);
    EXPECT_EQ(3u, zones[0][1].size());
    EXPECT_TRUE(offlinetz::BoxOf(zones[0][1]).Contains(offlinetz::BoxOf(sliver)));

    // A zone narrower than the tolerance between two others, at the world's edge.
    const int32_t edge = grid.Scale() + 8;
    const GridRing lens = {{0, 300}, {1, 450}, {0, 600}, {-1, 450}};
    zones = {{lens},
             {{{0, 0}, {900, 0}, {edge, 2}, {edge, 900}, {0, 900}, {0, 600}, {1, 450}, {0, 300}}},
             {{{-900, 0}, {0, 0}, {0, 300}, {-1, 450}, {0, 600}, {0, 900}, {-900, 900}}}};
    offlinetz::Simplify(&zones, grid, 30.0);
    EXPECT_EQ(lens, zones[0][0]);
    EXPECT_EQ((GridRing{{0, 0}, {edge, 2}, {edge, 900}, {0, 900}, {0, 600}, {1, 450}, {0, 300}}),
              zones[1][0]);
}

// Compares with the cheapest path over all possible edges.
TEST(Simplifying, KeepsTheFewestVertices) {
    const Grid grid(21);
    std::mt19937_64 random(12);
    for (int round = 0; round < 400; ++round) {
        const double tolerance = std::array<double, 4>{0.0, 15.0, 60.0, 300.0}[random() % 4];
        const auto step = static_cast<int32_t>(tolerance == 0.0 ? 3 : 10 + random() % 100);
        const auto change = [&] {
            return static_cast<int32_t>(random() % static_cast<uint32_t>(step)) - step / 3;
        };
        GridRing line = {{static_cast<int32_t>(random() % 1048000), 0}};
        while (line.size() < 11) {
            const GridPoint p = {line.back().lat + change(), line.back().lon + change()};
            if (p != line.back()) line.push_back(p);
        }
        std::set<std::pair<size_t, size_t>> blocked;
        for (int i = 0; i < 10 * (round % 2); ++i)
            blocked.emplace(random() % 11, random() % 11);
        const auto isClear = [&](size_t from, size_t to) {
            EXPECT_GT(to - from, 1u);
            return blocked.count({from, to}) == 0;
        };
        // The number of edges counts first, then their bytes, then the area moved.
        constexpr int64_t kNone = int64_t{1} << 50;
        const auto costOfEdge = [&](size_t from, size_t to) {
            const GridRing between(&line[from], &line[to] + 1);
            for (const GridPoint& p : between) {
                if (grid.SquaredMetresToSegment(p, line[from], line[to]) > tolerance * tolerance)
                    return kNone;
            }
            if (to - from > 1 && !isClear(from, to)) return kNone;
            Bytes stored;
            offlinetz::AppendSigned(line[to].lat - line[from].lat, &stored);
            offlinetz::AppendSigned(line[to].lon - line[from].lon, &stored);
            return (int64_t{1} << 40) + (static_cast<int64_t>(stored.size()) << 30) +
                   std::abs(offlinetz::DoubleArea(between));
        };
        int64_t least[11] = {};
        for (size_t to = 1; to < 11; ++to) {
            least[to] = 11 * kNone;
            for (size_t from = 0; from < to; ++from)
                least[to] = std::min(least[to], least[from] + costOfEdge(from, to));
        }
        const std::vector<size_t> kept = offlinetz::MinimumVertices(line, grid, tolerance, isClear);
        EXPECT_EQ(0u, kept.front());
        EXPECT_EQ(10u, kept.back());
        int64_t cost = 0;
        for (size_t i = 0; i + 1 < kept.size(); ++i)
            cost += costOfEdge(kept[i], kept[i + 1]);
        EXPECT_EQ(least[10], cost);
    }

    // One edge can replace 100,000 vertices.
    GridRing waves;
    for (int32_t i = 0; i < 100000; ++i)
        waves.push_back({i % 3, i});
    EXPECT_EQ((std::vector<size_t>{0, 99999}),
              offlinetz::MinimumVertices(waves, grid, 20.0, [](size_t, size_t) { return true; }));
}

// The self-check finds a border that is four units off. compiler_fuzz shows that it reports nothing
// for a correct database.
TEST(SelfCheck, AllowsForTheGridAndNoMore) {
    const TemporaryDirectory directory;
    offlinetz::StartGeometry();
    const offlinetz::CompileListener listener = {[](const std::string&) {},
                                                 [](const char*, size_t, size_t) {}};
    const std::string land = OFFLINETZ_TESTS "/cli/inputs/land.geojson";
    const Bytes bytes = ReadFile(land);
    std::ofstream("shifted.geojson") << std::regex_replace(std::string(bytes.begin(), bytes.end()),
                                                           std::regex("\\[(1\\d),"), "[$1.0007,");
    const auto source = offlinetz::ReadSource({land}, listener.warn, listener.progress);
    offlinetz::CompileOptions options;
    options.output = "out.bin";
    options.toleranceMetres = 0.0;
    for (const std::string& input : {land, std::string("shifted.geojson")}) {
        options.inputs = {input};
        offlinetz::Compile(options, listener);
        const DatabasePtr database = offlinetz::OpenDatabase("out.bin");
        const auto result =
                offlinetz::SelfCheck(source, *database, Grid(21), 0.0, 4000, 1, listener.progress);
        EXPECT_GT(result.differences, 0u);
        EXPECT_EQ(input == land, result.failures.empty());
    }
}

TEST(OutputDeathTest, ASignalRemovesTheTemporaryFile) {
    const TemporaryDirectory directory;
    WriteFile("out", {'o'});
    EXPECT_EXIT((raisesInSync = true, offlinetz::WriteOutput("out", {'n'})),
                ::testing::KilledBySignal(SIGTERM), "");
    EXPECT_EQ(Bytes{'o'}, ReadFile("out"));
    EXPECT_EQ(1u, CountEntries("."));
}

TEST(Encoding, RefusesRingsThatNoReaderTakes) {
    offlinetz::DatabaseContent content;
    content.zones = {"Z"};
    content.entries = {{0, {{0, 0}, {1, 1}}, GridRing(1000001)}};
    offlinetz::SectionSizes sizes;
    EXPECT_THROW(offlinetz::EncodeDatabase(content, &sizes), std::length_error);
    content.entries[0].ring.pop_back();
    EXPECT_NO_THROW(offlinetz::EncodeDatabase(content, &sizes));
}

}  // namespace
