// The compiler's steps on rings; what a whole run makes of a file is in cli/compile.transcript.
#include <compile.h>
#include <cut.h>
#include <encode.h>
#include <gmock/gmock.h>
#include <grid.h>
#include <gtest/gtest.h>
#include <mend.h>
#include <self_check.h>
#include <simplify.h>
#include <source.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

#include "raw_database.h"
#include "temporary_directory.h"

using offlinetz::Grid;
using offlinetz::GridBox;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using offlinetz::Piece;
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
            {"two halves", {Clockwise(0, 0, 10, 10), Clockwise(0, 10, 10, 20)}, 1, 200},
            {"halves whose border has a vertex on one side only",
             {Clockwise(0, 0, 10, 10), {{0, 10}, {5, 10}, {10, 10}, {10, 20}, {0, 20}}},
             1,
             200},
            {"an overlap", {Clockwise(0, 0, 10, 10), Clockwise(5, 5, 15, 15)}, 1, 175},
            {"one inside the other", {Clockwise(0, 0, 10, 10), Clockwise(2, 2, 4, 4)}, 1, 100},
            {"a hole", {Clockwise(0, 0, 50, 50), hole}, 2, 2400},
            {"an island in a hole",
             {Clockwise(0, 0, 50, 50), hole, Clockwise(22, 22, 28, 28)},
             3,
             2436},
            {"a hole in nothing", {Clockwise(0, 0, 5, 5), hole}, 1, 25},
            {"a spike", {{{0, 0}, {10, 0}, {10, 10}, {10, 30}, {10, 10}, {0, 10}}}, 1, 100},
            // The western lobe runs counterclockwise: it is no area.
            {"a figure of eight", {{{0, 0}, {10, 20}, {0, 20}, {10, 0}}}, 1, 50},
            {"two alike", {Clockwise(0, 0, 10, 10), Clockwise(0, 0, 10, 10)}, 1, 100},
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

// A star around its center, so it never crosses itself.
GridRing RandomStar(std::mt19937_64* random) {
    const auto below = [random](uint64_t n) { return static_cast<int32_t>((*random)() % n); };
    const GridPoint center = {below(2000), below(2000)};
    GridRing ring;
    const int points = 3 + below(20);
    for (int i = 0; i < points; ++i) {
        const double radius = 50 + below(600);
        const double angle = -6.283185307 * i / points;
        ring.push_back({center.lat + static_cast<int32_t>(radius * std::sin(angle)),
                        center.lon + static_cast<int32_t>(radius * std::cos(angle))});
    }
    return ring;
}

// A long thin triangle that lies along all others.
GridRing RandomSliver(std::mt19937_64* random) {
    const auto below20 = [random] { return static_cast<int32_t>((*random)() % 20); };
    GridRing ring = {{below20(), below20()},
                     {100000 + below20(), 33333 + below20()},
                     {below20(), below20()}};
    if (offlinetz::DoubleArea(ring) > 0) std::reverse(ring.begin(), ring.end());
    return ring;
}

// Random drawings of several zones come out clean: no crossing, each vertex once a ring, and
// every point that is further than a unit from an edge in the same zones as before.
TEST(Mending, CleansDrawingsWithoutMovingBorders) {
    std::mt19937_64 random(5);
    for (int round = 0; round < 120; ++round) {
        std::vector<ZoneRings> zones(round % 2 == 0 ? 3 : 12);
        for (ZoneRings& rings : zones) {
            std::generate_n(std::back_inserter(rings), round % 2 == 0 ? 3 : 1, [&] {
                return round % 2 == 0 ? RandomStar(&random) : RandomSliver(&random);
            });
        }
        const std::vector<ZoneRings> before = zones;
        Mend(&zones);
        EXPECT_TRUE(offlinetz::IsClean(zones)) << round;
        for (size_t zone = 0; zone < zones.size(); ++zone) {
            for (GridRing ring : zones[zone]) {
                std::sort(ring.begin(), ring.end());
                EXPECT_EQ(ring.end(), std::adjacent_find(ring.begin(), ring.end()));
            }
            for (int i = 0; i < 200; ++i) {  // Beside an edge of any zone.
                const ZoneRings& rings = before[random() % before.size()];
                const GridRing& ring = rings[random() % rings.size()];
                const size_t from = random() % ring.size();
                const GridPoint& a = ring[from];
                const GridPoint& b = ring[(from + 1) % ring.size()];
                const double t = static_cast<double>(random() % 1000) / 1000;
                const double lat =
                        a.lat + t * (b.lat - a.lat) + static_cast<double>(random() % 9) - 4;
                const double lon =
                        a.lon + t * (b.lon - a.lon) + static_cast<double>(random() % 9) - 4;
                const Placing was = PlacingOf(before[zone], lat, lon);
                if (was.distance < 1.0) continue;
                EXPECT_EQ(was.winding > 0, PlacingOf(zones[zone], lat, lon).winding > 0)
                        << round << ": " << lat << " " << lon;
            }
        }
        if (testing::Test::HasFailure()) break;
    }
}

TEST(Simplifying, MovesSharedBordersAlikeAndKeepsIslands) {
    const Grid grid(21);
    // A wavy border between two zones, an islet just beside it within the tolerance, an island
    // of two units far away.
    GridRing west = {{0, 0}};
    GridRing east;
    std::vector<GridPoint> border;
    for (int32_t lat = 0; lat <= 1000; lat += 5) {
        border.push_back({lat, 1000 + (lat / 5) % 2});
    }
    west.push_back({1000, 0});
    west.insert(west.end(), border.rbegin(), border.rend());
    east.insert(east.end(), border.begin(), border.end());
    east.push_back({1000, 2000});
    east.push_back({0, 2000});
    const GridRing island = {{3000, 3000}, {3001, 3000}, {3002, 3001}, {3001, 3002}, {3000, 3001}};
    std::vector<ZoneRings> zones = {{west, island}, {east}};
    Mend(&zones);
    const std::vector<ZoneRings> before = zones;
    const double moved = offlinetz::Simplify(&zones, grid, 30.0);
    EXPECT_GT(moved, 1.0);
    EXPECT_LE(moved, 30.0);
    EXPECT_TRUE(offlinetz::IsClean(zones));
    EXPECT_LE(zones[0][0].size(), 6u);
    EXPECT_EQ(TotalArea({before[0][0]}) + TotalArea(before[1]),
              TotalArea({zones[0][0]}) + TotalArea(zones[1]));
    const GridBox box = offlinetz::BoxOf(zones[0][1]);
    EXPECT_EQ((GridPoint{3000, 3000}), box.min);
    EXPECT_EQ((GridPoint{3002, 3002}), box.max);

    // With no tolerance only points on straight lines go.
    std::vector<ZoneRings> exact = {{{{0, 0}, {5, 0}, {9, 0}, {9, 9}, {4, 4}, {2, 2}}}};
    Mend(&exact);
    EXPECT_EQ(0.0, offlinetz::Simplify(&exact, grid, 0.0));
    EXPECT_EQ(3u, exact[0][0].size());
}

TEST(Simplifying, LeavesAnIslandOnItsSideOfABorder) {
    const Grid grid(21);
    // The border bulges one unit around an islet; straightening it would swallow the islet.
    const GridRing land = {{0, 0}, {100, 0}, {100, 50}, {52, 50}, {50, 48}, {48, 50}, {0, 50}};
    const GridRing islet = {{50, 49}, {50, 51}, {51, 50}};
    std::vector<ZoneRings> zones = {{land}, {{islet.rbegin(), islet.rend()}}};
    Mend(&zones);
    offlinetz::Simplify(&zones, grid, 100.0);
    EXPECT_TRUE(offlinetz::IsClean(zones));
    ASSERT_EQ(1u, zones[1].size());
    EXPECT_EQ(3u, zones[1][0].size());
    EXPECT_LT(TotalArea(zones[0]), 5000);
}

// --- Cutting -----------------------------------------------------------------------------

// A coast of many points, as a closed ring around a center.
GridRing Coast(std::mt19937_64* random, bool clockwise) {
    GridRing ring;
    const int points = 800;
    double radius = 40000;
    for (int i = 0; i < points; ++i) {
        radius = std::clamp(radius + static_cast<double>((*random)() % 9001) - 4500.0, 9000.0,
                            90000.0);
        const double angle = (clockwise ? -6.283185307 : 6.283185307) * i / points;
        ring.push_back({static_cast<int32_t>(radius * std::sin(angle)),
                        static_cast<int32_t>(radius * std::cos(angle))});
    }
    return ring;
}

// A database of pieces answers every point as one of whole rings does, and never promises a
// greater distance.
TEST(Cutting, ChangesNoAnswerAndNoSafeDistanceForTheWorse) {
    std::mt19937_64 random(3);
    for (int round = 0; round < 6; ++round) {
        ZoneRings rings = {Coast(&random, true)};
        GridRing hole = Coast(&random, false);
        for (GridPoint& p : hole)
            p = {p.lat / 12, p.lon / 12};
        rings.push_back(hole);
        std::vector<ZoneRings> zones = {rings};
        Mend(&zones);
        std::vector<GridPoint> corners;  // Of the boxes that were made last.
        const auto database = [&](size_t maxPoints) {
            corners.clear();
            offlinetz::DatabaseContent content;
            content.precision = 21;
            content.fieldNames = {"TimezoneId"};
            content.zones = {"A"};
            for (const GridRing& ring : zones[0]) {
                for (Piece& piece : offlinetz::CutRing(ring, maxPoints)) {
                    const GridBox& box = piece.box;
                    corners.insert(corners.end(), {box.min,
                                                   box.max,
                                                   {box.min.lat, box.max.lon},
                                                   {box.max.lat, box.min.lon}});
                    content.entries.push_back({0, std::move(piece)});
                }
            }
            offlinetz::SectionSizes sizes;
            return OpenBytes(offlinetz::EncodeDatabase(content, &sizes));
        };
        const DatabasePtr whole = database(0);
        const DatabasePtr pieces = database(16 + 30 * static_cast<size_t>(round));
        ASSERT_NE(nullptr, whole);
        ASSERT_NE(nullptr, pieces);
        EXPECT_GT(ZDGetLength(pieces.get()), ZDGetLength(whole.get()));
        for (int i = 0; i < 20000; ++i) {
            GridPoint p = {static_cast<int32_t>(random() % 190001) - 95000,
                           static_cast<int32_t>(random() % 190001) - 95000};
            if (i % 4 == 0) {  // On or beside a vertex.
                const GridRing& ring = zones[0][random() % zones[0].size()];
                p = ring[random() % ring.size()];
                p.lat += static_cast<int32_t>(random() % 3) - 1;
                p.lon += static_cast<int32_t>(random() % 3) - 1;
            }
            if (i % 4 == 1) p = corners[random() % corners.size()];
            const float lat = DegreesAtUnits(p.lat, 21, 90.0);
            const float lon = DegreesAtUnits(p.lon, 21, 180.0);
            float wholeDistance;
            float pieceDistance;
            ZDResult* expected = ZDLookup(whole.get(), lat, lon, &wholeDistance);
            ZDResult* actual = ZDLookup(pieces.get(), lat, lon, &pieceDistance);
            EXPECT_EQ(expected->result, actual->result) << p.lat << " " << p.lon;
            EXPECT_LE(pieceDistance, wholeDistance) << p.lat << " " << p.lon;
            ZDFreeResults(expected);
            ZDFreeResults(actual);
        }
        if (testing::Test::HasFailure()) break;
    }
}

TEST(Cutting, BoxesTileTheRingsBox) {
    std::mt19937_64 random(8);
    std::vector<ZoneRings> zones = {{Coast(&random, true)}};
    Mend(&zones);
    const GridRing& ring = zones[0][0];
    const std::vector<Piece> pieces = offlinetz::CutRing(ring, 50);
    GridBox box = offlinetz::BoxOf(ring);
    box.min.lon -= offlinetz::kReaderShift;
    int64_t tiled = 0;
    const auto areaOf = [](const GridBox& b) {
        return (int64_t{b.max.lat} - b.min.lat + 1) * (int64_t{b.max.lon} - b.min.lon + 1);
    };
    for (const Piece& piece : pieces) {
        EXPECT_TRUE(box.Contains(piece.box));
        EXPECT_LE(piece.ring.size(), 50u + 10u);
        tiled += areaOf(piece.box);
    }
    EXPECT_EQ(areaOf(box), tiled);
    EXPECT_EQ(1u, offlinetz::CutRing(ring, 0).size());
}

// --- Checking ----------------------------------------------------------------------------

void DrawZone(const std::string& path, uint64_t seed, double shift) {
    std::mt19937_64 random(seed);
    const auto upTo1 = [&] { return static_cast<double>(random() >> 11) / 9007199254740992.0; };
    const double lat = 100.0 * upTo1() - 50.0;
    const double lon = shift + 300.0 * upTo1() - 150.0;
    std::ofstream file(path);
    file.precision(10);
    file << R"({"type":"FeatureCollection","features":[{"type":"Feature",)"
         << R"("properties":{"tzid":"A"},"geometry":{"type":"Polygon","coordinates":[[)";
    std::string first;
    for (int i = 0; i < 200; ++i) {
        const double radius = 2.0 + 2.0 * upTo1();
        const double angle = 6.283185307 * i / 200;
        std::ostringstream position;
        position.precision(10);
        position << "[" << lon + radius * std::cos(angle) << "," << lat + radius * std::sin(angle)
                 << "]";
        if (i == 0) first = position.str();
        file << position.str() << ",";
    }
    file << first << "]]}}]}";
}

// What a sound compile leaves is never too much; a border four units off is found.
TEST(SelfCheck, AllowsForTheGridAndNoMore) {
    TemporaryDirectory directory;
    offlinetz::StartGeometry();
    offlinetz::CompileListener listener;
    listener.warn = [](const std::string&) {};
    listener.progress = [](const char*, size_t, size_t) {};
    offlinetz::CompileOptions options;
    options.output = "out.bin";
    for (uint64_t seed = 1; seed <= 12; ++seed) {
        DrawZone("zone.geojson", seed, 0.0);
        DrawZone("shifted.geojson", seed, 4 * 180.0 / (1 << 20));
        options.selfCheckPoints = 4000;
        for (const double tolerance : {20.0, 0.0}) {
            options.toleranceMetres = tolerance;
            for (const int precision : {12, 21}) {
                options.precision = precision;
                options.inputs = {"zone.geojson"};
                const auto summary = offlinetz::Compile(options, listener);
                EXPECT_GT(summary.selfCheck.differences, 0u);
                EXPECT_THAT(summary.selfCheck.failures, testing::IsEmpty());
            }
        }
        options.selfCheckPoints = 0;
        options.inputs = {"shifted.geojson"};
        offlinetz::Compile(options, listener);
        const DatabasePtr shifted(ZDOpenDatabase("out.bin"));
        const auto source =
                offlinetz::ReadSource({"zone.geojson"}, listener.warn, listener.progress);
        const auto result = offlinetz::SelfCheck(source, shifted.get(), Grid(21), 0.0, 4000, 1,
                                                 listener.progress);
        EXPECT_THAT(result.failures, testing::Not(testing::IsEmpty())) << seed;
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
    content.entries = {{2, {{{5, 6}, {7, 8}}, {{1, 1}, {2, 1}, {2, 3}}}},
                       {0, {{{-1, 6}, {7, 8}}, {{-1, 3}, {0, 3}, {0, 4}}}}};
    offlinetz::SectionSizes sizes;
    const Bytes file = offlinetz::EncodeDatabase(content, &sizes);
    const Bytes expected = {'P', 'L', 'B', 1, 2, 21, 1, 1, 'F' ^ 0x80, 1, 'N' ^ 0x80, 12, 8, 14,
                            // Boxes: the more southern one first.
                            3, 12, 14, 16, 0, 0, 10, 12, 14, 16, 12, 7,
                            // Records.
                            3, 0xD5, 0xD4, 0xC3, 1, 'B' ^ 0x80, 0x80, 0x02,
                            // Rings, three units further west.
                            3, 3, 0, 2, 0, 0, 2, 3, 2, 5, 2, 0, 0, 4};
    EXPECT_EQ(WithTrailer(expected), file);
    EXPECT_EQ(14u, sizes.header);
    EXPECT_EQ(12u, sizes.boxTable);
}

TEST(Encoding, RefusesRingsThatNoReaderTakes) {
    // A comb whose western half needs nearly as many points as a reader takes.
    GridRing comb;
    for (int32_t lon = 0; lon < 999990; ++lon)
        comb.push_back({lon % 2, lon});
    for (int32_t lon = 2000000; lon > 1999950; --lon)
        comb.push_back({-2 - lon % 2, lon});
    std::reverse(comb.begin(), comb.end());
    offlinetz::DatabaseContent content;
    content.precision = 21;
    content.fieldNames = {"F"};
    content.zones = {"Z"};
    for (Piece& piece : offlinetz::CutRing(comb, 0))
        content.entries.push_back({0, std::move(piece)});
    offlinetz::SectionSizes sizes;
    EXPECT_NO_THROW(offlinetz::EncodeDatabase(content, &sizes));

    content.entries = {{0, {offlinetz::BoxOf(comb), comb}}};
    EXPECT_THROW(offlinetz::EncodeDatabase(content, &sizes), std::length_error);
    content.entries[0].piece.ring.resize(1000000);
    EXPECT_NO_THROW(offlinetz::EncodeDatabase(content, &sizes));
}

}  // namespace
