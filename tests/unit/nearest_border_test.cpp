// Distances to borders: in the world against brute force, and on small databases what the world
// does not have. compiler_fuzz compares them on small databases of all kinds, database_fuzz tries
// broken ones.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cmath>

#include "compare_borders.h"
#include "compare_library.h"
#include "library/sphere.h"
#include "raw_database.h"

namespace {

using offlinetz::Degrees;

constexpr double kMetresPerDegree = offlinetz::kEarthRadius * M_PI / 180.0;

// Points everywhere, and where the answer is difficult.
std::vector<Degrees> PointsOf(const oracle::TrueBorders& borders, size_t count, uint64_t seed) {
    offlinetz::RandomPoints random(seed);
    const auto around = [&](const Degrees& p, double reach) {
        return Degrees{p.lat + reach * (random.Uniform() - 0.5),
                       p.lon + reach * (random.Uniform() - 0.5)};
    };
    std::vector<Degrees> points = {{90, 0},         {-90, 0},   {90, 180},   {0, 180},
                                   {0, -180},       {-72, 180}, {-72, -180}, {-73.147, 180},
                                   {-74.273, -180}, {0, 7.5}};
    while (points.size() < count) {
        const Degrees end = borders.EndAt(random.Uniform());
        const double tiny = std::pow(10.0, -6.0 + 7.0 * random.Uniform());
        const double side = random.Uniform() < 0.5 ? -1.0 : 1.0;
        const Degrees any = random.OnSphere();
        const Degrees choices[] = {any,
                                   around(end, 0.02),
                                   end,
                                   around({51.44, 4.93}, 0.1),        // Enclaves.
                                   around({45.7587, 18.8813}, 0.5),   // An inland gap.
                                   {side * (90.0 - tiny), any.lon},   // Near the poles,
                                   {any.lat, side * (180.0 - tiny)},  // the antimeridian,
                                   {any.lat, side * 7.5 + 15.0 * std::floor(any.lon / 15.0)}};
        const Degrees& p = choices[points.size() % std::size(choices)];
        points.push_back({std::clamp(p.lat, -90.0, 90.0), std::clamp(p.lon, -180.0, 180.0)});
    }
    return points;
}

class World : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        const DatabasePtr reader = OpenBytes(ReadFile(OFFLINETZ_WORLD_DATABASE));
        borders = new oracle::TrueBorders(*reader);
        offlinetz_open(OFFLINETZ_WORLD_DATABASE, 0, &database);
    }
    static void TearDownTestSuite() {
        offlinetz_close(database);
        delete borders;
    }

    static oracle::TrueBorders* borders;
    static offlinetz_database* database;
};
oracle::TrueBorders* World::borders;
offlinetz_database* World::database;

TEST_F(World, HasTheTrueDistances) {
    ASSERT_GT(borders->Count(), 100000u);
    offlinetz::RandomPoints random(2);
    size_t i = 0;
    for (const Degrees& p : PointsOf(*borders, 20000, 1)) {
        double metres = -1.0;  // For the zones within it, which take longer.
        if (++i % 8 == 0) metres = std::pow(10.0, 2.0 + 3.0 * random.Uniform());
        if (i % 800 == 0) metres *= 200.0;  // To the whole earth.
        ASSERT_EQ("", oracle::DifferenceOfBorders(database, *borders, p, metres));
    }
}

TEST_F(World, HasThePlaceAtTheBearing) {
    for (const Degrees& p : PointsOf(*borders, 2000, 3)) {
        if (std::fabs(p.lat) == 90.0) continue;
        offlinetz_border border;
        ASSERT_EQ(1, offlinetz_nearest_border(database, p.lat, p.lon, HUGE_VAL, &border));
        const Degrees place = oracle::PlaceAt(p, border.metres, border.bearing);
        const double turn = std::remainder(place.lon - border.lon, 360.0);
        ASSERT_NEAR(place.lat, border.lat, 1e-6) << p.lat << " " << p.lon;
        ASSERT_NEAR(0.0, turn * std::cos(border.lat * M_PI / 180.0), 1e-6) << p.lat << " " << p.lon;
    }
}

// Lookups have the same answer up to the distance at which it is said to hold. Asks toward the
// border, where they fail first. Returns how far from the border one failed; 0 if none did.
double MetresLost(const offlinetz_database* database, const Degrees& p,
                  offlinetz::RandomPoints* random) {
    const auto answerAt = [&](const Degrees& at) {
        int32_t ids[16];
        const size_t count = offlinetz_find(database, at.lat, at.lon, ids, 16, nullptr, nullptr);
        return std::vector<int32_t>(ids, ids + std::min<size_t>(count, 16));
    };
    offlinetz_border border;
    EXPECT_EQ(1, offlinetz_nearest_border(database, p.lat, p.lon, HUGE_VAL, &border));
    if (border.holds == 0.0) return 0.0;
    const double bearing = border.bearing + 20.0 * (random->Uniform() - 0.5);
    const auto own = answerAt(p);
    EXPECT_EQ(own, answerAt(oracle::PlaceAt(p, 0.999 * border.holds, bearing)))
            << p.lat << " " << p.lon << " " << border.holds;
    const double rest = (border.metres - border.holds) * random->Uniform();
    return answerAt(oracle::PlaceAt(p, border.metres - rest, bearing)) != own ? rest : 0.0;
}

// With as much stack as the header says, and some for the thread itself. A search of the whole
// earth keeps the most parts of the tree. Where zones are disputed, lookups take the most.
TEST_F(World, HasEnoughStack) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{80} << 10);
    pthread_t thread;
    const auto ask = [](void*) -> void* {
        for (const Degrees& p : {Degrees{-45.0, 170.0}, Degrees{34.867639186, 79.379394385}}) {
            offlinetz_border border;
            EXPECT_EQ(1, offlinetz_nearest_border(database, p.lat, p.lon, HUGE_VAL, &border));
            EXPECT_LT(400u, offlinetz_zones_within(database, p.lat, p.lon, HUGE_VAL, nullptr,
                                                   nullptr, 0));
        }
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, &attributes, ask, nullptr));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST_F(World, AnswersHoldAsFarAsStated) {
    offlinetz::RandomPoints random(4);
    double lost = 0.0;
    for (size_t i = 0; i < 40000; ++i) {
        const Degrees end = borders->EndAt(random.Uniform());
        const double lat = end.lat + 0.003 * (random.Uniform() - 0.5);
        const double lon = end.lon + 0.003 * (random.Uniform() - 0.5);
        const Degrees p = {std::clamp(lat, -90.0, 90.0), std::clamp(lon, -180.0, 180.0)};
        lost = std::max(lost, MetresLost(database, p, &random));
    }
    EXPECT_GT(lost, 18.0);
}

// A database of one tile that covers the world.
class OneTile {
  public:
    explicit OneTile(uint8_t tableType = 1) {
        mRaw.tableType = tableType;
        mRaw.metadata.clear();
    }
    void Add(const char* zone, offlinetz::GridRing ring) {
        mLastRecord = mRaw.AddRecord("\"" + std::string(zone) + "\"");
        AddRing(std::move(ring));
    }
    // Adds another ring of the last zone.
    void AddRing(offlinetz::GridRing ring) {
        constexpr int32_t kEnd = (1 << 20) + 32;
        for (offlinetz::GridPoint& p : ring)
            p.lon -= 3;
        mRaw.AddRing(mLastRecord, ring, {{-kEnd, -kEnd}, {kEnd - 1, kEnd - 1}});
    }
    RawDatabase& Raw() { return mRaw; }
    offlinetz_database* Open(unsigned flags = 0) {
        mFile = mRaw.File();
        offlinetz_database* database;
        EXPECT_EQ(OFFLINETZ_OK,
                  offlinetz_open_memory(mFile.data(), mFile.size(), flags, &database));
        mDatabase.reset(database);
        return database;
    }

  private:
    RawDatabase mRaw;
    uint32_t mLastRecord = 0;
    Bytes mFile;
    LibraryPtr mDatabase = {nullptr, offlinetz_close};
};

// Clockwise, in units.
offlinetz::GridRing Box(int32_t south, int32_t west, int32_t north, int32_t east) {
    return {{south, west}, {north, west}, {north, east}, {south, east}};
}

double MetresAt(const offlinetz_database* database, double lat, double lon) {
    offlinetz_border border;
    const int result = offlinetz_nearest_border(database, lat, lon, HUGE_VAL, &border);
    EXPECT_EQ(std::isnan(border.metres), result != 1);
    return result == 1 ? border.metres : result;
}

TEST(OneTile, ASeamIsNoBorder) {
    constexpr int32_t kDegree = 5825;  // Of longitude, in units, almost.
    OneTile tile;
    tile.Add("A", Box(-100000, 0, 100000, 2 * kDegree));
    tile.AddRing(Box(-100000, 2 * kDegree, 100000, 9 * kDegree));
    offlinetz_database* const database = tile.Open();
    const double seam = 2 * kDegree * 180.0 / (1 << 20);
    EXPECT_NEAR(seam * kMetresPerDegree, MetresAt(database, 0.9, seam), 2000.0);
}

// The names of the zones beyond the border of a point in units, after its distance in units of
// longitude on the equator.
std::string BeyondAt(offlinetz_database* database, double lat, double lon) {
    offlinetz_border border;
    offlinetz_nearest_border(database, lat * 90.0 / (1 << 20), lon * 180.0 / (1 << 20), HUGE_VAL,
                             &border);
    const double unit = kMetresPerDegree * 180.0 / (1 << 20);
    std::string text = std::to_string(std::lround(border.metres / unit));
    for (int i = 0; i < border.count; ++i)
        text += std::string(" ") + offlinetz_zone_name(database, border.ids[i]);
    return text;
}

TEST(OneTile, HasTheZonesBeyond) {
    OneTile tile;
    // Three zones meet in 0, 0. The border between B and C is nearest to the way from A.
    tile.Add("A", {{-1000, -1000}, {1000, -1000}, {1000, 0}, {0, 0}, {-1000, 0}});
    tile.Add("B", {{-1000, 0}, {0, 0}, {-200, 1000}, {-1000, 1000}});
    tile.Add("C", {{0, 0}, {1000, 0}, {1000, 1000}, {-200, 1000}});
    // Nautical zones meet at 22.5 degrees, which is 131072 units, along two coasts.
    tile.Add("D", Box(-1000, 131072, 1000, 132072));
    tile.Add("E", Box(2000, 130072, 4000, 131072));
    // Both sides of the antimeridian are one zone.
    tile.Add("F", Box(-1000, -1048576, 1000, -1047576));
    tile.AddRing(Box(-1000, 1047576, 1000, 1048576));
    offlinetz_database* const database = tile.Open();
    EXPECT_EQ("200 C", BeyondAt(database, 0, -200));
    EXPECT_EQ("100 A", BeyondAt(database, -700, 100));
    EXPECT_EQ("10 Etc/GMT-1", BeyondAt(database, 0, 131082));
    EXPECT_EQ("10 Etc/GMT-2", BeyondAt(database, 3000, 131062));
    EXPECT_EQ("10 E", BeyondAt(database, 3000, 131082));
    EXPECT_EQ("400 Etc/GMT-12", BeyondAt(database, -200, 1048566));
    EXPECT_EQ("10 Etc/GMT+12", BeyondAt(database, 5000, 1048566));
}

TEST(OneTile, StatesWhatIsNotKnown) {
    offlinetz_border border;
    int32_t id;
    double distance;
    const auto results = [&](offlinetz_database* database, double lat, double limit) {
        id = 0;
        return std::pair(offlinetz_nearest_border(database, lat, 1, limit, &border),
                         offlinetz_zones_within(database, lat, 1, limit, &id, &distance, 1));
    };
    OneTile land;
    land.Add("A", Box(0, 0, 10000, 20000));
    offlinetz_database* const database = land.Open();
    const double metres = MetresAt(database, 0.5, 1);
    EXPECT_NEAR(0.3583 * kMetresPerDegree, metres, 50.0);
    EXPECT_EQ(std::pair(1, size_t{2}), results(database, 0.5, metres + 1e-6));
    EXPECT_EQ(std::pair(0, size_t{1}), results(database, 0.5, metres - 1e-6));
    EXPECT_EQ(0, border.count);
    EXPECT_EQ(std::pair(0, size_t{1}), results(database, 0.5, std::nan("")));
    EXPECT_EQ(std::pair(int{OFFLINETZ_INVALID_POINT}, size_t{0}), results(database, 90.1, 1.0));
    EXPECT_EQ(OFFLINETZ_INVALID_POINT, id);
    // Nothing at all is there.
    OneTile sea;
    sea.Add("A", {});
    EXPECT_EQ(std::pair(0, size_t{0}), results(sea.Open(OFFLINETZ_NO_NAUTICAL), 0.5, HUGE_VAL));
    EXPECT_EQ(OFFLINETZ_NO_ZONE, id);
    EXPECT_EQ(1, results(sea.Open(), 0.5, HUGE_VAL).first);
    // Not tiled; a ring that is cut off.
    OneTile whole(0);
    whole.Add("A", Box(0, 0, 10000, 20000));
    OneTile broken;
    broken.Add("A", Box(0, 0, 10000, 20000));
    broken.Raw().polygons.resize(8);
    for (OneTile* unknown : {&whole, &broken}) {
        EXPECT_EQ(std::pair(int{OFFLINETZ_UNKNOWN}, size_t{0}),
                  results(unknown->Open(), 0.5, HUGE_VAL));
        EXPECT_EQ(OFFLINETZ_UNKNOWN, id);
    }
}

// There a lookup may be wrong by a unit more.
TEST(OneTile, AnswersHoldAsFarAsStatedAtGreenwich) {
    OneTile tile;
    tile.Add("A", {{-1000, -1000}, {1000, -1000}, {1000, 2}, {-1000, 1}});
    offlinetz_database* const database = tile.Open();
    offlinetz::RandomPoints random(5);
    double lost = 0.0;
    for (int i = 0; i < 10000; ++i) {
        const Degrees p = {0.2 * random.Uniform() - 0.1, 0.004 * random.Uniform() - 0.002};
        lost = std::max(lost, MetresLost(database, p, &random));
    }
    EXPECT_GT(lost, 30.0);
}

// None of 20,000 edges may be left out.
TEST(OneTile, AllEdgesMayBeAlmostAsNear) {
    offlinetz::GridRing circle;
    for (int i = 0; i < 20000; ++i) {
        const double angle = -2.0 * M_PI * i / 20000;
        circle.push_back({static_cast<int32_t>(std::lround(100000.0 * std::sin(angle))),
                          static_cast<int32_t>(std::lround(50000.0 * std::cos(angle)))});
    }
    OneTile tile;
    tile.Add("A", circle);
    EXPECT_NEAR(100000.0 * 90.0 / (1 << 20) * kMetresPerDegree, MetresAt(tile.Open(), 0, 0),
                5000.0);
}

// The only border is on the other side of the earth, where haversines hardly differ.
TEST(OneTile, TheOtherSideIsFound) {
    OneTile tile;
    tile.Add("A", {{500, 2500}, {501, 2500}, {500, 2501}});
    offlinetz_database* const database = tile.Open(OFFLINETZ_NO_NAUTICAL);
    for (int i = 0; i < 300; ++i) {
        const double lat = -(500.0 + i / 300.0) * 90.0 / (1 << 20);
        const double lon = (2500.0 + i % 17 / 17.0) * 180.0 / (1 << 20) - 180.0;
        ASSERT_NEAR(180.0 * kMetresPerDegree, MetresAt(database, lat, lon), 40.0);
    }
}

// Along a meridian a quarter of a turn away the distance is the same everywhere.
TEST(OneTile, ManyPlacesMayBeNearest) {
    OneTile tile;
    tile.Add("A", Box(-20000, 524288, 20000, 1048576));
    offlinetz_database* const database = tile.Open(OFFLINETZ_NO_NAUTICAL);
    EXPECT_NEAR(90.0 * kMetresPerDegree, MetresAt(database, 0, 0), 0.001);
}

}  // namespace
