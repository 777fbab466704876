// The reader on hand-made databases. reader.transcript draws rings and breaks files; what needs
// more than bytes and points is below.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zonedetect.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "compare_readers.h"
#include "raw_database.h"
#include "transcript.h"

using offlinetz::GridRing;

namespace {

constexpr int kPrecision = 21;

// The bytes of words: two hexadecimal digits each, 's' and a text for a string, 'u' or 'i' and a
// number for a varint, 'x' and a count, '*' and digits for bytes that repeat.
Bytes ParseBytes(const Words& words, size_t from) {
    Bytes bytes;
    for (size_t i = from; i < words.size(); ++i) {
        const std::string rest = words[i].substr(1);
        switch (words[i][0]) {
            case 's':
                bytes = std::move(bytes) + String(rest);
                break;
            case 'u':
                bytes = std::move(bytes) + Unsigned(static_cast<uint32_t>(std::stoul(rest)));
                break;
            case 'i':
                bytes = std::move(bytes) + Signed(std::stoi(rest));
                break;
            case 'x':
                bytes.resize(bytes.size() + std::stoul(rest.substr(0, rest.find('*'))),
                             static_cast<uint8_t>(
                                     std::stoul(rest.substr(rest.find('*') + 1), nullptr, 16)));
                break;
            default:
                bytes.push_back(static_cast<uint8_t>(std::stoul(words[i], nullptr, 16)));
        }
    }
    return bytes;
}

std::string Hits(ZDResult* results) {
    std::string hits;
    for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r) {
        const bool hasText = r->fieldValues != nullptr && r->fieldValues[0] != nullptr;
        hits += (hits.empty() ? "" : "; ") + std::string(hasText ? r->fieldValues[0] : "(null)") +
                ": " + ZDLookupResultToString(r->result);
    }
    ZDFreeResults(results);
    return hits.empty() ? "nothing" : hits;
}

// Looks units up on a heap copy of the content, which lets no read slip past its end; the answer
// must not depend on whether a distance is asked for.
std::string LookUp(const ZDDatabase* database, int32_t lat, int32_t lon) {
    const HeapDatabase copy(*database);
    const float latDegrees = DegreesAtUnits(lat, database->precision, 90.0);
    const float lonDegrees = DegreesAtUnits(lon, database->precision, 180.0);
    float safezone = -1.0f;
    const std::string hits = Hits(ZDLookup(copy.get(), latDegrees, lonDegrees, &safezone));
    EXPECT_EQ(hits, Hits(ZDLookup(copy.get(), latDegrees, lonDegrees, nullptr)));
    // In units of latitude, of which a unit of longitude counts as two.
    const double units = static_cast<double>(safezone) * 1048576.0 / 90.0;
    char text[32];
    std::snprintf(text, sizeof text, " (%.2f)", units);
    return hits + text;
}

TEST(Reader, AnswersAsTheTranscriptSays) {
    RawDatabase raw;
    const auto run = [&raw](const Words& words) -> std::string {
        const std::string& step = words[0];
        const auto number = [&words](size_t i) { return std::stoi(words.at(i)); };
        if (step == "content") {
            const DatabasePtr database = OpenBytes(WithTrailer(ParseBytes(words, 1)));
            return database != nullptr ? "opens: " + std::string(ZDGetNotice(database.get()))
                                       : "refused";
        }
        if (step == "file") return OpenBytes(ParseBytes(words, 1)) != nullptr ? "opens" : "refused";
        if (step ==
            "string") {  // The string at a position of the content, and where it leaves off.
            const Bytes content = ParseBytes(words, 3);
            ZDDatabase db = {};
            db.mapping = content.data();
            db.length = static_cast<int32_t>(content.size());
            db.metadataOffset = static_cast<uint32_t>(number(1));
            auto position = static_cast<uint32_t>(std::stoul(words.at(2)));
            char* text = ZDParseString(&db, &position);
            const std::string result = text != nullptr ? Bars(text) : "null";
            std::free(text);
            return result + " then " + std::to_string(position);
        }
        if (step == "record") {
            raw.AddRecord(words.at(1));
        } else if (step == "ring" || step == "square") {  // Offset of its record, true coordinates.
            GridRing ring;
            for (size_t i = 2; i + 1 < words.size(); i += 2) {
                ring.push_back({number(i), number(i + 1) - offlinetz::kReaderShift});
            }
            if (step == "square") {  // From the south-west corner to the north-east one.
                ring = {ring[0], {ring[1].lat, ring[0].lon}, ring[1], {ring[0].lat, ring[1].lon}};
            }
            raw.AddRing(static_cast<uint32_t>(number(1)), ring);
        } else if (step == "precision") {
            raw.precision = static_cast<uint8_t>(number(1));
        } else if (step == "boxes") {
            raw.boxTable = std::move(raw.boxTable) + ParseBytes(words, 1);
        } else if (step == "records") {
            raw.metadata = std::move(raw.metadata) + ParseBytes(words, 1);
        } else if (step == "rings") {
            raw.polygons = std::move(raw.polygons) + ParseBytes(words, 1);
        } else {
            const DatabasePtr database = OpenBytes(raw.File());
            return database != nullptr ? LookUp(database.get(), number(1), number(2)) : "refused";
        }
        return "";
    };
    CheckTranscript(
            OFFLINETZ_TESTS "/unit/reader.transcript",
            [&raw](const std::string&) { raw = RawDatabase(); },
            [&run](const std::string& step) {
                const std::string result = run(SplitStep(step));
                return result.empty() ? Words{} : Words{result};
            });
}

TEST(Opening, ReportsHeaderFieldsAndHoldsNothingAfterwards) {
    const auto nextDescriptor = [] {
        const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(fd);
        return fd;
    };
    const int before = nextDescriptor();
    RawDatabase raw;
    raw.tableType = 200;
    raw.version = 255;
    raw.precision = 99;
    raw.fieldCount = 3;
    // The second name refers to a length of 257 and is null, the third to the first's text.
    raw.headerStrings = String("Zone") + Unsigned(256 + 16) + Unsigned(256 + 7) + String("hello");
    const Bytes file = raw.File();
    DatabasePtr database = OpenBytes(file);
    ASSERT_NE(nullptr, database);
    EXPECT_EQ(255u, ZDgetDBVersion(database.get()));
    EXPECT_EQ(200, ZDGetTableType(database.get()));
    EXPECT_EQ(99, database->precision);
    EXPECT_STREQ("hello", ZDGetNotice(database.get()));
    ASSERT_EQ(3, database->fieldCount);
    EXPECT_STREQ("Zone", database->fieldNames[0]);
    EXPECT_STREQ("Zone", database->fieldNames[2]);
    EXPECT_TRUE(std::equal(file.begin(), file.end(), ZDGetMapping(database.get())));
    EXPECT_EQ(static_cast<int32_t>(file.size()) - 20, ZDGetLength(database.get()));
    EXPECT_EQ(ZDGetMapping(database.get()) + file.size() - 20, ZDGetChecksum(database.get()));
    database.reset();
    EXPECT_EQ(nullptr, OpenBytes(Bytes(30, 'x')));
    EXPECT_EQ(nullptr, ZDOpenDatabase("/nowhere/at/all"));
    EXPECT_EQ(nullptr, ZDOpenDatabase("/"));
    ZDCloseDatabase(nullptr);
    EXPECT_EQ(before, nextDescriptor());
}

TEST(Lookup, TruncatesAndClampsAnyFloat) {
    RawDatabase raw;
    // A square of one unit at 0, 0, where truncation toward zero makes a cell of two.
    raw.AddRing(raw.AddRecord("Null"), {{-1, -4}, {0, -4}, {0, -3}, {-1, -3}});
    const DatabasePtr database = OpenBytes(raw.File());
    const float half = 45.0f / 1048576.0f;
    const float infinity = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::tuple<float, float, bool> cases[] = {
            {half, half, true},         {-half, -half, true},   {nan, nan, true},
            {3 * half, 0.0f, false},    {infinity, 0, false},   {0, -infinity, false},
            {3.4e38f, -3.4e38f, false}, {-infinity, nan, false}};
    for (const auto& [lat, lon, found] : cases) {
        float safezone;
        EXPECT_EQ(found, Hits(ZDLookup(database.get(), lat, lon, &safezone)) != "nothing");
    }
}

// Thousands of entries of one long ring, of records in one long run of bytes that each say that
// another follows, or names that refer to one: what is read ends early, in proportion to the file.
TEST(Hostile, LongRingsAndTextsAreReadAFewTimesOnly) {
    constexpr uint32_t kZones = 4000;
    const Bytes run = Bytes(1 << 20, 0x80) + Bytes{1, 'A' ^ 0x80};
    const auto hits = [&](const Bytes& ring, const Bytes& records) {
        RawDatabase raw;
        for (uint32_t i = 0; i < kZones; ++i) {
            raw.boxTable = std::move(raw.boxTable) + Signed(-9) + Signed(-9) + Signed(9) +
                           Signed(9) + Signed(i == 0 ? 0 : 1) + Unsigned(0);
        }
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
    // Four times a content of a megabyte, a megabyte more, and the one that goes beyond.
    EXPECT_EQ(std::make_pair(size_t{kZones}, size_t{6}), hits(Unsigned(4) + corners, run));
    EXPECT_EQ(std::make_pair(size_t{6}, size_t{0}),
              hits(Unsigned(500000) + corners + Bytes(999992, 0), Bytes(kZones, 0)));

    RawDatabase names;
    names.fieldCount = 255;
    names.headerStrings.clear();
    // Positions in the header count from the start of the file; the run begins before this one.
    for (int i = 0; i < 255; ++i)
        names.headerStrings = std::move(names.headerStrings) + Unsigned(256 + 1000);
    names.headerStrings = std::move(names.headerStrings) + String("notice");
    names.metadata = run;
    EXPECT_EQ(nullptr, OpenBytes(names.File()));
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
        raw.boxTable = std::move(raw.boxTable) + Signed(-9) + Signed(-9) + Signed(9) + Signed(9) +
                       Signed(i == 0 ? static_cast<int32_t>(kZones - 1) : -1) + Unsigned(0);
    }
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    ZDResult* results = ZDLookup(database.get(), 0, 0, nullptr);
    ASSERT_NE(nullptr, results);
    uint32_t count = 0;
    for (; results[count].result != ZDLookupEnd; ++count) {
        ASSERT_EQ(kZones - 1 - count, results[count].recordOffset);
    }
    EXPECT_EQ(4096u, count);
    ZDFreeResults(results);
}

// Threads that meet on a handle's first lookup: one makes the directory, none waits, all are right.
TEST(Lookup, FirstLookupsMayMeet) {
    const auto answers = [](const ZDDatabase* database, int start) {
        std::string all;
        for (int i = start; i < start + 40; ++i) {
            const auto at = static_cast<float>(i);
            all += Hits(ZDLookup(database, at / 2.0f, 4.0f * at - 170.0f, nullptr)) + "\n";
        }
        return all;
    };
    const DatabasePtr database(ZDOpenDatabase(OFFLINETZ_WORLD_DATABASE));
    ZDDatabase scanned = *database;
    scanned.directory = nullptr;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const std::string found = answers(database.get(), t);
            EXPECT_EQ(answers(&scanned, t), found);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// On every path, against the plain reading of the rules; small databases of every shape are for the
// fuzz target.
TEST(Lookup, AgreesWithThePlainReadingOfTheWorld) {
    const Bytes file = ReadFile(OFFLINETZ_WORLD_DATABASE);
    const DatabasePtr database = OpenBytes(file);
    ASSERT_NE(nullptr, database);
    const oracle::PlainReader plain(file);
    std::mt19937 random(7);
    for (int i = 0; i < 400; ++i) {
        const float lat = static_cast<float>(random() % 180001) / 1000.0f - 90.0f;
        const float lon = static_cast<float>(random() % 360001) / 1000.0f - 180.0f;
        EXPECT_STREQ(nullptr, DifferenceAt(*database, plain, lat, lon)) << lat << " " << lon;
    }
}

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
