#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zonedetect.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "raw_database.h"

using offlinetz::GridBox;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kPrecision = 21;

struct Hit {
    int32_t result;
    std::string text;  // "(none)" without a value.

    friend bool operator==(const Hit& a, const Hit& b) {
        return a.result == b.result && a.text == b.text;
    }
    friend std::ostream& operator<<(std::ostream& out, const Hit& hit) {
        return out << ZDLookupResultToString(hit.result) << ": " << hit.text;
    }
};

std::vector<Hit> HitsOf(ZDResult* results) {
    std::vector<Hit> hits;
    for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r) {
        const bool hasText = r->fieldValues != nullptr && r->fieldValues[0] != nullptr;
        hits.push_back({r->result, hasText ? r->fieldValues[0] : "(none)"});
    }
    ZDFreeResults(results);
    return hits;
}

// Looks up grid units, on a heap copy that lets no read slip past the content.
std::vector<Hit> LookUpUnits(const ZDDatabase* database, int32_t lat, int32_t lon,
                             float* safezone = nullptr) {
    const HeapDatabase copy(*database);
    return HitsOf(ZDLookup(copy.get(), DegreesAtUnits(lat, database->precision, 90.0),
                           DegreesAtUnits(lon, database->precision, 180.0), safezone));
}

// A square of true coordinates, stored as the compiler would; clockwise for an outline.
GridRing Square(int32_t south, int32_t west, int32_t north, int32_t east) {
    return {{south, west - 3}, {north, west - 3}, {north, east - 3}, {south, east - 3}};
}

GridRing Reversed(GridRing ring) {
    std::reverse(ring.begin(), ring.end());
    return ring;
}

// --- Opening -----------------------------------------------------------------------------

TEST(Opening, AcceptsWellFormedFilesOnly) {
    RawDatabase good;
    good.AddRing(good.AddRecord("A"), Square(0, 0, 9, 9));
    const Bytes content = good.Content();
    const Bytes minimal = {'P', 'L', 'B', 1, 2, 3, 0, 0, 0, 0, 0};
    const Bytes noFields = {'P', 'L', 'B', 0, 0, 21, 0};
    const struct {
        const char* what;
        Bytes file;
        bool opens;
    } cases[] = {
            {"a small database", good.File(), true},
            {"the smallest file", WithTrailer(minimal), true},
            {"an empty file", {}, false},
            {"20 bytes", Bytes(20, 'x'), false},
            {"26 bytes", WithTrailer({'P', 'L', 'B', 0, 0, 0}), false},
            {"nothing behind the fixed header", WithTrailer(noFields), false},
            {"nothing behind the notice", WithTrailer(noFields + String("n")), false},
            {"only two sizes", WithTrailer(noFields + String("n") + Bytes{0, 0}), false},
            {"wrong magic",
             WithTrailer(Bytes{'P', 'L', 'C'} + Bytes(content.begin() + 3, content.end())), false},
            {"a byte too many", WithTrailer(content + Bytes{0}), false},
            {"a byte too few", WithTrailer(Bytes(content.begin(), content.end() - 1)), false},
            {"sizes that only add up past 2^32",
             WithTrailer(noFields + String("") + Unsigned(0xFFFFFFFFu) + Unsigned(1) + Unsigned(0)),
             true},
            {"a notice that runs past the end", WithTrailer(noFields + Bytes{9, 'a', 'b'}), false},
            {"a size whose last byte says more follows",
             WithTrailer(noFields + String("") + Bytes{0, 0, 0x80}), false},
            {"a notice by reference from the file's start",
             WithTrailer(noFields + Unsigned(256 + 12) + Bytes{0, 0, 2} + Bytes{1, 'n' ^ 0x80}),
             true},
    };
    for (const auto& c : cases) {
        const DatabasePtr database = OpenBytes(c.file);
        EXPECT_EQ(c.opens, database != nullptr) << c.what;
    }
    EXPECT_EQ(nullptr, ZDOpenDatabase("/nowhere/at/all"));
    EXPECT_EQ(nullptr, ZDOpenDatabase("/"));
    ZDCloseDatabase(nullptr);
}

TEST(Opening, ReportsHeaderFields) {
    RawDatabase raw;
    raw.tableType = 200;
    raw.version = 255;
    raw.precision = 99;
    raw.fieldCount = 3;
    // The second name refers to a length of 257 and is null, the third to the first's text.
    raw.headerStrings = String("Zone") + Unsigned(256 + 16) + Unsigned(256 + 7) + String("hello");
    const Bytes file = raw.File();
    const DatabasePtr database = OpenBytes(file);
    ASSERT_NE(nullptr, database);
    EXPECT_EQ(255u, ZDgetDBVersion(database.get()));
    EXPECT_EQ(200, ZDGetTableType(database.get()));
    EXPECT_EQ(99, database->precision);
    EXPECT_STREQ("hello", ZDGetNotice(database.get()));
    ASSERT_EQ(3, database->fieldCount);
    EXPECT_STREQ("Zone", database->fieldNames[0]);
    EXPECT_STREQ("Zone", database->fieldNames[2]);
    EXPECT_EQ(static_cast<int32_t>(file.size()) - 20, ZDGetLength(database.get()));
    EXPECT_TRUE(std::equal(file.begin(), file.end(), ZDGetMapping(database.get())));
    EXPECT_EQ(ZDGetMapping(database.get()) + ZDGetLength(database.get()),
              ZDGetChecksum(database.get()));
}

TEST(Opening, LeavesNoDescriptorBehind) {
    const auto nextDescriptor = [] {
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(fd);
        return fd;
    };
    const int before = nextDescriptor();
    OpenBytes(RawDatabase().File()).reset();
    OpenBytes(Bytes(30, 'x'));
    OpenBytes({});
    EXPECT_EQ(before, nextDescriptor());
}

// --- Strings and numbers -----------------------------------------------------------------

TEST(Strings, DecodeInlineAndByReference) {
    // Positions count from the content's start; the metadata section starts at kMetadata.
    constexpr uint32_t kMetadata = 600;
    Bytes content(700, 0);
    const auto put = [&content](size_t at, const Bytes& bytes) {
        std::copy(bytes.begin(), bytes.end(), content.begin() + static_cast<long>(at));
    };
    put(0, {0x03, 0xD5, 0xD4, 0xC3});  // UTC
    put(10, Unsigned(256 + 40));       // Refers to metadata + 40.
    put(kMetadata + 40, String("far"));
    put(20, Unsigned(255));  // 255 zero bytes follow, each a 0x80.
    put(290, Unsigned(256 + 60));
    put(kMetadata + 60, Unsigned(257));  // Too long for a reference.
    put(300, Unsigned(256 + 100));       // Refers to the very end: nothing there.
    put(310, Unsigned(0xFFFFFFFFu));     // Wraps past 2^32, to a zero at 343.
    put(320, {0x81, 0x80, 0x80, 0x80, 0xF0, 0xFF, 0x80, 0x00});  // 1, high groups dropped.
    put(328, {'Z' ^ 0x80});
    put(340, Unsigned(256 + 70));
    put(kMetadata + 70, Unsigned(256 + 40));  // A reference is not followed twice.
    put(695, {0x05, 'a', 'b', 'c', 0x80});    // Inline, one byte short; ends with a
                                              // number that goes on.
    ZDDatabase db = {};
    db.mapping = content.data();
    db.length = static_cast<int32_t>(content.size());
    db.metadataOffset = kMetadata;
    const std::string long255(255, '\x80');
    const struct {
        uint32_t position;
        const char* text;  // Null where it cannot be decoded.
        uint32_t after;
    } cases[] = {
            {0, "UTC", 4},
            {4, "", 5},
            {10, "far", 12},
            {20, long255.c_str(), 277},
            {290, nullptr, 292},
            {300, nullptr, 302},
            {310, "", 315},
            {320, "Z", 329},
            {340, nullptr, 342},
            {695, nullptr, 696},
            {699, nullptr, 699},
            {700, nullptr, 700},
            {0xFFFFFFFFu, nullptr, 0xFFFFFFFFu},
    };
    for (const auto& c : cases) {
        uint32_t position = c.position;
        char* text = ZDParseString(&db, &position);
        if (c.text == nullptr) {
            EXPECT_EQ(nullptr, text) << c.position;
        } else {
            EXPECT_STREQ(c.text, text) << c.position;
        }
        EXPECT_EQ(c.after, position) << c.position;
        std::free(text);
    }
}

TEST(Numbers, AreSignAndMagnitude) {
    // One ring whose first point is read from the given bytes; its vertex is found there alone.
    const struct {
        Bytes lat;
        int32_t expected;
    } cases[] = {{{0x00}, 0},  {{0x01}, 0},       {{0x02}, 1},         {{0x03}, -1},
                 {{0x05}, -2}, {{0x82, 0x00}, 1}, {{0xFE, 0x01}, 127}, {{0x81, 0x02}, -128}};
    for (const auto& c : cases) {
        RawDatabase raw;
        raw.AddRecord("Z");
        raw.boxTable = Signed(-1000) + Signed(-1000) + Signed(1000) + Signed(1000) + Signed(0) +
                       Unsigned(0);
        raw.polygons = Unsigned(1) + c.lat + Signed(-3);
        const DatabasePtr database = OpenBytes(raw.File());
        ASSERT_NE(nullptr, database);
        EXPECT_THAT(LookUpUnits(database.get(), c.expected, 0),
                    ElementsAre(Hit{ZDLookupBorderVertex, "Z"}));
    }
}

// --- Lookup ------------------------------------------------------------------------------

// Rings drawn by hand and what each point of interest must give.
TEST(Lookup, ClassifiesHandDrawnRings) {
    RawDatabase raw;
    const uint32_t a = raw.AddRecord("A");
    const uint32_t b = raw.AddRecord("B");
    const uint32_t c = raw.AddRecord("C");
    const uint32_t d = raw.AddRecord("D");
    raw.AddRing(a, Square(-400, 1000, 400, 2000));                      // Outline of A ...
    raw.AddRing(c, Reversed(Square(-300, -2000, 300, -1000)));          // C, drawn the wrong way.
    raw.AddRing(b, Square(-100, 1800, 100, 3000));                      // B overlaps A.
    raw.AddRing(a, Reversed(Square(-90, 1200, 90, 1300)));              // ... and a hole in A.
    raw.AddRing(d, {{500, 997}, {700, 1197}, {900, 997}, {700, 797}});  // A diamond.
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    const Hit inA{ZDLookupInZone, "A"};
    const Hit inB{ZDLookupInZone, "B"};
    const struct {
        const char* what;
        int32_t lat;
        int32_t lon;
        std::vector<Hit> hits;
    } cases[] = {
            {"inside A", 200, 1500, {inA}},
            {"in A's hole", 0, 1250, {}},
            {"between hole and outline", 0, 1400, {inA}},
            {"where A and B overlap", 0, 1900, {inA, inB}},
            {"in B alone", 50, 2500, {inB}},
            {"wrong way round still inside", 0, -1500, {{ZDLookupInZone, "C"}}},
            {"open sea", 0, 0, {}},
            {"south of every box", -5000, 1500, {}},
            {"a corner of A", -400, 1000, {{ZDLookupBorderVertex, "A"}}},
            {"one unit east of that corner", -400, 1001, {}},
            {"the first column inside", 0, 1001, {inA}},
            {"the western edge itself", 0, 1000, {}},
            {"the eastern edge itself", 200, 2000, {inA}},
            {"past the eastern edge", 200, 2001, {}},
            {"the northern edge itself", 400, 1500, {inA}},
            {"the southern edge itself", -400, 1500, {}},
            {"on a corner of the hole", 90, 1300, {{ZDLookupBorderVertex, "A"}}},
            {"inside the diamond", 700, 1000, {{ZDLookupInZone, "D"}}},
            {"on its slanting edge", 600, 1100, {{ZDLookupOnBorder, "D"}}},
            {"just outside that edge", 600, 1101, {}},
            {"just inside that edge", 600, 1099, {{ZDLookupInZone, "D"}}},
            {"in its box, outside", 510, 1150, {}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(test.hits, LookUpUnits(database.get(), test.lat, test.lon)) << test.what;
        float safezone = -1.0f;
        EXPECT_EQ(test.hits, LookUpUnits(database.get(), test.lat, test.lon, &safezone))
                << test.what << ", with a distance";
        EXPECT_GE(safezone, 0.0f);
    }
}

TEST(Lookup, MeasuresTheDistanceToTheNearestEdge) {
    RawDatabase raw;
    raw.AddRing(raw.AddRecord("A"), Square(-1000, 0, 1000, 4000));
    const DatabasePtr database = OpenBytes(raw.File());
    const float unit = 90.0f / 1048576.0f;
    const struct {
        int32_t lat;
        int32_t lon;
        float units;  // Of latitude; a unit of longitude counts as two.
    } cases[] = {
            {900, 2000, 100.0f},
            {0, 30, 60.0f},
            {0, 3990, 20.0f},
            {-1000, 0, 0.0f},
            {5000, 2000, std::ldexp(1.0f, 32)},  // No ring examined.
    };
    for (const auto& c : cases) {
        float safezone = -1.0f;
        LookUpUnits(database.get(), c.lat, c.lon, &safezone);
        EXPECT_FLOAT_EQ(c.units * unit, safezone) << c.lat << " " << c.lon;
    }
}

TEST(Lookup, TruncatesAndClampsAnyFloat) {
    RawDatabase raw;
    // Around 0, 0, where truncation toward zero makes a cell of two units, and at the far end.
    raw.AddRing(raw.AddRecord("Null"), Square(-1, -1, 0, 0));
    const DatabasePtr database = OpenBytes(raw.File());
    const HeapDatabase copy(*database);
    const float half = 45.0f / 1048576.0f;
    const float infinity = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        float lat;
        float lon;
        size_t hits;
    } cases[] = {{half, half, 1},  {-half, -half, 1}, {nan, nan, 1},          {3 * half, 0.0f, 0},
                 {infinity, 0, 0}, {0, -infinity, 0}, {3.4e38f, -3.4e38f, 0}, {-infinity, nan, 0}};
    for (const auto& c : cases) {
        float safezone;
        EXPECT_EQ(c.hits, HitsOf(ZDLookup(copy.get(), c.lat, c.lon, &safezone)).size())
                << c.lat << " " << c.lon;
    }
}

TEST(Lookup, AnswersWithoutAScale) {
    for (const int precision : {0, 32, 255}) {
        RawDatabase raw;
        raw.precision = static_cast<uint8_t>(precision);
        raw.AddRing(raw.AddRecord("A"), Square(-9, -9, 9, 9));
        const DatabasePtr database = OpenBytes(raw.File());
        ASSERT_NE(nullptr, database);
        float safezone = -1.0f;
        EXPECT_THAT(HitsOf(ZDLookup(database.get(), 0, 0, &safezone)), IsEmpty());
        EXPECT_EQ(0.0f, safezone);
        EXPECT_STREQ("\"error:error input\"", GetEtcAreaTimezone(database.get(), 0, 0));
    }
}

TEST(Lookup, NamesEveryClassification) {
    const std::pair<int32_t, const char*> names[] = {{-4, "Unknown"},
                                                     {-3, "Ignore"},
                                                     {-2, "End"},
                                                     {-1, "Parsing error"},
                                                     {0, "Not in zone"},
                                                     {1, "In zone"},
                                                     {2, "In excluded zone"},
                                                     {3, "Target point is border vertex"},
                                                     {4, "Target point is on border"},
                                                     {5, "Unknown"}};
    for (const auto& [value, name] : names)
        EXPECT_STREQ(name, ZDLookupResultToString(value));
}

// --- Hostile databases -------------------------------------------------------------------

struct Hostile {
    const char* what;
    Bytes boxTable;
    Bytes metadata;
    Bytes polygons;
    std::vector<Hit> hits;  // At 0, 0.
};

TEST(Hostile, BrokenPartsEndTheScanAndKeepWhatWasFound) {
    const Bytes world = Signed(-900000) + Signed(-900000) + Signed(900000) + Signed(900000);
    const Bytes square = Unsigned(4) + Signed(-9) + Signed(-9) + Signed(18) + Signed(0) +
                         Signed(0) + Signed(18) + Signed(-18) + Signed(0);
    const Bytes records = String("A") + String("B");
    const Bytes first = world + Signed(0) + Unsigned(0);
    const auto size = static_cast<uint32_t>(square.size());
    const Hit a{ZDLookupInZone, "A"};
    const Hit b{ZDLookupInZone, "B"};
    const Hostile cases[] = {
            {"two good rings",
             first + world + Signed(2) + Unsigned(size),
             records,
             square + square,
             {a, b}},
            {"a ring announced too long",
             first + world + Signed(2) + Unsigned(size),
             records,
             square + Unsigned(1000001),
             {a}},
            {"a ring cut short",
             first + world + Signed(2) + Unsigned(size),
             records,
             square + Unsigned(5) + Signed(1),
             {a}},
            {"a ring of no points away from 0, 0",
             first + world + Signed(2) + Unsigned(size),
             records,
             square + Unsigned(0),
             {a}},
            {"an entry cut short", first + world, records, square, {a}},
            {"a record past its section is passed over",
             first + world + Signed(400) + Unsigned(size) + world + Signed(-398) + Unsigned(0),
             records,
             square + square,
             {a, b}},
            {"a ring past the content is passed over",
             first + world + Signed(2) + Unsigned(9999) + world + Signed(0) +
                     Unsigned(size - 9999u),
             records,
             square + square,
             {a, b}},
            {"offsets wrap below the first record",
             first + world + Signed(-2147483647) + Unsigned(size) + world + Signed(-2147483647) +
                     Unsigned(0),
             records,
             square + square,
             {a, {ZDLookupInZone, "B"}}},
            {"a record of which nothing can be read",
             first,
             Bytes{0x80},
             square,
             {{ZDLookupInZone, "(none)"}}},
            {"a string that runs past the content",
             first,
             Bytes{200},
             square,
             {{ZDLookupInZone, "(none)"}}},
            {"a box north of the point ends the scan",
             first + Signed(1) + Signed(-9) + Signed(9) + Signed(9) + Signed(0) + Unsigned(0) +
                     world + Signed(2) + Unsigned(size),
             records,
             square + square,
             {a}},
            {"a number without end", first + Bytes(40, 0xFF), records, square, {a}},
    };
    for (const Hostile& c : cases) {
        RawDatabase raw;
        raw.boxTable = c.boxTable;
        raw.metadata = c.metadata;
        raw.polygons = c.polygons;
        const DatabasePtr database = OpenBytes(raw.File());
        ASSERT_NE(nullptr, database) << c.what;
        EXPECT_EQ(c.hits, LookUpUnits(database.get(), 0, 0)) << c.what;
    }
}

TEST(Hostile, CoordinatesWrapWithoutOverflow) {
    RawDatabase raw;
    raw.precision = 31;
    const int32_t lowest = std::numeric_limits<int32_t>::min();
    const int32_t highest = std::numeric_limits<int32_t>::max();
    raw.AddRing(
            raw.AddRecord("A"),
            {{-highest, -highest}, {highest, -highest}, {highest, highest}, {-highest, highest}},
            {{-highest, -highest}, {highest, highest}});
    raw.polygons = raw.polygons + Unsigned(3) + Signed(highest) + Signed(highest) +
                   Signed(highest) + Signed(-highest) + Signed(highest) + Signed(highest);
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    const HeapDatabase copy(*database);
    for (const float lat : {-360.0f, -90.0f, 0.0f, 90.0f, 360.0f}) {
        for (const float lon : {-720.0f, -180.0f, 0.0f, 180.0f, 720.0f}) {
            float safezone = -1.0f;
            HitsOf(ZDLookup(copy.get(), lat, lon, &safezone));
            EXPECT_FALSE(std::isnan(safezone)) << lat << " " << lon << " " << lowest;
        }
    }
}

// Every entry of a long table points at one long ring: without a limit on its work a lookup
// would decode 2^37 points.
TEST(Hostile, ALongTableOfOneLongRingCostsLittle) {
    RawDatabase raw;
    raw.AddRecord("A");
    GridRing ring;
    for (int32_t i = 0; i < 400000; ++i)
        ring.push_back({1000 + i % 2, i % 3});
    const Bytes entry = Signed(-9) + Signed(-9) + Signed(9) + Signed(9) + Signed(0) + Unsigned(0);
    for (int i = 0; i < 300000; ++i)
        raw.boxTable.insert(raw.boxTable.end(), entry.begin(), entry.end());
    Bytes points = Unsigned(static_cast<uint32_t>(ring.size()));
    for (size_t i = 0; i < ring.size(); ++i)
        points.push_back(static_cast<uint8_t>(2 * (i % 2)));
    points.resize(points.size() + ring.size(), 0);
    raw.polygons = points;
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    EXPECT_THAT(LookUpUnits(database.get(), 0, 0), IsEmpty());
}

// As many zones as entries, all hit, each asking for 255 values: the list ends where no honest one
// comes, before it takes more memory than a device has.
TEST(Hostile, CountlessHitsEndTheScan) {
    RawDatabase raw;
    constexpr uint32_t kZones = 200000;
    raw.fieldCount = 255;
    raw.headerStrings = Bytes(256, 0);
    raw.metadata = Bytes(kZones, 0);
    raw.polygons = Unsigned(1) + Signed(0) + Signed(-3);  // A vertex at 0, 0.
    for (uint32_t i = 0; i < kZones; ++i) {
        const Bytes entry = Signed(-9) + Signed(-9) + Signed(9) + Signed(9) +
                            Signed(i == 0 ? static_cast<int32_t>(kZones - 1) : -1) + Unsigned(0);
        raw.boxTable.insert(raw.boxTable.end(), entry.begin(), entry.end());
    }
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    ZDResult* results = ZDLookup(database.get(), 0, 0, nullptr);
    ASSERT_NE(nullptr, results);
    uint32_t count = 0;
    while (results[count].result != ZDLookupEnd) {
        ASSERT_EQ(kZones - 1 - count, results[count].recordOffset);
        ++count;
    }
    EXPECT_EQ(4096u, count);
    ZDFreeResults(results);
}

// --- Nautical zones ----------------------------------------------------------------------

TEST(Nautical, BandsBeginAtOddMultiplesOfSevenAndAHalfDegrees) {
    const DatabasePtr database = OpenBytes(RawDatabase().File());
    const auto at = [&](float lon, float lat) {
        return std::string(GetEtcAreaTimezone(database.get(), lon, lat));
    };
    // The first unit of each band from Etc/GMT-1 to Etc/GMT-12.
    const int32_t limits[] = {43690,  131072, 218453, 305834, 393216, 480597,
                              567978, 655360, 742741, 830122, 917504, 1004885};
    const auto name = [](char sign, int band) {
        return band == 0 ? std::string("\"Etc/GMT\"")
                         : "\"Etc/GMT" + std::string(1, sign) + std::to_string(band) + "\"";
    };
    for (int band = 1; band <= 12; ++band) {
        const float inside = DegreesAtUnits(limits[band - 1], kPrecision, 180.0);
        const float before = DegreesAtUnits(limits[band - 1] - 1, kPrecision, 180.0);
        EXPECT_EQ(name('-', band), at(inside, 0)) << band;
        EXPECT_EQ(name('-', band - 1), at(before, 0)) << band;
        EXPECT_EQ(name('+', band), at(-inside, 0)) << band;
        EXPECT_EQ(name('+', band - 1), at(-before, 0)) << band;
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const std::string error = "\"error:error input\"";
    const std::tuple<float, float, std::string> edges[] = {
            {180.0f, 90.0f, name('-', 12)}, {-180.0f, -90.0f, name('+', 12)},
            {180.001f, 0.0f, error},        {-180.001f, 0.0f, error},
            {0.0f, 90.001f, error},         {0.0f, -90.0001f, error},
            {nan, 0.0f, name('-', 0)},      {7.5f, nan, name('-', 1)},
            {infinity, 0.0f, error},        {0.0f, -infinity, error},
            {7.4998f, 0.0f, name('-', 0)},  {-7.5f, 0.0f, name('+', 1)},
    };
    for (const auto& [lon, lat, expected] : edges) {
        EXPECT_EQ(expected, at(lon, lat)) << lon << " " << lat;
    }
}

}  // namespace
