// Faults of the compiler that neither its whole runs (cli/compile.transcript,
// world/world.transcript, compiler_fuzz) nor its self-check would show.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "compiler/compile.h"
#include "compiler/edge_error.h"
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
using offlinetz::LineToSimplify;
using offlinetz::LineVertex;
using offlinetz::ZoneRings;

// The compiler's call of fsync: at this point a signal finds the temporary output file.
bool raisesInSync = false;
extern "C" int fsync(int) {
    return raisesInSync ? std::raise(SIGTERM) : 0;
}

namespace {

const offlinetz::CompileListener kSilent = {[](const std::string&) {},
                                            [](const char*, size_t, size_t) {}};

TEST(Simplifying, KeepsIslandsAndEdges) {
    const Grid grid(21);
    // An island whose northern tip is less than 30 m from the rest, and one that has only
    // two vertices on its bounding box.
    const GridRing island = {{3000, 3010}, {3001, 3000}, {3002, 3010}, {3001, 3020}};
    const GridRing sliver = {{4000, 4000}, {4002, 4001}, {4003, 4003}, {4001, 4002}};
    std::vector<ZoneRings> zones = {{island, sliver}};
    zones[0][0].insert(zones[0][0].end() - 1, {{3002, 3012}, {3001, 3018}});
    offlinetz::RebuildRings(&zones, kSilent.progress);
    offlinetz::Simplify(&zones, grid, 30.0);
    EXPECT_TRUE(offlinetz::MeetInVerticesOnly(zones));
    EXPECT_EQ(island, zones[0][0]);
    EXPECT_EQ(3u, zones[0][1].size());
    EXPECT_TRUE(offlinetz::BoxOf(zones[0][1]).Contains(offlinetz::BoxOf(sliver)));

    // A zone narrower than 30 m between two others, at the world's edge.
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
        const double metres = std::array<double, 4>{0.0, 15.0, 60.0, 300.0}[random() % 4];
        const auto step = static_cast<int32_t>(metres == 0.0 ? 3 : 10 + random() % 100);
        const auto change = [&] {
            return static_cast<int32_t>(random() % static_cast<uint32_t>(step)) - step / 3;
        };
        LineToSimplify line;
        line.metres = metres;
        line.points = {{static_cast<int32_t>(random() % 1048000), 0}};
        while (line.points.size() < 11) {
            const GridPoint& last = line.points.back();
            const GridPoint p = {last.lat + change(), last.lon + change()};
            if (p != last) line.points.push_back(p);
        }
        std::vector<LineVertex> vertices;
        for (size_t i = 0; i < 11; ++i) {
            const GridPoint& p = line.points[i];
            line.firstPlace.push_back(line.places.size());
            line.firstPassing.push_back(i);
            line.passing.push_back({0.0, 0.0});
            line.places.push_back(p);
            if (round % 3 == 0 && i % 10 != 0) line.places.push_back({p.lat + 1, p.lon - 1});
            for (size_t k = line.firstPlace[i]; k < line.places.size(); ++k)
                vertices.push_back({i, line.places[k]});
        }
        line.firstPlace.push_back(line.places.size());
        line.firstPassing.push_back(11);
        std::set<std::pair<size_t, size_t>> blocked;
        for (int i = 0; i < 10 * (round % 2); ++i)
            blocked.emplace(random() % 11, random() % 11);
        const auto isMoved = [&](const LineVertex& v) { return v.at != line.points[v.position]; };
        const auto isAllowed = [&](const LineVertex& from, const LineVertex& to) {
            EXPECT_TRUE(to.position - from.position > 1 || isMoved(from) || isMoved(to));
            for (size_t i = from.position + 1; i < to.position; ++i) {
                if (grid.SquaredMetresToSegment(line.points[i], from.at, to.at) > metres * metres)
                    return false;
            }
            return blocked.count({from.position, to.position}) == 0;
        };
        // The number of edges counts first, then their bytes, then the area moved.
        constexpr int64_t kNone = int64_t{1} << 50;
        const auto costOfEdge = [&](const LineVertex& from, const LineVertex& to) {
            const bool isOfLine =
                    to.position == from.position + 1 && !isMoved(from) && !isMoved(to);
            if (from.at == to.at || (!isOfLine && !isAllowed(from, to))) return kNone;
            GridRing between(&line.points[from.position], &line.points[to.position] + 1);
            between.insert(between.begin(), from.at);
            between.push_back(to.at);
            Bytes stored;
            offlinetz::AppendSigned(to.at.lat - from.at.lat, &stored);
            offlinetz::AppendSigned(to.at.lon - from.at.lon, &stored);
            return (int64_t{1} << 40) + (static_cast<int64_t>(stored.size()) << 30) +
                   std::abs(offlinetz::DoubleArea(between));
        };
        std::vector<int64_t> least(vertices.size());
        for (size_t to = 1; to < vertices.size(); ++to) {
            least[to] = 11 * kNone;
            for (size_t from = 0; vertices[from].position < vertices[to].position; ++from)
                least[to] =
                        std::min(least[to], least[from] + costOfEdge(vertices[from], vertices[to]));
        }
        const std::vector<LineVertex> kept = offlinetz::MinimumVertices(line, grid, isAllowed);
        EXPECT_EQ(0u, kept.front().position);
        EXPECT_EQ(10u, kept.back().position);
        int64_t cost = 0;
        for (size_t i = 0; i + 1 < kept.size(); ++i)
            cost += costOfEdge(kept[i], kept[i + 1]);
        EXPECT_EQ(least.back(), cost);
    }

    // One edge can replace 100,000 vertices.
    LineToSimplify waves;
    waves.metres = 20.0;
    for (int32_t i = 0; i < 100000; ++i) {
        waves.points.push_back({i % 3, i});
        waves.firstPlace.push_back(waves.places.size());
        waves.places.push_back(waves.points.back());
    }
    waves.firstPlace.push_back(waves.places.size());
    waves.passing.assign(100000, {0.0, 0.0});
    waves.firstPassing = waves.firstPlace;
    EXPECT_EQ(2u, offlinetz::MinimumVertices(waves, grid, [](const auto&, const auto&) {
                      return true;
                  }).size());
}

// Asks the reader about points beside one edge of a source that the grid holds exactly. Where it is
// wrong, or reports a border, the point is no further from the edge than EdgeError says; and it is
// wrong nearly as far away as that.
TEST(EdgeError, BoundsTheReader) {
    std::mt19937_64 random(21);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const auto within = [&](int32_t units) {
        return static_cast<int32_t>(units * uniform(random));
    };
    const GridPoint middles[] = {
            {600000, 2},    {600000, -40},     {0, 300000},     {3, -700000},
            {1, 1},         {-300000, 1},      {-20, -2},       {500000, 1020000},
            {-9, -1020000}, {900000, -999999}, {-500000, 90000}};
    std::map<std::pair<int32_t, int32_t>, double> tightest;
    for (int round = 0; round < 2200; ++round) {
        const Grid grid(round % 2 == 0 ? 21 : 23);  // There single precision is coarse.
        GridPoint middle = middles[round % 11];
        if (round % 2 != 0) middle = {4 * middle.lat, 4 * middle.lon};
        const int32_t reach = round % 3 == 0 ? 7000 : 900;
        const int32_t reachLat = round % 5 == 0 ? 4 : reach;
        const GridPoint a = {middle.lat + within(reachLat), middle.lon + within(reach)};
        const GridPoint b = {round % 7 == 0 ? a.lat : middle.lat + within(reachLat),
                             round % 8 == 0 ? a.lon : middle.lon + within(reach)};
        const GridPoint c = {a.lat + 2 * (b.lon - a.lon) + (b.lat - a.lat) / 2,
                             a.lon - 2 * (b.lat - a.lat) + (b.lon - a.lon) / 2};
        if (std::max(std::abs(b.lat - a.lat), std::abs(b.lon - a.lon)) < 400 ||
            std::max(std::abs(c.lon), std::abs(a.lon) + 15000) > grid.Scale())
            continue;
        offlinetz::DatabaseContent content;
        content.fieldNames = {"TimezoneId"};
        content.zones = {"Z"};
        content.precision = grid.Precision();
        const GridRing ring = {a, b, c};
        offlinetz::GridBox box = offlinetz::BoxOf(ring);
        box = {{box.min.lat - 9, box.min.lon - 9}, {box.max.lat + 9, box.max.lon + 9}};
        content.entries = {{0, box, ring}};
        offlinetz::SectionSizes sizes;
        const Bytes bytes = offlinetz::EncodeDatabase(content, &sizes);
        const DatabasePtr database = OpenBytes(bytes);
        ASSERT_NE(nullptr, database);

        // The source: where vertices are truncated from, in the middle of their units.
        const auto y = [](const GridPoint& p) { return p.lat + (p.lat >= 0 ? 0.5 : -0.5); };
        const double my = grid.LatitudeMetres();
        const double mx = grid.LongitudeMetres(middle.lat);
        const double dx = (b.lon - a.lon) * mx;
        const double dy = (y(b) - y(a)) * my;
        const double length = std::sqrt(dx * dx + dy * dy);
        const offlinetz::EdgeError error(grid, a, b);
        for (int i = 0; i < 400; ++i) {
            const double along = 0.5 + 0.2 * uniform(random);
            const double footLat = y(a) + along * (y(b) - y(a));
            const double footLon = a.lon + along * (b.lon - a.lon);
            const GridPoint vertex = {static_cast<int32_t>(footLat), static_cast<int32_t>(footLon)};
            const double bound = error.At({vertex, static_cast<float>(footLat - vertex.lat),
                                           static_cast<float>(footLon - vertex.lon)},
                                          mx);
            const double share = uniform(random);
            const double across = bound * (share > 0.0 ? 1.1 - 0.3 * share : -1.1 - 0.3 * share);
            const double lat = footLat + across * dx / length / my;
            const double lon = footLon - across * dy / length / mx;
            const auto queryLat = static_cast<float>(grid.LatitudeDegrees(lat));
            const auto queryLon = static_cast<float>(grid.LongitudeDegrees(lon));
            ZDResult* results = ZDLookup(database.get(), queryLat, queryLon, nullptr);
            const int32_t result = results[0].result;
            ZDFreeResults(results);
            if (result == (across > 0.0 ? ZDLookupInZone : ZDLookupEnd)) continue;
            EXPECT_LE(std::abs(across), bound) << a.lat << ',' << a.lon << ' ' << b.lat << ','
                                               << b.lon << ' ' << lat << ',' << lon;
            double& tight = tightest[{middle.lat, middle.lon}];
            tight = std::max(tight, std::abs(across) / bound);
        }
    }
    EXPECT_EQ(22u, tightest.size());
    for (const auto& [middle, tight] : tightest)
        EXPECT_GT(tight, 0.8) << middle.first << ' ' << middle.second;
}

// Writes a zone around a place in a random zigzag. Its vertices lie on a spiral out and back, a few
// units to some hundred apart.
void WriteZigzag(double lat, double lon, double units, std::mt19937_64* random) {
    std::uniform_real_distribution<double> uniform(-0.5, 0.5);
    std::string points;
    constexpr int kPoints = 240;
    for (int i = 0; i <= kPoints; ++i) {
        const double angle = 6.283185307179586 * (i % kPoints) / kPoints;
        const double r = units * (i % kPoints == 0 ? 1.0 : 1.0 + 0.2 * uniform(*random));
        const double y = std::clamp(lat + r * std::sin(angle) * 90.0 / 1048576.0, -90.0, 90.0);
        const double x = std::clamp(lon + r * std::cos(angle) * 180.0 / 1048576.0, -180.0, 180.0);
        points += (i == 0 ? "[" : ",[") + std::to_string(x) + "," + std::to_string(y) + "]";
    }
    std::ofstream("zigzag.geojson")
            << R"({"type":"Feature","properties":{"tzid":"A/B"},"geometry":)"
            << R"({"type":"Polygon","coordinates":[[)" << points << "]]}}";
}

// Where truncation changes sides, where single precision is coarsest, and elsewhere: the
// certificate holds, and promises no less than it could.
TEST(Certificate, HoldsAndIsTight) {
    const TemporaryDirectory directory;
    offlinetz::StartGeometry();
    std::mt19937_64 random(20);
    const std::pair<double, double> places[] = {{0.0, 0.0},       {0.0, 101.3},  {51.2, 0.0002},
                                                {-33.3, -0.0003}, {64.9, 179.8}, {-17.0, -179.9},
                                                {11.7, 43.2},     {-77.7, 166.6}};
    for (const auto& [lat, lon] : places) {
        for (const double metres : {0.0, 45.0, 150.0}) {
            WriteZigzag(lat, lon, metres == 0.0 ? 40.0 : 300.0, &random);
            offlinetz::CompileOptions options;
            options.inputs = {"zigzag.geojson"};
            options.output = "out.bin";
            options.maxErrorMetres = metres;
            options.exceedMaxError = true;
            options.selfCheckPoints = 20000;
            const auto summary = offlinetz::Compile(options, kSilent);
            EXPECT_EQ(std::vector<std::string>(), summary.selfCheck.failures);
            EXPECT_GT(summary.selfCheck.greatestMetres, 0.5 * summary.certificate.metres)
                    << lat << ' ' << lon << ' ' << metres;
            EXPECT_EQ(summary.certificate.exceeding > 0,
                      metres > 0.0 && summary.certificate.metres > metres);
        }
    }
}

// Edges along which the length of a unit of longitude changes, an islet that such an edge must not
// pass, a chain that crosses the equator where its edge does not, a steep tip, and a sliver that
// rounding closes at another latitude than that of the other borders.
TEST(Certificate, HoldsForOddShapes) {
    const TemporaryDirectory directory;
    offlinetz::StartGeometry();
    struct Shape {
        const char* rings[2];  // Of zone A/A, and of another one or the same.
        const char* second;
    };
    const Shape shapes[] = {
            {{"[10,0],[10.15,89.9],[10,89.95],[30,89.8],[30,0],[10,0]", nullptr}, nullptr},
            {{"[10,0],[10.15,89.9],[10,89.95],[30,89.8],[30,0],[10,0]",
              "[10.0749,45],[10.07,45.02],[9.9,45.02],[9.9,45],[10.0749,45]"},
             "B/B"},
            {{"[10,-80],[10,80],[30,80],[30,-80],[10,-80]", nullptr}, nullptr},
            {{"[10,89.9],[11.5,89.99],[10,89.995],[50,89.98],[50,89.9],[10,89.9]", nullptr},
             nullptr},
            {{"[10,0.000176],[10.005,-0.000176],[10.01,0.000176],[10.01,-1],[10,-1],[10,0.000176]",
              nullptr},
             nullptr},
            {{"[34.541098,67.967006],[34.540501,67.537894],[41.40747,67.537894],"
              "[34.541098,67.967006]",
              nullptr},
             nullptr},
            {{"[10,-8e-5],[10.01,-8e-5],[10.01,8e-5],[10,8e-5],[10,-8e-5]",
              "[-100,85.00006],[-90,85.00006],[-90,86.00006],[-100,86.00006],[-100,85.00006]"},
             "A/A"},
    };
    for (const auto& shape : shapes) {
        std::ofstream file("shape.geojson");
        for (const char* const ring : shape.rings) {
            if (ring == nullptr) continue;
            file << R"({"type":"Feature","properties":{"tzid":")"
                 << (ring == shape.rings[0] ? "A/A" : shape.second)
                 << R"("},"geometry":{"type":"Polygon","coordinates":[[)" << ring << "]]}}\n";
        }
        file.close();
        offlinetz::CompileOptions options;
        options.inputs = {"shape.geojson"};
        options.output = "out.bin";
        options.exceedMaxError = true;
        options.selfCheckPoints = 20000;
        const auto summary = offlinetz::Compile(options, kSilent);
        EXPECT_EQ(std::vector<std::string>(), summary.selfCheck.failures) << shape.rings[0];
        EXPECT_GT(summary.selfCheck.differences, 0u) << shape.rings[0];
    }
}

// The self-check finds a border that is four units off, and a certificate that promises too much.
// compiler_fuzz shows that it reports nothing for a correct database.
TEST(SelfCheck, AllowsForTheCertificateAndNoMore) {
    const TemporaryDirectory directory;
    offlinetz::StartGeometry();
    const std::string land = OFFLINETZ_TESTS "/cli/inputs/land.geojson";
    const Bytes bytes = ReadFile(land);
    std::ofstream("shifted.geojson") << std::regex_replace(std::string(bytes.begin(), bytes.end()),
                                                           std::regex("\\[(1\\d),"), "[$1.0007,");
    const auto source = offlinetz::ReadSource({land}, kSilent.warn, kSilent.progress);
    offlinetz::CompileOptions options;
    options.output = "out.bin";
    options.maxErrorMetres = 0.0;
    for (const std::string& input : {land, std::string("shifted.geojson")}) {
        options.inputs = {input};
        offlinetz::Certificate certificate = offlinetz::Compile(options, kSilent).certificate;
        const DatabasePtr database = offlinetz::OpenDatabase("out.bin");
        const auto failures = [&] {
            return offlinetz::SelfCheck(source, *database, Grid(21), certificate, 4000, 1,
                                        kSilent.progress)
                    .failures.size();
        };
        EXPECT_EQ(input == land, failures() == 0);
        certificate.metres *= 0.8;
        EXPECT_GT(failures(), 0u);
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
