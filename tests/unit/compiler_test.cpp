// The compiler's steps on rings; what a whole run makes of a file is in cli/compile.transcript.
#include <compile.h>
#include <encode.h>
#include <fewest_vertices.h>
#include <grid.h>
#include <gtest/gtest.h>
#include <mend.h>
#include <self_check.h>
#include <simplify.h>
#include <source.h>
#include <tile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "raw_database.h"
#include "temporary_directory.h"

using offlinetz::Grid;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using offlinetz::ZoneRings;

namespace {

// --- Drawing on the grid -----------------------------------------------------------------

GridRing Clockwise(int32_t south, int32_t west, int32_t north, int32_t east) {
    return {{south, west}, {north, west}, {north, east}, {south, east}};
}

int64_t TotalArea(const ZoneRings& rings) {
    int64_t area = 0;
    for (const GridRing& ring : rings)
        area -= offlinetz::DoubleArea(ring);
    return area / 2;
}

void Mend(std::vector<ZoneRings>* zones) {
    offlinetz::MendOnGrid(zones, [](int, size_t) {});
}

TEST(Mending, UnitesPartsAndDropsWhatWindsTwice) {
    const GridRing hole = {{20, 20}, {20, 30}, {30, 30}, {30, 20}};  // Counterclockwise.
    const struct {
        const char* what;
        ZoneRings rings;
        size_t count;
        int64_t area;
    } cases[] = {
            {"halves whose border has a vertex on one side only",
             {Clockwise(0, 0, 10, 10), {{0, 10}, {5, 10}, {10, 10}, {10, 20}, {0, 20}}},
             1,
             200},
            {"an overlap", {Clockwise(0, 0, 10, 10), Clockwise(5, 5, 15, 15)}, 1, 175},
            {"a hole", {Clockwise(0, 0, 50, 50), hole}, 2, 2400},
            {"an island in a hole",
             {Clockwise(0, 0, 50, 50), hole, Clockwise(22, 22, 28, 28)},
             3,
             2436},
            {"a hole in nothing", {Clockwise(0, 0, 5, 5), hole}, 1, 25},
            {"a spike", {{{0, 0}, {10, 0}, {10, 10}, {10, 30}, {10, 10}, {0, 10}}}, 1, 100},
            // The western lobe runs counterclockwise: it is no area.
            {"a figure of eight", {{{0, 0}, {10, 20}, {0, 20}, {10, 0}}}, 1, 50},
            {"three alike in a larger one that shares an edge",
             {Clockwise(0, 0, 5, 5), Clockwise(0, 0, 5, 5), Clockwise(0, 0, 20, 5),
              Clockwise(0, 0, 5, 5)},
             1,
             100},
            {"two holes alike",
             {Clockwise(0, 0, 50, 50), hole, hole, Clockwise(0, 0, 50, 50)},
             2,
             2400},
            {"islands that touch in a point",
             {Clockwise(0, 0, 10, 10), Clockwise(10, 10, 20, 20)},
             2,
             200},
    };
    for (const auto& c : cases) {
        std::vector<ZoneRings> zones = {c.rings};
        Mend(&zones);
        EXPECT_TRUE(offlinetz::IsClean(zones)) << c.what;
        EXPECT_EQ(c.count, zones[0].size()) << c.what;
        EXPECT_EQ(c.area, TotalArea(zones[0])) << c.what;
    }
}

// How a point lies to a zone's rings: how often they wind around it, and how near they come.
struct Placing {
    int winding = 0;
    double distance = 1e9;
};

Placing PlacingOf(const ZoneRings& rings, double lat, double lon) {
    Placing placing;
    for (const GridRing& ring : rings) {
        for (size_t i = 0; i < ring.size(); ++i) {
            const GridPoint& a = ring[i];
            const GridPoint& b = ring[(i + 1) % ring.size()];
            const double dx = b.lon - a.lon;
            const double dy = b.lat - a.lat;
            const double t = std::clamp(
                    ((lon - a.lon) * dx + (lat - a.lat) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
            placing.distance = std::min(placing.distance,
                                        std::hypot(a.lon + t * dx - lon, a.lat + t * dy - lat));
            const double side = dx * (lat - a.lat) - dy * (lon - a.lon);
            if ((a.lat > lat) != (b.lat > lat) && (side > 0) == (b.lat > a.lat)) {
                placing.winding += b.lat > a.lat ? -1 : 1;
            }
        }
    }
    return placing;
}

TEST(Simplifying, KeepsIslandsAndEdges) {
    const Grid grid(21);
    // An island whose northern tip is less than the tolerance from the rest, and one with no more
    // than two points on its box.
    const GridRing island = {{3000, 3010}, {3001, 3000}, {3002, 3010}, {3001, 3020}};
    const GridRing sliver = {{4000, 4000}, {4002, 4001}, {4003, 4003}, {4001, 4002}};
    std::vector<ZoneRings> zones = {{island, sliver}};
    zones[0][0].insert(zones[0][0].end() - 1, {{3002, 3012}, {3001, 3018}});
    Mend(&zones);
    EXPECT_LE(offlinetz::Simplify(&zones, grid, 30.0), 30.0);
    EXPECT_TRUE(offlinetz::IsClean(zones));
    EXPECT_EQ(island, zones[0][0]);
    EXPECT_EQ(3u, zones[0][1].size());
    EXPECT_TRUE(offlinetz::BoxOf(zones[0][1]).Contains(offlinetz::BoxOf(sliver)));

    // A zone thinner than the tolerance between two others, at the world's edge.
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

// A ragged coast as a closed ring around a center.
GridRing Coast(std::mt19937_64* random, const GridPoint& center, double size, int points) {
    GridRing ring;
    double radius = size / 2;
    for (int i = 0; i < points; ++i) {
        const double change = static_cast<double>((*random)() % 2001) / 1000.0 - 1.0;
        radius = std::clamp(radius + change * size / 20, size / 10, size);
        const double angle = -6.283185307 * i / points;  // Clockwise.
        ring.push_back({center.lat + static_cast<int32_t>(radius * std::sin(angle)),
                        center.lon + static_cast<int32_t>(radius * std::cos(angle))});
    }
    return ring;
}

// No vertex of any border comes to lie on the other side of another; drawings so crowded that
// many edges within the tolerance must not be taken.
TEST(Simplifying, TakesNoVertexToTheOtherSide) {
    const Grid grid(21);
    std::mt19937_64 random(11);
    for (int round = 0; round < 5; ++round) {
        std::vector<ZoneRings> zones(3);
        for (ZoneRings& rings : zones) {
            for (int i = 0; i < 15; ++i) {
                const auto center = [&] { return static_cast<int32_t>(random() % 400); };
                rings.push_back(Coast(&random, {center(), center()}, i < 2 ? 200.0 : 15.0, 80));
            }
        }
        Mend(&zones);
        const std::vector<ZoneRings> before = zones;
        const double moved = offlinetz::Simplify(&zones, grid, 100.0);
        EXPECT_TRUE(offlinetz::IsClean(zones));
        double farthest = 0.0;
        for (size_t zone = 0; zone < zones.size(); ++zone) {
            for (size_t r = 0; r < zones[zone].size(); ++r) {
                const GridRing& ring = zones[zone][r];
                size_t edge = ring.size() - 1;
                for (const GridPoint& p : before[zone][r]) {
                    if (p == ring[(edge + 1) % ring.size()]) edge = (edge + 1) % ring.size();
                    farthest = std::max(
                            farthest, grid.SquaredMetresToSegment(p, ring[edge],
                                                                  ring[(edge + 1) % ring.size()]));
                }
            }
            for (const ZoneRings& others : before) {
                for (const GridRing& ring : others) {
                    for (const GridPoint& p : ring) {
                        const Placing was = PlacingOf(before[zone], p.lat, p.lon);
                        if (was.distance == 0.0) continue;
                        EXPECT_EQ(was.winding, PlacingOf(zones[zone], p.lat, p.lon).winding)
                                << p.lat << " " << p.lon;
                    }
                }
            }
        }
        EXPECT_EQ(moved, std::sqrt(farthest));
        EXPECT_GT(moved, 80.0);
        EXPECT_LE(moved, 100.0);
    }
}

// Against the cheapest way over all edges that there are.
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
        // Most of all edges count, then bytes, then the area moved.
        constexpr int64_t kNone = int64_t{1} << 50;
        const auto costOfEdge = [&](size_t from, size_t to) {
            const GridRing between(&line[from], &line[to] + 1);
            for (const GridPoint& p : between) {
                if (grid.SquaredMetresToSegment(p, line[from], line[to]) > tolerance * tolerance) {
                    return kNone;
                }
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
        const std::vector<size_t> kept = offlinetz::FewestVertices(line, grid, tolerance, isClear);
        EXPECT_EQ(0u, kept.front());
        EXPECT_EQ(10u, kept.back());
        int64_t cost = 0;
        for (size_t i = 0; i + 1 < kept.size(); ++i)
            cost += costOfEdge(kept[i], kept[i + 1]);
        EXPECT_EQ(least[10], cost);
    }

    // Edges reach as far as they may.
    GridRing waves;
    for (int32_t i = 0; i < 100000; ++i)
        waves.push_back({i % 3, i});
    EXPECT_EQ((std::vector<size_t>{0, 99999}),
              offlinetz::FewestVertices(waves, grid, 20.0, [](size_t, size_t) { return true; }));
}

// --- Checking ----------------------------------------------------------------------------

void DrawZone(const std::string& path, uint64_t seed, double shift) {
    std::mt19937_64 random(seed);
    const auto upTo1 = [&] { return static_cast<double>(random() >> 11) / 9007199254740992.0; };
    const double lat = 100.0 * upTo1() - 50.0;
    const double lon = shift + 300.0 * upTo1() - 150.0;
    std::string positions;
    std::string first;
    for (int i = 0; i < 200; ++i) {
        const double radius = 2.0 + 2.0 * upTo1();
        const double angle = 6.283185307 * i / 200;
        const std::string position = '[' + std::to_string(lon + radius * std::cos(angle)) + ',' +
                                     std::to_string(lat + radius * std::sin(angle)) + ']';
        if (i == 0) first = position;
        positions += position + ',';
    }
    std::ofstream(path) << R"({"type":"FeatureCollection","features":[{"type":"Feature",)"
                        << R"("properties":{"tzid":"A"},"geometry":{"type":"Polygon",)"
                        << R"("coordinates":[[)" << positions << first << "]]}}]}";
}

// A border four units off is found; that a sound compile is never blamed shows the fuzz target of
// the compiler.
TEST(SelfCheck, AllowsForTheGridAndNoMore) {
    const TemporaryDirectory directory;
    offlinetz::StartGeometry();
    const offlinetz::CompileListener listener = {[](const std::string&) {},
                                                 [](const char*, size_t, size_t) {}};
    offlinetz::CompileOptions options;
    options.output = "out.bin";
    options.toleranceMetres = 0.0;
    for (uint64_t seed = 1; seed <= 12; ++seed) {
        DrawZone("zone.geojson", seed, 0.0);
        DrawZone("shifted.geojson", seed, 4 * 180.0 / (1 << 20));
        const auto source =
                offlinetz::ReadSource({"zone.geojson"}, listener.warn, listener.progress);
        for (const char* input : {"zone.geojson", "shifted.geojson"}) {
            options.inputs = {input};
            offlinetz::Compile(options, listener);
            const DatabasePtr database(ZDOpenDatabase("out.bin"));
            const auto result = offlinetz::SelfCheck(source, database.get(), Grid(21), 0.0, 4000, 1,
                                                     listener.progress);
            EXPECT_GT(result.differences, 0u);
            EXPECT_EQ(input[0] == 'z', result.failures.empty()) << seed;
        }
    }
}

TEST(Encoding, WritesTheFormatByteByByte) {
    offlinetz::DatabaseContent content;
    content.tableType = 1;
    content.version = 2;
    content.precision = 21;
    content.fieldNames = {"F"};
    content.notice = "N";
    content.zones = {"UTC", "B", "UTC"};  // The third is a reference to the first.
    content.entries = {{2, {{5, 6}, {7, 8}}, {{1, 1}, {2, 1}, {2, 3}}},
                       {offlinetz::TableEntry::kNoZone, {{-1, 6}, {7, 8}}, {{-1, 3}, {0, 3}}},
                       {1, {{-1, 6}, {7, 8}}, {{-1, 3}, {0, 3}, {0, 4}}}};
    offlinetz::SectionSizes sizes;
    const Bytes file = offlinetz::EncodeDatabase(content, &sizes);
    const Bytes expected = {'P', 'L', 'B', 1, 2, 21, 1, 1, 'F' ^ 0x80, 1, 'N' ^ 0x80, 18, 8, 19,
                            // Boxes: the more southern ones first, the one of no zone after B.
                            3, 12, 14, 16, 8, 0, 3, 12, 14, 16, 0, 7, 10, 12, 14, 16, 4, 5,
                            // Records.
                            3, 0xD5, 0xD4, 0xC3, 1, 'B' ^ 0x80, 0x80, 0x02,
                            // Rings, three units further west.
                            3, 3, 0, 2, 0, 0, 2, 2, 3, 0, 2, 0, 3, 2, 5, 2, 0, 0, 4};
    EXPECT_EQ(WithTrailer(expected), file);
    EXPECT_EQ(14u, sizes.header);
    EXPECT_EQ(18u, sizes.boxTable);
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
