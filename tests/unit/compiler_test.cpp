#include <compile.h>
#include <cut.h>
#include <gmock/gmock.h>
#include <grid.h>
#include <gtest/gtest.h>
#include <mend.h>
#include <simplify.h>
#include <snap.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "plain_reader.h"
#include "raw_database.h"
#include "temporary_directory.h"

using offlinetz::CompileOptions;
using offlinetz::CompileSummary;
using offlinetz::Grid;
using offlinetz::GridBox;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using offlinetz::Piece;
using offlinetz::ZoneRings;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

std::string Feature(const std::string& tzid, const std::string& coordinates,
                    const std::string& type = "Polygon") {
    return R"({"type":"Feature","properties":{"tzid":")" + tzid + R"("},"geometry":{"type":")" +
           type + R"(","coordinates":)" + coordinates + "}}";
}

std::string Collection(const std::vector<std::string>& features) {
    std::string text = R"({"type":"FeatureCollection","features":[)";
    for (size_t i = 0; i < features.size(); ++i)
        text += (i == 0 ? "" : ",") + features[i];
    return text + "]}";
}

std::string RingText(const std::vector<std::pair<double, double>>& lonLat) {
    std::string text = "[";
    for (size_t i = 0; i <= lonLat.size(); ++i) {
        const auto& [lon, lat] = lonLat[i % lonLat.size()];
        char pair[64];
        std::snprintf(pair, sizeof pair, "%s[%.7f,%.7f]", i == 0 ? "" : ",", lon, lat);
        text += pair;
    }
    return text + "]";
}

std::string BoxText(double west, double south, double east, double north) {
    return RingText({{west, south}, {west, north}, {east, north}, {east, south}});
}

class CompilerTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { offlinetz::StartGeometry(); }

    CompileSummary Compile(const std::string& json, CompileOptions options = {}) {
        WriteFile("in.geojson", Bytes(json.begin(), json.end()));
        if (options.inputs.empty()) options.inputs = {"in.geojson"};
        options.output = "out.bin";
        mWarnings.clear();
        offlinetz::CompileListener listener;
        listener.warn = [this](const std::string& line) { mWarnings.push_back(line); };
        listener.progress = [](const char*, size_t, size_t) {};
        const CompileSummary summary = offlinetz::Compile(options, listener);
        mDatabase.reset(ZDOpenDatabase("out.bin"));
        return summary;
    }

    std::vector<std::string> ZonesAt(double lat, double lon) {
        return offlinetz::ZonesAt(mDatabase.get(), static_cast<float>(lat),
                                  static_cast<float>(lon));
    }

    TemporaryDirectory mDirectory;
    std::vector<std::string> mWarnings;
    DatabasePtr mDatabase;
};

TEST_F(CompilerTest, WritesWhatTheReaderAnswers) {
    CompileOptions options;
    options.version = 77;
    options.notice = "A release. © someone";
    options.selfCheckPoints = 2000;
    const CompileSummary summary =
            Compile(Collection({Feature("Land/West", "[" + BoxText(10, 10, 12, 12) + "]"),
                                // Two features of one zone that share a border, one with a hole.
                                Feature("Land/East", "[" + BoxText(12, 10, 14, 12) + "," +
                                                             BoxText(12.5, 10.5, 13, 11) + "]"),
                                Feature("Land/East",
                                        "[[" + BoxText(14, 10, 15, 12) + "],[" +
                                                BoxText(20, 20, 21, 21) + "]]",
                                        "MultiPolygon"),
                                Feature("Land/Disputed", "[" + BoxText(11, 11, 13, 13) + "]"),
                                Feature("Etc/GMT-1", "[" + BoxText(0, 0, 30, 30) + "]"),
                                Feature("Etc/UTC", "[" + BoxText(-40, -40, -39, -39) + "]")}),
                    options);
    ASSERT_NE(nullptr, mDatabase);
    EXPECT_EQ(77u, ZDgetDBVersion(mDatabase.get()));
    EXPECT_EQ(options.notice, ZDGetNotice(mDatabase.get()));
    EXPECT_EQ(4u, summary.zones);
    EXPECT_EQ(1u, summary.seaFeatures);
    EXPECT_THAT(summary.selfCheck.failures, IsEmpty());
    EXPECT_THAT(ZonesAt(10.5, 11.5), ElementsAre("Land/West"));
    EXPECT_THAT(ZonesAt(10.2, 12.2), ElementsAre("Land/East"));
    EXPECT_THAT(ZonesAt(10.7, 12.7), IsEmpty());
    EXPECT_THAT(ZonesAt(10.5, 14), ElementsAre("Land/East"));  // The border between its parts.
    EXPECT_THAT(ZonesAt(20.5, 20.5), ElementsAre("Land/East"));
    EXPECT_THAT(ZonesAt(11.5, 11.5), ElementsAre("Land/Disputed", "Land/West"));
    EXPECT_THAT(ZonesAt(-39.5, -39.5), ElementsAre("Etc/UTC"));
    EXPECT_THAT(ZonesAt(5, 5), IsEmpty());
}

TEST_F(CompilerTest, StoresIdentifiersQuotedOrBare) {
    const std::string json = Collection({Feature("Land/West", "[" + BoxText(1, 1, 2, 2) + "]")});
    for (const bool bare : {false, true}) {
        CompileOptions options;
        options.bareIdentifiers = bare;
        Compile(json, options);
        ZDResult* results = ZDLookup(mDatabase.get(), 1.5f, 1.5f, nullptr);
        EXPECT_STREQ(bare ? "Land/West" : "\"Land/West\"", results->fieldValues[0]);
        ZDFreeResults(results);
    }
}

TEST_F(CompilerTest, ReadsGzipAndGivesTheSameBytes) {
    const std::string json = Collection({Feature("A", "[" + BoxText(1, 1, 2, 2) + "]"),
                                         Feature("B", "[" + BoxText(2, 1, 3, 2) + "]")});
    Compile(json);
    const Bytes plain = ReadFile("out.bin");
    gzFile file = gzopen("in.gz", "wb");
    gzwrite(file, json.data(), static_cast<unsigned>(json.size()));
    gzclose(file);
    CompileOptions options;
    options.inputs = {"in.gz"};
    Compile(json, options);
    EXPECT_EQ(plain, ReadFile("out.bin"));

    // A file cut short is refused.
    const Bytes whole = ReadFile("in.gz");
    WriteFile("in.gz", Bytes(whole.begin(), whole.end() - 9));
    EXPECT_THROW(Compile(json, options), offlinetz::InputError);
}

TEST_F(CompilerTest, RefusesBadInputAndKeepsTheOldFile) {
    const std::string good = "[" + BoxText(1, 1, 2, 2) + "]";
    const struct {
        const char* what;
        std::string json;
        const char* reason;
    } cases[] = {
            {"broken JSON", "{\"type\":", "in.geojson: is not JSON"},
            {"another type", R"({"type":"Feature"})", "is not a GeoJSON FeatureCollection"},
            {"no tzid", Collection({Feature("A", good), R"({"type":"Feature","properties":{}})"}),
             "feature 1: has no tzid"},
            {"no geometry",
             Collection({R"({"type":"Feature","properties":{"tzid":"A"},"geometry":null})"}),
             "feature 0 (A): has no geometry"},
            {"a line", Collection({Feature("A", "[[1,1],[2,2]]", "LineString")}),
             "its geometry is a LineString"},
            {"an open ring", Collection({Feature("A", "[[[1,1],[1,2],[2,2],[2,1]]]")}),
             "a ring is open: it starts at 1, 1 and ends at 2, 1"},
            {"two points", Collection({Feature("A", "[[[1,1],[1,2],[1,1]]]")}),
             "a ring has 3 positions"},
            {"out of the world", Collection({Feature("A", "[" + BoxText(179, 1, 181, 2) + "]")}),
             "a ring leaves the world at 181, 2"},
            {"not numbers", Collection({Feature("A", "[[[1,1],[1,2],[\"x\",2],[1,1]]]")}),
             "a position is not an array of longitude and latitude"},
            {"a ring that crosses itself widely",
             Collection({Feature("A", "[" + RingText({{1, 1}, {2, 2}, {2, 1}, {1, 2}}) + "]")}),
             "feature 0 (A): Self-intersection at 1.5, 1.5; mending it would change its area"},
            {"only sea", Collection({Feature("Etc/GMT", good)}), "the input holds no land zone"},
            {"a quote in a name", Collection({Feature("A\\\"B", good)}), "double-quote"},
            {"a line break in a name", Collection({Feature("A\\nB", good)}), "control character"},
            {"a name too long", Collection({Feature(std::string(254, 'x'), good)}),
             "a text of more than 255 bytes"},
            {"smaller than the grid",
             Collection({Feature(
                     "A", "[" + RingText({{1, 1}, {1.00001, 1}, {1.00001, 3}, {1, 3}}) + "]")}),
             "A: vanishes on a grid this coarse"},
    };
    WriteFile("out.bin", {'o', 'l', 'd'});
    for (const auto& c : cases) {
        try {
            Compile(c.json);
            ADD_FAILURE() << c.what << " was accepted";
        } catch (const std::exception& error) {
            EXPECT_THAT(error.what(), HasSubstr(c.reason)) << c.what;
        }
        EXPECT_EQ((Bytes{'o', 'l', 'd'}), ReadFile("out.bin")) << c.what;
    }
    CompileOptions missing;
    missing.inputs = {"nowhere.geojson"};
    EXPECT_THROW(Compile("", missing), offlinetz::InputError);
    // Nothing is left beside the old file and the input.
    EXPECT_EQ(2, std::distance(fs::directory_iterator("."), fs::directory_iterator()));
}

// Islets smaller than a unit, alone, two in one unit, and as a thin hook: none vanishes.
TEST_F(CompilerTest, KeepsIsletsThatRoundToNothing) {
    const double u = 180.0 / 1048576.0;
    const double v = 90.0 / 1048576.0;
    const auto islet = [&](double x, double y) {
        return "[" + BoxText(x * u, y * v, (x + 0.3) * u, (y + 0.3) * v) + "]";
    };
    Compile(Collection({Feature("Alone", islet(1000.1, 1000.1)),
                        Feature("Pair", islet(2000.1, 1000.1)),
                        Feature("Pair", islet(2000.55, 1000.55)),
                        Feature("Hook", "[" +
                                                RingText({{3000.1 * u, 1000.1 * v},
                                                          {3000.1 * u, 1003.1 * v},
                                                          {3003.1 * u, 1003.1 * v},
                                                          {3003.1 * u, 1003.0 * v},
                                                          {3000.2 * u, 1003.0 * v},
                                                          {3000.2 * u, 1000.1 * v}}) +
                                                "]")}));
    EXPECT_THAT(ZonesAt(1001.5 * v, 1001.5 * u), ElementsAre("Alone"));
    EXPECT_THAT(ZonesAt(1001.5 * v, 2001.5 * u), ElementsAre("Pair"));
    EXPECT_THAT(ZonesAt(1003.5 * v, 3001.5 * u), ElementsAre("Hook"));
}

// The output takes the place of regular files only, and never of an input.
TEST_F(CompilerTest, ReplacesNothingButAFile) {
    const std::string json = Collection({Feature("A", "[" + BoxText(1, 1, 2, 2) + "]")});
    const auto compileTo = [&](const std::string& output) {
        CompileOptions options;
        options.inputs = {"in.geojson"};
        options.output = output;
        WriteFile("in.geojson", Bytes(json.begin(), json.end()));
        offlinetz::CompileListener listener;
        listener.warn = [](const std::string&) {};
        listener.progress = [](const char*, size_t, size_t) {};
        offlinetz::Compile(options, listener);
    };
    WriteFile("real.bin", {'o', 'l', 'd'});
    fs::create_symlink("real.bin", "link.bin");
    ASSERT_EQ(0, mkfifo("pipe", 0600));
    compileTo("link.bin");
    EXPECT_TRUE(fs::is_symlink("link.bin"));
    EXPECT_GT(fs::file_size("real.bin"), 50u);
    for (const char* output : {"pipe", "in.geojson", ".", "no/where"}) {
        EXPECT_THROW(compileTo(output), std::exception) << output;
    }
    EXPECT_TRUE(fs::is_fifo("pipe"));
    EXPECT_EQ(json.size(), fs::file_size("in.geojson"));
    EXPECT_EQ(4, std::distance(fs::directory_iterator("."), fs::directory_iterator()));
}

TEST_F(CompilerTest, ChecksItselfOnCoarseGridsToo) {
    std::vector<std::pair<double, double>> zigzag;
    for (int i = 0; i <= 100; ++i)
        zigzag.emplace_back(5.0 + (i % 2) * 0.37, -5.0 + i * 0.1);
    auto west = zigzag;
    auto east = zigzag;
    west.emplace_back(0.0, 5.0);
    west.emplace_back(0.0, -5.0);
    east.emplace_back(10.0, 5.0);
    east.emplace_back(10.0, -5.0);
    const std::string json = Collection(
            {Feature("A", "[" + RingText(west) + "]"), Feature("B", "[" + RingText(east) + "]")});
    CompileOptions options;
    options.precision = 12;
    options.toleranceMetres = 0.0;
    options.selfCheckPoints = 4000;
    const CompileSummary summary = Compile(json, options);
    EXPECT_THAT(summary.selfCheck.failures, IsEmpty());
    EXPECT_GT(summary.selfCheck.differences, 0u);
    options.toleranceMetres = std::nan("");
    EXPECT_THROW(Compile(json, options), offlinetz::InputError);
}

TEST_F(CompilerTest, MendsASlipAndSaysSo) {
    // A spike that touches the ring again.
    Compile(Collection({Feature(
            "A", "[" + RingText({{1, 1}, {1, 2}, {2, 2}, {2, 1.5}, {2.5, 1.5}, {2, 1.5}, {2, 1}}) +
                         "]")}));
    EXPECT_THAT(mWarnings, ElementsAre(HasSubstr("feature 0 (A): ")));
    EXPECT_THAT(ZonesAt(1.5, 1.5), ElementsAre("A"));
    EXPECT_THAT(ZonesAt(1.5, 2.3), IsEmpty());
}

TEST_F(CompilerTest, TheEdgesOfTheWorldAnswerLikeTheirNeighbours) {
    Compile(Collection({Feature("East", "[" + BoxText(179, -10, 180, 10) + "]"),
                        Feature("West", "[" + BoxText(-180, -10, -179, 10) + "]"),
                        Feature("South", "[" + BoxText(-180, -90, 180, -80) + "]"),
                        Feature("North", "[" + BoxText(-180, 80, 180, 90) + "]")}));
    EXPECT_THAT(ZonesAt(0, 180), ElementsAre("East"));
    EXPECT_THAT(ZonesAt(0, 179.999), ElementsAre("East"));
    EXPECT_THAT(ZonesAt(0, -180), ElementsAre("West"));
    EXPECT_THAT(ZonesAt(0, -179.999), ElementsAre("West"));
    for (const double lon : {-180.0, -179.9999, 0.0, 90.0, 179.9999, 180.0}) {
        for (const double lat : {80.5, 89.9999, 90.0}) {
            EXPECT_THAT(ZonesAt(-lat, lon), ElementsAre("South")) << lat << " " << lon;
            EXPECT_THAT(ZonesAt(lat, lon), ElementsAre("North")) << lat << " " << lon;
        }
    }
}

// The shift of the reader vanishes: borders answer where they are, on all sides of the globe.
TEST_F(CompilerTest, BordersStandWhereTheyAre) {
    for (const double lat : {-60.0, 0.5, 45.0}) {
        for (const double lon : {-150.0, -0.5, 1.0, 120.0}) {
            Compile(Collection(
                    {Feature("A", "[" + BoxText(lon - 1, lat - 1, lon, lat + 1) + "]"),
                     Feature("B", "[" + BoxText(lon, lat - 1, lon + 1, lat + 1) + "]")}));
            const double units = 180.0 / 1048576.0;
            EXPECT_THAT(ZonesAt(lat, lon - 1.1 * units), ElementsAre("A")) << lat << " " << lon;
            EXPECT_THAT(ZonesAt(lat, lon + 1.1 * units), ElementsAre("B")) << lat << " " << lon;
        }
    }
}

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
        const auto database = [&](size_t maxPoints) {
            offlinetz::DatabaseContent content;
            content.precision = 21;
            content.fieldNames = {"TimezoneId"};
            content.zones = {"A"};
            for (const GridRing& ring : zones[0]) {
                for (Piece& piece : offlinetz::CutRing(ring, maxPoints)) {
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

}  // namespace
