// The compiler's steps on rings; what a whole run makes of a file is in cli/compile.transcript.
#include <encode.h>
#include <grid.h>
#include <gtest/gtest.h>
#include <mend.h>
#include <simplify.h>
#include <tile.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "raw_database.h"

using offlinetz::Grid;
using offlinetz::GridBox;
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
        EXPECT_EQ(0u, offlinetz::CountCrossings(zones)) << c.what;
        EXPECT_EQ(c.count, zones[0].size()) << c.what;
        EXPECT_EQ(c.area, TotalArea(zones[0])) << c.what;
    }
}

// Random scribbles of several zones come out clean: no crossing, each vertex once a ring, and
// every point far enough from an edge in the same zones as before.
TEST(Mending, CleansScribblesWithoutMovingAnything) {
    std::mt19937_64 random(5);
    for (int round = 0; round < 60; ++round) {
        std::vector<ZoneRings> zones(3);
        for (ZoneRings& rings : zones) {
            for (int r = 0; r < 3; ++r) {
                const auto center = [&] { return static_cast<int32_t>(random() % 2000); };
                const GridPoint c = {center(), center()};
                GridRing ring;  // A star around its center, so it never crosses itself.
                const int points = 3 + static_cast<int>(random() % 20);
                for (int i = 0; i < points; ++i) {
                    const double radius = 50 + static_cast<double>(random() % 600);
                    const double angle = -6.283185307 * i / points;
                    ring.push_back({c.lat + static_cast<int32_t>(radius * std::sin(angle)),
                                    c.lon + static_cast<int32_t>(radius * std::cos(angle))});
                }
                rings.push_back(ring);
            }
        }
        const std::vector<ZoneRings> before = zones;
        Mend(&zones);
        EXPECT_EQ(0u, offlinetz::CountCrossings(zones));
        for (size_t zone = 0; zone < zones.size(); ++zone) {
            for (GridRing ring : zones[zone]) {
                std::sort(ring.begin(), ring.end());
                EXPECT_EQ(ring.end(), std::adjacent_find(ring.begin(), ring.end()));
            }
            const auto contains = [](const ZoneRings& rings, const GridPoint& p, double* distance) {
                int winding = 0;
                for (const GridRing& ring : rings) {
                    for (size_t i = 0; i < ring.size(); ++i) {
                        const GridPoint& a = ring[i];
                        const GridPoint& b = ring[(i + 1) % ring.size()];
                        const double dx = b.lon - a.lon;
                        const double dy = b.lat - a.lat;
                        const double t = std::clamp(
                                ((p.lon - a.lon) * dx + (p.lat - a.lat) * dy) / (dx * dx + dy * dy),
                                0.0, 1.0);
                        *distance = std::min(*distance, std::hypot(a.lon + t * dx - p.lon,
                                                                   a.lat + t * dy - p.lat));
                        if ((a.lat > p.lat) != (b.lat > p.lat) &&
                            (offlinetz::Cross(a, b, p) > 0) == (b.lat > a.lat)) {
                            winding += b.lat > a.lat ? -1 : 1;
                        }
                    }
                }
                return winding > 0;
            };
            for (int i = 0; i < 200; ++i) {
                const GridPoint p = {static_cast<int32_t>(random() % 2000),
                                     static_cast<int32_t>(random() % 2000)};
                double distance = 1e9;
                double ignored = 1e9;
                const bool was = contains(before[zone], p, &distance);
                if (distance < 3.0) continue;
                EXPECT_EQ(was, contains(zones[zone], p, &ignored)) << p.lat << " " << p.lon;
            }
        }
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
    EXPECT_EQ(0u, offlinetz::CountCrossings(zones));
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
    EXPECT_EQ(0u, offlinetz::CountCrossings(zones));
    ASSERT_EQ(1u, zones[1].size());
    EXPECT_EQ(3u, zones[1][0].size());
    EXPECT_LT(TotalArea(zones[0]), 5000);
}

// --- Tiling ------------------------------------------------------------------------------

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

// A world of a few zones: lands that overlap, an enclave, lakes, islands, one zone across a whole
// corner of the world and past its edges.
std::vector<ZoneRings> DrawWorld(std::mt19937_64* random, const Grid& grid) {
    const auto place = [&] { return static_cast<int32_t>((*random)() % 400001) - 200000; };
    std::vector<ZoneRings> zones(5);
    GridPoint centers[3];
    for (size_t zone = 0; zone < 3; ++zone) {
        centers[zone] = {place(), place()};
        zones[zone].push_back(Coast(random, centers[zone], 150000, 700));
    }
    GridRing lake = Coast(random, centers[0], 14000, 100);
    std::reverse(lake.begin(), lake.end());
    zones[0].push_back(lake);
    GridRing enclave = Coast(random, centers[1], 9000, 60);
    zones[3].push_back(enclave);
    std::reverse(enclave.begin(), enclave.end());
    zones[1].push_back(enclave);
    for (int i = 0; i < 30; ++i)
        zones[3].push_back(Coast(random, {place(), place()}, 500.0, 12));
    const int32_t edge = grid.Scale() + 8;
    GridRing corner = Clockwise(400000, 300000, edge, edge);
    corner.insert(corner.begin() + 1, {700000, 310000});
    zones[4].push_back(corner);
    Mend(&zones);
    return zones;
}

struct Drawing {
    std::vector<ZoneRings> zones;
    std::vector<offlinetz::TableEntry> entries;
    DatabasePtr database;
};

Drawing Draw(const std::vector<ZoneRings>& zones, const Grid& grid, size_t maxPoints) {
    Drawing drawing;
    drawing.zones = zones;
    drawing.entries = offlinetz::TileWorld(zones, grid, maxPoints, [](size_t) {});
    offlinetz::DatabaseContent content;
    content.precision = grid.Precision();
    content.fieldNames = {"TimezoneId"};
    for (size_t zone = 0; zone < zones.size(); ++zone)
        content.zones.push_back(std::string(1, static_cast<char>('A' + zone)));
    content.entries = drawing.entries;
    offlinetz::SectionSizes sizes;
    drawing.database = OpenBytes(offlinetz::EncodeDatabase(content, &sizes));
    return drawing;
}

using Answer = std::set<std::pair<std::string, int>>;

Answer AnswerAt(const Drawing& drawing, const GridPoint& p, double* units = nullptr) {
    float distance;
    ZDResult* results =
            ZDLookup(drawing.database.get(), DegreesAtUnits(p.lat, 21, 90.0),
                     DegreesAtUnits(p.lon, 21, 180.0), units != nullptr ? &distance : nullptr);
    Answer answer;
    for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r)
        answer.emplace(r->fieldValues[0], r->result);
    ZDFreeResults(results);
    if (units != nullptr) *units = static_cast<double>(distance) * 1048576.0 / 90.0;
    return answer;
}

// Vertices, places beside edges, corners of tiles, the world's edges, or anywhere.
GridPoint Somewhere(std::mt19937_64* random, const Drawing& drawing, const Grid& grid) {
    const auto jitter = [&] { return static_cast<int32_t>((*random)() % 3) - 1; };
    const auto& entry = drawing.entries[(*random)() % drawing.entries.size()];
    switch ((*random)() % 4) {
        case 0: {
            const ZoneRings& rings = drawing.zones[(*random)() % drawing.zones.size()];
            const GridRing& ring = rings[(*random)() % rings.size()];
            const GridPoint p = ring[(*random)() % ring.size()];
            return {p.lat + jitter(), p.lon + jitter()};
        }
        case 1:
            return (*random)() % 2 == 0 ? entry.box.min : entry.box.max;
        case 2: {
            const int32_t field = (*random)() % 2 == 0 ? 300000 : grid.Scale();
            const auto any = [&] {
                return static_cast<int32_t>((*random)() % (2 * static_cast<uint32_t>(field) + 1)) -
                       field;
            };
            return {any(), any()};
        }
        default: {
            const GridRing& ring = entry.ring;
            const GridPoint& a = ring[(*random)() % ring.size()];
            const GridPoint& b = ring[(*random)() % ring.size()];
            return {std::clamp((a.lat + b.lat) / 2 + jitter(), -grid.Scale(), grid.Scale()),
                    std::clamp((a.lon + b.lon) / 2 + jitter(), -grid.Scale(), grid.Scale())};
        }
    }
}

TEST(Tiling, ChangesNoAnswerAndPromisesNoMoreThanItKeeps) {
    const Grid grid(21);
    std::mt19937_64 random(3);
    for (const size_t maxPoints : std::initializer_list<size_t>{40, 90, 250}) {
        const std::vector<ZoneRings> zones = DrawWorld(&random, grid);
        const Drawing whole = Draw(zones, grid, 0);
        const Drawing tiled = Draw(zones, grid, maxPoints);
        ASSERT_NE(nullptr, tiled.database);
        int wide = 0;
        for (int i = 0; i < 20000 && !HasFailure(); ++i) {
            const GridPoint p = Somewhere(&random, tiled, grid);
            double distance;
            const Answer answer = AnswerAt(tiled, p, &distance);
            EXPECT_EQ(AnswerAt(whole, p), answer) << p.lat << " " << p.lon;
            // Within three quarters of the distance less three units nothing has another answer.
            const double radius = 0.75 * distance - 3.0;
            if (radius < 1.0) continue;
            if (distance > 20000.0) ++wide;
            for (int k = 0; k < 8; ++k) {
                GridPoint q = Somewhere(&random, tiled, grid);
                double lat = q.lat - p.lat;
                double lon = q.lon - p.lon;
                const double length = std::hypot(lat, 2 * lon);
                if (k % 2 == 0 || length > radius) {  // Towards it, to the edge of the radius.
                    lat *= radius / std::max(length, 1.0);
                    lon *= radius / std::max(length, 1.0);
                    q = {p.lat + static_cast<int32_t>(lat), p.lon + static_cast<int32_t>(lon)};
                }
                if (std::abs(q.lat) > grid.Scale() || std::abs(q.lon) > grid.Scale()) continue;
                const Answer other = AnswerAt(tiled, q);
                EXPECT_EQ(answer, other) << p.lat << " " << p.lon << " says " << distance
                                         << ", not at " << q.lat << " " << q.lon;
            }
        }
        EXPECT_GT(wide, 1000);  // Much wider than tiles.
    }
}

TEST(Tiling, EveryPointLiesInOneTile) {
    const Grid grid(21);
    std::mt19937_64 random(8);
    const Drawing tiled = Draw(DrawWorld(&random, grid), grid, 60);
    int64_t area = 0;
    const GridBox world = {{-grid.Scale() - 32, -grid.Scale() - 32},
                           {grid.Scale() + 31, grid.Scale() + 31}};
    std::map<GridPoint, std::vector<const offlinetz::TableEntry*>> tiles;
    for (const offlinetz::TableEntry& entry : tiled.entries)
        tiles[entry.box.min].push_back(&entry);
    for (const auto& [corner, entries] : tiles) {
        const GridBox& box = entries[0]->box;
        EXPECT_TRUE(world.Contains(box));
        size_t points = 0;
        std::set<uint32_t> zones;
        for (const offlinetz::TableEntry* entry : entries) {
            EXPECT_EQ(box.max, entry->box.max);
            points += entry->ring.size();
            zones.insert(entry->zone);
        }
        EXPECT_LE(points, 60u + 8 + 4 * zones.size());
        area += (int64_t{box.max.lat} - box.min.lat + 1) * (int64_t{box.max.lon} - box.min.lon + 1);
    }
    EXPECT_EQ(int64_t{world.max.lat - world.min.lat + 1} * (world.max.lon - world.min.lon + 1),
              area);
    EXPECT_GT(tiles.size(), 30u);
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

}  // namespace
