// Properties of the reader that comparing it with the reference reader on small databases (as
// database_fuzz does) does not show: its interface, limits, threads, speed, the nautical zones, and
// its answers from the world database.
#include <digest/sha1_block.h>
#include <gtest/gtest.h>
#include <reader/spatial_index.h>
#include <zonedetect.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

#include "compare_readers.h"
#include "raw_database.h"
#include "temporary_directory.h"

namespace {

// The decoder before its first use, in which it chooses the one that suits the processor.
const zonedetect::DeltaDecoder kChooseDecoder = zonedetect::deltaDecoder;

TEST(Interface, ReportsHeaderFieldsAndHoldsNothingAfterwards) {
    const size_t descriptors = CountEntries("/proc/self/fd");
    RawDatabase raw;
    raw.tableType = 200;
    raw.version = 255;
    raw.precision = 99;
    raw.fieldCount = 3;
    // The second name refers to a length of 257 and is null. The third refers to the first one's
    // text.
    raw.headerStrings = String("Zone") + Unsigned(256 + 16) + Unsigned(256 + 7) + String("hello");
    const Bytes file = raw.File();
    const TemporaryDirectory directory;
    WriteFile("file", file);
    DatabasePtr database(ZDOpenDatabase("file"));
    ASSERT_NE(nullptr, database);
    EXPECT_EQ(255u, ZDgetDBVersion(database.get()));
    EXPECT_EQ(200, ZDGetTableType(database.get()));
    EXPECT_EQ(99, database->precision);
    EXPECT_STREQ("hello", ZDGetNotice(database.get()));
    ASSERT_EQ(3, database->fieldCount);
    EXPECT_STREQ("Zone", database->fieldNames[0]);
    EXPECT_STREQ("Zone", database->fieldNames[2]);
    uint32_t position = 7;  // Of the first name.
    const std::unique_ptr<char, void (*)(void*)> name(ZDParseString(database.get(), &position),
                                                      std::free);
    EXPECT_STREQ("Zone", name.get());
    EXPECT_EQ(12u, position);
    EXPECT_TRUE(std::equal(file.begin(), file.end(), ZDGetMapping(database.get())));
    EXPECT_EQ(static_cast<int32_t>(file.size()) - 20, ZDGetLength(database.get()));
    EXPECT_EQ(ZDGetMapping(database.get()) + file.size() - 20, ZDGetChecksum(database.get()));
    database.reset();
    EXPECT_EQ(nullptr, OpenBytes(Bytes(30, 'x')));
    EXPECT_EQ(nullptr, ZDOpenDatabase("/nowhere/at/all"));
    EXPECT_EQ(nullptr, ZDOpenDatabase("/"));
    ZDCloseDatabase(nullptr);
    EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
    std::string results;
    for (int32_t result = ZDLookupIgnore; result <= ZDLookupOnBorder + 1; ++result)
        results += std::string(ZDLookupResultToString(result)) + "; ";
    EXPECT_EQ(
            "Ignore; End; Parsing error; Not in zone; In zone; In excluded zone; "
            "Target point is border vertex; Target point is on border; Unknown; ",
            results);
}

// Thousands of entries share one long ring; thousands of records, or all field names, lie in one
// run of bytes each of which says that another follows. The reader stops early, at a cost in
// proportion to the file.
TEST(Hostile, LongRingsAndTextsAreReadAFewTimesOnly) {
    constexpr uint32_t kZones = 4000;
    const Bytes run = Bytes(1 << 20, 0x80) + Bytes{1, 'A' ^ 0x80};
    const auto hits = [&](const Bytes& ring, const Bytes& records) {
        RawDatabase raw;
        for (uint32_t i = 0; i < kZones; ++i)
            raw.AddEntry({{-9, -9}, {9, 9}}, i == 0 ? 0 : 1, 0);
        raw.metadata = records;
        raw.polygons = ring;
        const DatabasePtr database = OpenBytes(raw.File());
        size_t texts = 0;
        size_t count = 0;
        ZDResult* results = ZDLookup(database.get(), 0, 0, nullptr);
        for (; results[count].result != ZDLookupEnd; ++count)
            texts += results[count].fieldValues[0] != nullptr ? 1 : 0;
        ZDFreeResults(results);
        return std::make_pair(count, texts);
    };
    const Bytes corners = Signed(-9) + Signed(-12) + Signed(18) + Signed(0) + Signed(0) +
                          Signed(18) + Signed(-18) + Signed(0);
    // A lookup reads four times a content of a megabyte, a megabyte more, and the text or ring that
    // passes that limit. Texts have their own limit beside that of rings.
    EXPECT_EQ(std::make_pair(size_t{kZones}, size_t{6}), hits(Unsigned(4) + corners, run));
    EXPECT_EQ(std::make_pair(size_t{6}, size_t{6}),
              hits(Unsigned(500000) + corners + Bytes(999992, 0), Bytes(kZones, 0)));

    RawDatabase names;
    names.fieldCount = 255;
    names.headerStrings.clear();
    // Positions in the header count from the start of the file; the run begins before this one.
    for (int i = 0; i < 255; ++i)
        names.headerStrings = std::move(names.headerStrings) + Unsigned(256 + 1000);
    names.headerStrings = std::move(names.headerStrings) + String("notice");
    names.metadata = Bytes(1 << 20, 0x80);  // The run does not end.
    EXPECT_EQ(nullptr, OpenBytes(names.File()));
}

// 200,000 zones, all of which a point hits, with 255 values each: the list of results ends beyond
// the length of any honest one, before it takes more memory than a device has.
TEST(Hostile, CountlessHitsEndTheScan) {
    RawDatabase raw;
    constexpr uint32_t kZones = 200000;
    raw.fieldCount = 255;
    raw.headerStrings = Bytes(256, 0);
    raw.metadata = Bytes(kZones, 0);
    raw.polygons = Unsigned(1) + Signed(0) + Signed(-3);  // A vertex at 0, 0.
    for (uint32_t i = 0; i < kZones; ++i)
        raw.AddEntry({{-9, -9}, {9, 9}}, i == 0 ? static_cast<int32_t>(kZones - 1) : -1, 0);
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    ZDResult* results = ZDLookup(database.get(), 0, 0, nullptr);
    ASSERT_NE(nullptr, results);
    uint32_t count = 0;
    for (; results[count].result != ZDLookupEnd; ++count)
        ASSERT_EQ(kZones - 1 - count, results[count].recordOffset);
    EXPECT_EQ(4096u, count);
    ZDFreeResults(results);
}

TEST(World, AnswersAsTheReferenceReader) {
    const Bytes file = ReadFile(OFFLINETZ_WORLD_DATABASE);
    const DatabasePtr database = OpenBytes(file);
    ASSERT_NE(nullptr, database);
    const oracle::ReferenceReader reference(file);
    // Several threads make the first lookup: one of them builds the index, none waits for it.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < t + 40; ++i) {
                const float lat = static_cast<float>(i) / 2.0f;
                const float lon = 4.0f * static_cast<float>(i) - 170.0f;
                EXPECT_STREQ(nullptr,
                             DifferenceOf(*database, reference.Lookup(lat, lon), lat, lon, true));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::mt19937 random(7);
    for (int i = 0; i < 400; ++i) {
        const float lat = static_cast<float>(random() % 180001) / 1000.0f - 90.0f;
        const float lon = static_cast<float>(random() % 360001) / 1000.0f - 180.0f;
        EXPECT_STREQ(nullptr, DifferenceAt(*database, reference, lat, lon)) << lat << " " << lon;
    }
}

// The next three tests check what makes lookups fast. Answers are the same without it.
TEST(Index, LeavesOneRunAPointInTheWorld) {
    const DatabasePtr database = OpenBytes(ReadFile(OFFLINETZ_WORLD_DATABASE));
    const zonedetect::SpatialIndex* index = database->spatialIndex->Get(*database);
    ASSERT_NE(nullptr, index);
    std::mt19937 random(3);
    uint32_t runs = 0;
    for (int i = 0; i < 10000; ++i) {
        const auto units = [&] { return static_cast<int32_t>(random() % 2000001) - 1000000; };
        runs += index->RunsAt({units(), units()}).count;
    }
    EXPECT_LT(runs, 11000u);
}

// Verifying and building the index read the whole file in order, for which the system reads ahead.
// For lookups, which need a few pages, the reader turns that off.
TEST(Index, EndsReadAhead) {
    const DatabasePtr database(ZDOpenDatabase(OFFLINETZ_WORLD_DATABASE));
    const auto isRandom = [] {
        std::ifstream maps("/proc/self/smaps");
        std::string line;
        while (std::getline(maps, line) && line.find(OFFLINETZ_WORLD_DATABASE) == line.npos) {
        }
        while (std::getline(maps, line) && line.rfind("VmFlags:", 0) != 0) {
        }
        return line.find(" rr") != line.npos;
    };
    EXPECT_FALSE(isRandom());
    ZDFreeResults(ZDLookup(database.get(), 1, 2, nullptr));
    EXPECT_TRUE(isRandom());
}

// The system's list of the processor's features shows whether the reader and the digest find
// theirs.
TEST(Processor, InstructionsAreFoundAndChosen) {
    const Bytes file = ReadFile("/proc/cpuinfo");
    std::istringstream words(std::string(file.begin(), file.end()));
    const std::set<std::string> features{std::istream_iterator<std::string>(words), {}};
    const bool hasDecoder = features.count("sse4_1") > 0;
    int32_t value[1 + zonedetect::kDeltaSlack];
    const uint8_t byte = 2;
    zonedetect::Cursor cursor = {&byte, &byte + 1};
    kChooseDecoder(&cursor, value, 1);
    EXPECT_EQ(hasDecoder, zonedetect::X86DeltaDecoder() != nullptr);
    EXPECT_EQ(hasDecoder ? zonedetect::X86DeltaDecoder() : &zonedetect::DecodeDeltasPortable,
              zonedetect::deltaDecoder.load());
#ifdef __arm__  // There is no kernel for 32-bit ARM.
    const bool hasKernel = false;
#else
    const bool hasKernel = features.count("sha_ni") + features.count("sha1") > 0;
#endif
    const Sha1BlockFunction kernel = Sha1BlockX86() != nullptr ? Sha1BlockX86() : Sha1BlockArm();
    EXPECT_EQ(hasKernel, kernel != nullptr);
    EXPECT_EQ(hasKernel ? kernel : &Sha1BlockPortable, ChooseSha1Block());
}

TEST(Nautical, BandsBeginAtOddMultiplesOfSevenAndAHalfDegrees) {
    const DatabasePtr database = OpenBytes(RawDatabase().File());
    const auto at = [&](float lon, float lat) {
        return std::string(GetEtcAreaTimezone(database.get(), lon, lat));
    };
    // The first unit of each band, from Etc/GMT-1 to Etc/GMT-12.
    const int32_t limits[] = {43690,  131072, 218453, 305834, 393216, 480597,
                              567978, 655360, 742741, 830122, 917504, 1004885};
    const auto name = [](char sign, int band) {
        return band == 0 ? std::string("\"Etc/GMT\"")
                         : "\"Etc/GMT" + std::string(1, sign) + std::to_string(band) + "\"";
    };
    for (int band = 1; band <= 12; ++band) {
        for (const int units : {0, 1}) {  // In the band, and in the one before.
            const float lon = DegreesAtUnits(limits[band - 1] - units, 21, 180.0);
            EXPECT_EQ(name('-', band - units), at(lon, 0)) << band;
            EXPECT_EQ(name('+', band - units), at(-lon, 0)) << band;
        }
    }
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::string error = "\"error:error input\"";
    const std::tuple<float, float, std::string> edges[] = {
            {180.0f, 90.0f, name('-', 12)}, {-180.0f, -90.0f, name('+', 12)},
            {180.001f, 0.0f, error},        {-180.001f, 0.0f, error},
            {0.0f, 90.001f, error},         {0.0f, -90.0001f, error},
            {kNan, 0.0f, name('-', 0)},     {7.5f, kNan, name('-', 1)},
            {kInfinity, 0.0f, error},       {0.0f, -kInfinity, error}};
    for (const auto& [lon, lat, expected] : edges)
        EXPECT_EQ(expected, at(lon, lat)) << lon << " " << lat;
    for (const uint8_t precision : std::vector<uint8_t>{0, 32, 255}) {
        ZDDatabase unscaled = *database;
        unscaled.precision = precision;
        EXPECT_EQ(error, GetEtcAreaTimezone(&unscaled, 0, 0));
    }
}

}  // namespace
