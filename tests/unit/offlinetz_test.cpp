// The C library: opening, its answers from the world database, and what makes it fast.
// database_fuzz compares it with the reference reader on small databases.
#include <gtest/gtest.h>
#include <reader/units.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <thread>

#include "compare_library.h"
#include "database/decode.h"
#include "database/random_points.h"
#include "library/database.h"
#include "library/sphere.h"
#include "raw_database.h"
#include "temporary_directory.h"

namespace {

using offlinetz::Degrees;

LibraryPtr Open(const char* path, unsigned flags = 0) {
    offlinetz_database* database;
    offlinetz_open(path, flags, &database);
    return {database, offlinetz_close};
}

int32_t FirstAt(const offlinetz_database* database, double lat, double lon) {
    int32_t id = 12345;
    offlinetz_find(database, lat, lon, &id, 1, nullptr, nullptr);
    return id;
}

TEST(Opening, SaysWhatIsWrongAndKeepsNothing) {
    const TemporaryDirectory directory;
    const Bytes good = SampleDatabase("Zone/A", 7);
    const auto less = [&](size_t bytes) {
        return Bytes(good.begin(), good.end() - static_cast<ptrdiff_t>(bytes));
    };
    Bytes damaged = good;
    damaged.back() ^= 1u;
    RawDatabase unscaled;
    unscaled.precision = 32;
    const std::string size = std::to_string(good.size());
    const struct {
        Bytes bytes;
        offlinetz_status status;
        std::string fault;
    } cases[] = {{good, OFFLINETZ_OK, ""},
                 {{}, OFFLINETZ_EMPTY, "empty"},
                 {Bytes(30, 'x'), OFFLINETZ_NOT_A_DATABASE,
                  "not a zone database: it does not begin with PLB"},
                 {{'P', 'L', 'B', 1}, OFFLINETZ_CUT_SHORT, "cut short: it ends within its header"},
                 {less(1), OFFLINETZ_CUT_SHORT,
                  "cut short: it has " + std::to_string(good.size() - 1) +
                          " bytes where its header states " + size},
                 {good + Bytes{0}, OFFLINETZ_REFUSED,
                  "damaged: it has " + std::to_string(good.size() + 1) +
                          " bytes where its header states " + size},
                 {damaged, OFFLINETZ_WRONG_DIGEST,
                  "damaged: the digest at its end does not match its content"},
                 {unscaled.File(), OFFLINETZ_REFUSED, "damaged: its precision is not 1 to 31"}};
    const size_t descriptors = CountEntries("/proc/self/fd");
    for (const auto& c : cases) {
        WriteFile("file", c.bytes);
        for (const unsigned flags : {0u, unsigned{OFFLINETZ_MAP}, ~0u}) {
            const bool isInMemory = flags == ~0u;
            offlinetz_database* database;
            EXPECT_EQ(c.status, isInMemory ? offlinetz_open_memory(c.bytes.data(), c.bytes.size(),
                                                                   0, &database)
                                           : offlinetz_open("file", flags, &database));
            const std::string subject = isInMemory ? "the database is " : "file: is ";
            EXPECT_EQ(c.fault.empty() ? "" : subject + c.fault, offlinetz_message(database));
            // Where there is no database, questions have an answer that says so.
            const bool isOpen = c.status == OFFLINETZ_OK;
            EXPECT_EQ(isOpen ? 26 : 0, offlinetz_zone_count(database));
            EXPECT_EQ(isOpen ? 7 : 0, offlinetz_version(database));
            EXPECT_EQ(isOpen ? 0 : OFFLINETZ_NO_ZONE, offlinetz_zone_id(database, "Zone/A"));
            EXPECT_EQ(isOpen ? 0 : OFFLINETZ_NO_ZONE, FirstAt(database, 1, 2));
            EXPECT_EQ(OFFLINETZ_INVALID_POINT, FirstAt(database, 90.000000001, 2));
            EXPECT_EQ(OFFLINETZ_INVALID_POINT, FirstAt(database, 1, std::nan("")));
            offlinetz_close(database);
            EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
        }
    }
    offlinetz_database* database;
    errno = 0;
    EXPECT_EQ(OFFLINETZ_UNREADABLE, offlinetz_open("none", 0, &database));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_STREQ("none: No such file or directory", offlinetz_message(database));
    offlinetz_close(database);
    EXPECT_EQ(OFFLINETZ_REFUSED, offlinetz_open("/dev/zero", 0, &database));
    offlinetz_close(database);
    EXPECT_EQ(OFFLINETZ_BAD_FLAGS, offlinetz_open("file", 8, &database));
    offlinetz_close(database);
    WriteFile("file", damaged);
    EXPECT_STREQ("", offlinetz_message(Open("file", OFFLINETZ_SKIP_DIGEST).get()));
    EXPECT_STREQ("there is not enough memory", offlinetz_message(nullptr));
    offlinetz_close(nullptr);
}

TEST(Zones, HaveDenseIdsWithTheNauticalOnesBehindThem) {
    const LibraryPtr world = Open(OFFLINETZ_WORLD_DATABASE);
    const int32_t count = offlinetz_zone_count(world.get());
    ASSERT_GT(count, 400);
    for (int32_t id = 0; id < count; ++id) {
        const char* const name = offlinetz_zone_name(world.get(), id);
        ASSERT_NE(nullptr, name);
        EXPECT_EQ(id, offlinetz_zone_id(world.get(), name)) << name;
    }
    for (const int32_t id : {-3, -2, -1, count})
        EXPECT_EQ(nullptr, offlinetz_zone_name(world.get(), id));
    EXPECT_STREQ("Etc/GMT+12", offlinetz_zone_name(world.get(), count - 25));
    EXPECT_STREQ("Etc/GMT-12", offlinetz_zone_name(world.get(), count - 1));
    EXPECT_EQ(OFFLINETZ_NO_ZONE, offlinetz_zone_id(world.get(), "europe/paris"));
    EXPECT_NE(std::string::npos, std::string(offlinetz_notice(world.get())).find("OpenStreetMap"));
    // At sea, and where the bands would be wrong.
    EXPECT_EQ(offlinetz_zone_id(world.get(), "Etc/GMT+3"), FirstAt(world.get(), 30, -40));
    EXPECT_EQ(OFFLINETZ_NO_ZONE,
              FirstAt(Open(OFFLINETZ_WORLD_DATABASE, OFFLINETZ_NO_NAUTICAL).get(), 30, -40));
    RawDatabase finer;
    finer.precision = 22;
    const Bytes file = finer.File();
    offlinetz_database* database;
    ASSERT_EQ(OFFLINETZ_OK, offlinetz_open_memory(file.data(), file.size(), 0, &database));
    EXPECT_EQ(OFFLINETZ_NO_ZONE, FirstAt(database, 30, -40));
    offlinetz_close(database);
}

// The exact distance in the plane from a point to the nearest edge of its tile, in degrees of
// latitude.
double DegreesToBorder(const ZDDatabase& reader, const std::vector<offlinetz::DecodedEntry>& table,
                       const Degrees& p) {
    const float scale = zonedetect::Scale(reader);
    const double unit = 90.0 / static_cast<double>(scale);
    const offlinetz::GridPoint at = {zonedetect::LatitudeUnits(static_cast<float>(p.lat), scale),
                                     zonedetect::LongitudeUnits(static_cast<float>(p.lon), scale)};
    double nearest = 1e9;
    for (const offlinetz::DecodedEntry& entry : table) {
        const offlinetz::GridBox& box = entry.box;
        if (at.lat < box.min.lat || at.lat > box.max.lat || at.lon < box.min.lon ||
            at.lon > box.max.lon) {
            continue;
        }
        offlinetz::GridRing ring;
        uint32_t end;
        EXPECT_TRUE(offlinetz::DecodeRing(reader, entry.ring, &ring, &end));
        for (size_t i = 0; i < ring.size(); ++i) {
            const offlinetz::GridPoint& a = ring[i];
            const offlinetz::GridPoint& b = ring[i + 1 < ring.size() ? i + 1 : 0];
            const std::complex<double> from(a.lat * unit - p.lat, 2.0 * a.lon * unit - p.lon);
            const std::complex<double> to(b.lat * unit - p.lat, 2.0 * b.lon * unit - p.lon);
            const std::complex<double> edge = to - from;
            const double length = std::norm(edge);
            const double share = length > 0.0 ? -(from * std::conj(edge)).real() / length : 0.0;
            nearest = std::min(nearest, std::abs(from + std::clamp(share, 0.0, 1.0) * edge));
        }
    }
    return nearest;
}

TEST(World, AnswersAsTheReaderDoes) {
    const Bytes file = ReadFile(OFFLINETZ_WORLD_DATABASE);
    const DatabasePtr reader = OpenBytes(file);
    const LibraryPtr world = Open(OFFLINETZ_WORLD_DATABASE, OFFLINETZ_MAP);
    constexpr size_t kPoints = 100000;
    offlinetz::RandomPoints random(3);
    std::vector<Degrees> points;
    std::vector<std::vector<std::string>> expected;
    std::vector<bool> isOnBorder;
    while (points.size() < kPoints) {
        // Half of the points lie where several zones meet.
        Degrees p = random.OnSphere();
        if (points.size() % 2 == 0)
            p = {51.3 + 0.3 * random.Uniform(), 4.6 + 0.6 * random.Uniform()};
        const auto lat = static_cast<float>(p.lat);
        const auto lon = static_cast<float>(p.lon);
        points.push_back({static_cast<double>(lat), static_cast<double>(lon)});
        std::vector<std::string> names;
        bool onBorder = false;
        ZDResult* results = ZDLookup(reader.get(), lat, lon, nullptr);
        for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r) {
            names.emplace_back(r->fieldValues[0]);
            onBorder = onBorder || r->result != ZDLookupInZone;
        }
        ZDFreeResults(results);
        if (names.empty()) names.emplace_back(GetEtcAreaTimezone(reader.get(), lon, lat));
        for (std::string& name : names)
            name = name.substr(1, name.size() - 2);
        expected.push_back(names);
        isOnBorder.push_back(onBorder);
    }
    const double* const lats = &points[0].lat;
    const double* const lons = &points[0].lon;
    constexpr ptrdiff_t kStride = sizeof(Degrees);
    // Backwards, so that the strides are negative.
    std::vector<int32_t> firsts(kPoints);
    std::vector<double> radii(kPoints);
    const auto findMany = [&] {
        offlinetz_find_many(world.get(), kPoints, lats + 2 * (kPoints - 1), -kStride,
                            lons + 2 * (kPoints - 1), -kStride, &firsts[kPoints - 1],
                            -ptrdiff_t{sizeof(int32_t)}, &radii[kPoints - 1],
                            -ptrdiff_t{sizeof(double)});
    };
    std::vector<int64_t> offsets(kPoints + 1);
    std::vector<int32_t> values(2 * kPoints);
    const auto findAll = [&] {
        offlinetz_find_all(world.get(), kPoints, lats, kStride, lons, kStride, offsets.data(),
                           values.data(), values.size());
    };
    std::thread other(findMany);  // Both at the same time.
    findAll();
    other.join();
    for (size_t i = 0; i < kPoints; ++i) {
        const Degrees& p = points[i];
        SCOPED_TRACE(::testing::Message() << p.lat << " " << p.lon);
        int32_t ids[4];
        int onBorder;
        double radius;
        const size_t count = offlinetz_find(world.get(), p.lat, p.lon, ids, 4, &onBorder, nullptr);
        ASSERT_EQ(expected[i], NamesOf(world.get(), ids, std::min<size_t>(count, 4)));
        ASSERT_EQ(isOnBorder[i] ? 1 : 0, onBorder);
        ASSERT_EQ(ids[0], firsts[i]);
        ASSERT_EQ(expected[i], NamesOf(world.get(), &values[static_cast<size_t>(offsets[i])],
                                       static_cast<size_t>(offsets[i + 1] - offsets[i])));
        ASSERT_EQ(count, offlinetz_find(world.get(), p.lat, p.lon, ids, 1, nullptr, &radius));
        ASSERT_EQ(radius, radii[i]);
    }
    // The safe radius is at most the distance to the border, and far from the poles not much less.
    uint32_t end;
    const std::vector<offlinetz::DecodedEntry> table = offlinetz::DecodeTable(*reader, &end);
    for (size_t i = 1; i < kPoints; i += 500) {
        const Degrees& p = points[i];
        const double plane = DegreesToBorder(*reader, table, p) - 5.5 * 90.0 / 1048576.0;
        const double arc = std::min(plane, 180.0 - std::fabs(p.lon)) * std::cos(p.lat / 57.29578);
        EXPECT_LE(radii[i], 111.196 * std::max(plane, 0.0)) << p.lat << " " << p.lon;
        const bool isSea = expected[i][0].rfind("Etc/", 0) == 0;
        if (!isSea && std::fabs(p.lat) < 60.0) {
            EXPECT_GE(radii[i], 111.19 * 0.9 * std::max(arc, 0.0)) << p.lat << " " << p.lon;
        }
    }
}

// The first questions about distances teach an open database where coasts are.
TEST(World, HasTheSameDistancesOnAllThreads) {
    const LibraryPtr world = Open(OFFLINETZ_WORLD_DATABASE);
    constexpr size_t kPoints = 2000;
    using Distances = std::vector<std::array<double, 4>>;
    const auto measure = [&](Distances* distances) {
        offlinetz::RandomPoints random(5);
        for (size_t i = 0; i < kPoints; ++i) {
            const Degrees p = random.OnSphere();
            offlinetz_border border;
            EXPECT_EQ(1, offlinetz_nearest_border(world.get(), p.lat, p.lon, 1e9, &border));
            int32_t id;
            double distance[2];
            int32_t ids[2];
            const size_t count =
                    offlinetz_zones_within(world.get(), p.lat, p.lon, 3e5, ids, distance, 2);
            offlinetz_find(world.get(), p.lat, p.lon, &id, 1, nullptr, nullptr);
            EXPECT_TRUE(id == ids[0] || (count > 1 && id == ids[1]));
            distances->push_back({border.metres, border.bearing, static_cast<double>(count),
                                  count > 1 ? distance[1] : 0.0});
        }
    };
    Distances here;
    Distances there;
    std::thread other(measure, &there);
    measure(&here);
    other.join();
    EXPECT_EQ(here, there);
}

// The functions of the mathematical library differ in their last bits. The digest is that of the
// bits on x86-64; test-on-devices compares other processors.
TEST(Sphere, HasTheSameBitsOnEveryProcessor) {
    std::mt19937_64 random(6);
    uint64_t digest = 0;
    const auto draw = [&](double most) {
        return most * (static_cast<double>(random() >> 11) * 0x1p-52 - 1.0);
    };
    const auto add = [&](double value) {
        uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        digest = (digest ^ bits) * 0x9E3779B97F4A7C15u;
        digest ^= digest >> 32;
    };
    for (int i = 0; i < 20000; ++i) {
        const offlinetz::Origin origin({draw(offlinetz::kPi / 2), draw(offlinetz::kPi)});
        const double reach = std::ldexp(1.0, -i % 20);
        const offlinetz::Place from = {draw(offlinetz::kPi / 2), draw(offlinetz::kPi)};
        const offlinetz::Place to = {std::clamp(from.lat + draw(reach), -1.5, 1.5),
                                     from.lon + draw(reach)};
        const auto on = origin.NearestOnEdge(from, to, 0.0, 1.0, 2.0);
        add(on.haversine);
        add(on.share);
        add(origin.BearingTo(to));
        add(origin.NearestOnMeridian(from.lon, -1.0, 1.0).lat);
        add(offlinetz::MetresOfHaversine(on.haversine));
        // Right to the last bits.
        const double angle = draw(2.0 * offlinetz::kPi);
        EXPECT_NEAR(std::sin(angle), offlinetz::SineAndCosineOf(angle).sine, 0x1p-52);
        EXPECT_NEAR(std::cos(angle), offlinetz::SineAndCosineOf(angle).cosine, 0x1p-52);
        EXPECT_NEAR(std::atan2(to.lat, to.lon), offlinetz::ArcTangent(to.lat, to.lon), 0x1p-51);
    }
    EXPECT_EQ(0xBFA0EF0CDAF0C087u, digest);
}

// What makes lookups fast. Answers are the same without it.
TEST(World, HalfOfTheLandIsAnsweredByTheIndex) {
    const LibraryPtr world = Open(OFFLINETZ_WORLD_DATABASE);
    offlinetz::RandomPoints random(4);
    size_t land = 0;
    size_t answered = 0;
    for (int i = 0; i < 20000; ++i) {
        const Degrees p = random.OnSphere();
        const zonedetect::Point units = {
                zonedetect::LatitudeUnits(static_cast<float>(p.lat), world->scale),
                zonedetect::LongitudeUnits(static_cast<float>(p.lon), world->scale)};
        const zonedetect::RunTree::Runs runs = world->index.RunsAt(units);
        const offlinetz::ZoneIndex::Step& step = *world->index.StepsFrom(runs.At(0));
        if (FirstAt(world.get(), p.lat, p.lon) >= offlinetz_zone_count(world.get()) - 25) continue;
        ++land;
        answered += step.KindOf() == offlinetz::ZoneIndex::Kind::kAnswer;
    }
    EXPECT_GT(answered * 100, land * 45);
}

}  // namespace
