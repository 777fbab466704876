#include <LookupInterface.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sha1.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "log_capture.h"
#include "raw_database.h"
#include "temporary_directory.h"

using offlinetz::GridRing;
using testing::ElementsAreArray;
using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupInterface;
namespace fs = std::filesystem;

namespace {

const char kActive[] = "offlinetz/lastcombinedTimezone.bin";
const char kBackup[] = "offlinetz/lastcombinedTimezonebackup.bin";

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A database with zones A and B overlapping, a zone of an empty name, and one without a record.
RawDatabase MakeDatabase(uint8_t version) {
    RawDatabase raw;
    raw.version = version;
    const uint32_t a = raw.AddRecord("\"Zone/A\"");
    const uint32_t b = raw.AddRecord("\"Zone/B\"");
    const uint32_t broken = raw.AddRecord("");
    raw.metadata.back() = 200;  // A length past the content.
    const auto square = [](int32_t south, int32_t west) {
        return GridRing{
                {south, west}, {south + 100, west}, {south + 100, west + 100}, {south, west + 100}};
    };
    raw.AddRing(a, square(0, 0));
    raw.AddRing(b, square(0, 50));
    raw.AddRing(broken, square(0, 1000));
    return raw;
}

float Lat(int32_t units) {
    return DegreesAtUnits(units, 21, 90.0);
}
float Lon(int32_t units) {
    return DegreesAtUnits(units, 21, 180.0);
}

class ManagerTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directory("offlinetz"); }

    TemporaryDirectory mDirectory;
    LogCapture mLog;
    LookupInterface mManager;
};

std::string DigestLine(const Bytes& bytes, bool stored) {
    Bytes digest(bytes.end() - 20, bytes.end());
    if (!stored) {
        const Bytes whole = WithTrailer(Bytes(bytes.begin(), bytes.end() - 20));
        digest.assign(whole.end() - 20, whole.end());
    }
    std::string line;
    for (const uint8_t byte : digest) {
        char text[4];
        std::snprintf(text, sizeof text, "%02x ", byte);
        line += text;
    }
    return line;
}

// The lines of one verification pass over a file that can be mapped.
Lines PassLines(const Bytes& file, bool good) {
    return {"open file " + std::string(kActive) + " length " + std::to_string(file.size()),
            "sha1 value read from file : ",
            DigestLine(file, true),
            "sha1 value cal from file content : ",
            DigestLine(file, false),
            good ? "DB pass " : "DB file destory----------- need recovery!"};
}

std::string OpenFailed(const char* path) {
    return "open file " + std::string(path) + " failed No such file or directory";
}

std::string LengthLine(size_t length) {
    return "open file " + std::string(kActive) + " length " + std::to_string(length);
}

std::string LastLine(size_t bytes) {
    return "read file " + std::string(kBackup) + " last " + std::to_string(bytes % 4096);
}

TEST_F(ManagerTest, VerifiesAndRestoresOnce) {
    const Bytes good = MakeDatabase(1).File();
    const Bytes other = MakeDatabase(2).File();
    Bytes damaged = good;
    damaged[10] ^= 1;
    Bytes wrongTrailer = good;
    wrongTrailer.back() ^= 0x80;
    const Bytes tiny = WithTrailer({'x'});
    const Bytes tooShort(20, 'x');
    const Lines copyFailed = {"-------- Copy BACKUP DB failed--------"};
    const Lines again = {"try to open db again !"};
    const Lines givenUp = {"--------  BACKUP DB is destroy also--------"};
    const struct {
        const char* what;
        std::optional<Bytes> active;
        std::optional<Bytes> backup;
        bool result;
        std::optional<Bytes> activeAfter;
        Lines lines;
    } cases[] = {
            {"good", good, std::nullopt, true, good, PassLines(good, true)},
            {"one byte of content", tiny, std::nullopt, true, tiny, PassLines(tiny, true)},
            {"missing, good backup", std::nullopt, other, true, other,
             Lines{OpenFailed(kActive), LastLine(other.size())} + again + PassLines(other, true)},
            {"damaged content, good backup", damaged, other, true, other,
             PassLines(damaged, false) + Lines{LastLine(other.size())} + again +
                     PassLines(other, true)},
            {"damaged trailer, good backup", wrongTrailer, other, true, other,
             PassLines(wrongTrailer, false) + Lines{LastLine(other.size())} + again +
                     PassLines(other, true)},
            {"too short, good backup", tooShort, other, true, other,
             Lines{LengthLine(20), LastLine(other.size())} + again + PassLines(other, true)},
            {"damaged, no backup", damaged, std::nullopt, false, damaged,
             PassLines(damaged, false) + Lines{OpenFailed(kBackup)} + copyFailed + again +
                     PassLines(damaged, false) + givenUp},
            {"both damaged", wrongTrailer, damaged, false, damaged,
             PassLines(wrongTrailer, false) + Lines{LastLine(damaged.size())} + again +
                     PassLines(damaged, false) + givenUp},
            {"both missing", std::nullopt, std::nullopt, false, std::nullopt,
             Lines{OpenFailed(kActive), OpenFailed(kBackup)} + copyFailed + again +
                     Lines{OpenFailed(kActive)} + givenUp},
            {"missing, empty backup", std::nullopt, Bytes(), false, Bytes(),
             Lines{OpenFailed(kActive), LastLine(0)} + again + Lines{LengthLine(0)} + givenUp},
    };
    for (const auto& c : cases) {
        fs::remove(kActive);
        fs::remove(kBackup);
        if (c.active) WriteFile(kActive, *c.active);
        if (c.backup) WriteFile(kBackup, *c.backup);
        EXPECT_EQ(c.result, mManager.PreOpenDB()) << c.what;
        std::vector<std::string> messages;
        for (const LogLine& line : mLog.Take()) {
            EXPECT_EQ(4, line.priority);
            EXPECT_EQ("OfflinetimezoneInterface", line.tag);
            messages.push_back(line.message);
        }
        EXPECT_THAT(messages, ElementsAreArray(c.lines)) << c.what;
        EXPECT_EQ(c.activeAfter.has_value(), fs::exists(kActive)) << c.what;
        if (c.activeAfter) {
            EXPECT_EQ(*c.activeAfter, ReadFile(kActive)) << c.what;
        }
        EXPECT_EQ(c.backup.has_value(), fs::exists(kBackup)) << c.what;
        if (c.backup) {
            EXPECT_EQ(*c.backup, ReadFile(kBackup)) << c.what;
        }
    }
}

TEST_F(ManagerTest, EveryDamagedByteIsNoticed) {
    const Bytes good = MakeDatabase(1).File();
    for (size_t i = 0; i < good.size(); ++i) {
        Bytes damaged = good;
        damaged[i] ^= 0x01;
        WriteFile(kActive, damaged);
        fs::remove(kBackup);
        EXPECT_FALSE(mManager.PreOpenDB()) << "byte " << i;
    }
}

TEST_F(ManagerTest, AnUnmappableOrHugeFileIsDamaged) {
    fs::create_directory(kActive);  // Opens, but neither maps nor copies.
    EXPECT_FALSE(mManager.PreOpenDB());
    fs::remove(kActive);
    WriteFile(kActive, {});
    fs::resize_file(kActive, uint64_t{1} << 31);  // 2 GiB, all of it a hole.
    const Bytes good = MakeDatabase(3).File();
    WriteFile(kBackup, good);
    EXPECT_TRUE(mManager.PreOpenDB());
    EXPECT_EQ(good, ReadFile(kActive));
}

TEST_F(ManagerTest, CopiesWholeFilesAndSaysWhatFailed) {
    const std::string from = "from";
    for (const size_t size : {0u, 1u, 4095u, 4096u, 4097u, 100000u}) {
        const Bytes bytes(size, static_cast<uint8_t>(size));
        WriteFile(from, bytes);
        WriteFile("to", Bytes(200000, 'x'));
        EXPECT_TRUE(mManager.CopyFile("from", "to"));
        EXPECT_EQ(bytes, ReadFile("to"));
        EXPECT_EQ(mLog.TakeMessages(), Lines{"read file from last " + std::to_string(size % 4096)});
    }
    const struct {
        const char* from;
        const char* to;
        Lines lines;
    } failures[] = {
            {"nothing", "to", {"open file nothing failed No such file or directory"}},
            {"from", "no/way", {"open file no/way failed No such file or directory"}},
            {"offlinetz", "to", {"read file offlinetz error Is a directory"}},
            {"from", "/dev/full", {"read file /dev/full error No space left on device"}},
    };
    for (const auto& f : failures) {
        EXPECT_FALSE(mManager.CopyFile(f.from, f.to));
        EXPECT_EQ(f.lines, mLog.TakeMessages()) << f.from << " to " << f.to;
    }
    // A small file fits the stream's buffer: only the flush finds the device full.
    WriteFile("small", {'x'});
    EXPECT_FALSE(mManager.CopyFile("small", "/dev/full"));
    EXPECT_EQ(mLog.TakeMessages(), (Lines{"read file small last 1",
                                          "read file /dev/full error No space left on device"}));
}

TEST_F(ManagerTest, InjectsTheBackup) {
    const Bytes old = MakeDatabase(1).File();
    const Bytes fresh = MakeDatabase(2).File();
    WriteFile(kActive, old);
    EXPECT_FALSE(mManager.InjectDB());
    EXPECT_EQ(mLog.TakeMessages(),
              (Lines{OpenFailed(kBackup), "-------- Copy BACKUP DB failed--------"}));
    EXPECT_EQ(old, ReadFile(kActive));
    WriteFile(kBackup, fresh);
    EXPECT_TRUE(mManager.InjectDB());
    EXPECT_EQ(fresh, ReadFile(kActive));
}

// The answer of a lookup and the lines it logs.
TEST_F(ManagerTest, AnswersWithTheTextThatAClientGets) {
    const auto ask = [this](float lat, float lon) {
        char* answer = mManager.LookupTzId(lat, lon);
        const std::string text = answer;
        EXPECT_EQ('\0', answer[text.size() + 1]);  // Two zero bytes end it.
        std::free(answer);
        return text;
    };
    const auto input = [](float lat, float lon) {
        char line[100];
        std::snprintf(line, sizeof line, "input lat : %f, long : %f \n", static_cast<double>(lat),
                      static_cast<double>(lon));
        return std::string(line);
    };
    const std::string closed = "error:Server is not supportted";
    EXPECT_EQ(closed, ask(0, 0));
    EXPECT_EQ(mLog.TakeMessages(), Lines{input(0, 0)});
    EXPECT_EQ(65535, mManager.getDBVersion());

    mManager.OpenDB();
    EXPECT_EQ(mLog.TakeMessages(),
              (Lines{"Try to OpenDB " + std::string(kActive) + "\n", "Open DB failed\n"}));
    EXPECT_EQ(closed, ask(0, 0));
    EXPECT_EQ(65535, mManager.getDBVersion());

    WriteFile(kActive, MakeDatabase(200).File());
    mLog.Take();
    mManager.OpenDB();
    EXPECT_EQ(mLog.TakeMessages(), Lines{"Try to OpenDB " + std::string(kActive) + "\n"});
    EXPECT_EQ(200, mManager.getDBVersion());

    const std::string a = "TimezoneId: \"Zone/A\" \"\n";
    const std::string b = "TimezoneId: \"Zone/B\" \"\n";
    const struct {
        int32_t lat;
        int32_t lon;
        std::string answer;
        Lines lines;
    } cases[] = {
            {50, 30, "\"Zone/A\"", {a, "lookup results : \"Zone/A\" ", "Safezone: 0.004292\n"}},
            {50,
             80,
             "\"Zone/A\"\"Zone/B\"",
             {a, b, "lookup results : \"Zone/A\"\"Zone/B\" ", "Safezone: 0.003948\n"}},
            {50, 1050, "", {"lookup results :  ", "Safezone: 0.004292\n"}},
            {50,
             500,
             "\"Etc/GMT\"",
             {"Try to get time zone from etc area!", "Etc time zone : \"Etc/GMT\" "}},
            {50,
             -200000,
             "\"Etc/GMT+2\"",
             {"Try to get time zone from etc area!", "Etc time zone : \"Etc/GMT+2\" "}},
            {2000000,
             500,
             "\"error:error input\"",
             {"Try to get time zone from etc area!", "Etc time zone : \"error:error input\" "}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.answer, ask(Lat(c.lat), Lon(c.lon)));
        EXPECT_EQ(mLog.TakeMessages(), Lines{input(Lat(c.lat), Lon(c.lon))} + c.lines);
    }
    mManager.CloseDB();
    mManager.CloseDB();
    EXPECT_EQ(closed, ask(0, 0));
    EXPECT_EQ(65535, mManager.getDBVersion());
}

TEST_F(ManagerTest, DigestsMessages) {
    uint8_t digest[SHA1HashSize];
    EXPECT_EQ(0, mManager.sha1(nullptr, digest, 0));
    EXPECT_EQ(0xda, digest[0]);
    EXPECT_EQ(-1, mManager.sha1(nullptr, digest, 1));
    EXPECT_EQ(mLog.TakeMessages(), Lines{"SHA1Input Error 1.\n"});
    EXPECT_EQ(-1, mManager.sha1(digest, nullptr, 1));
    EXPECT_EQ(mLog.TakeMessages(),
              Lines{"SHA1Result Error 1, could not compute message digest.\n"});
}

// Version queries from other threads while the database is closed and opened again.
TEST_F(ManagerTest, TheVersionMayBeAskedWhileTheDatabaseChanges) {
    WriteFile(kActive, MakeDatabase(9).File());
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::thread asker([&] {
        while (!stop) {
            const int32_t version = mManager.getDBVersion();
            if (version != 9 && version != 65535) ++wrong;
        }
    });
    for (int i = 0; i < 300; ++i) {
        mManager.OpenDB();
        mManager.CloseDB();
    }
    stop = true;
    asker.join();
    EXPECT_EQ(0, wrong);
}

}  // namespace
