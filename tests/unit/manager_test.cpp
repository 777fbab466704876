#include <LookupInterface.h>
#include <gtest/gtest.h>
#include <sha1.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "log_capture.h"
#include "raw_database.h"
#include "service_files.h"
#include "temporary_directory.h"
#include "transcript.h"

using offlinetz::GridRing;
using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupInterface;
namespace fs = std::filesystem;

namespace {

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

// What the steps of manager.transcript do, on files and on the manager.
TEST_F(ManagerTest, LogsAndAnswersAsTheTranscriptSays) {
    std::map<std::string, Bytes> files = {{"good", MakeDatabase(1).File()},
                                          {"other", MakeDatabase(2).File()},
                                          {"tiny", WithTrailer({'x'})},
                                          {"short", Bytes(20, 'x')},
                                          {"empty", {}},
                                          {"page", Bytes(4096, 'p')},
                                          {"more", Bytes(4097, 'm')}};
    files["damaged"] = files["good"];
    files["damaged"][10] ^= 1;
    files["trailer"] = files["good"];
    files["trailer"].back() ^= 0x80;
    const auto nameOf = [&](const char* path) {
        if (!fs::exists(path)) return std::string("missing");
        const Bytes bytes = ReadFile(path);
        for (const auto& [name, file] : files) {
            if (file == bytes) return name;
        }
        return std::string("something else");
    };
    const auto boolean = [](bool value) { return std::string(value ? "true" : "false"); };
    const auto run = [&](const Words& words) -> std::string {
        const std::string& step = words[0];
        if (step == "file") {
            WriteFile(words[1], files.at(words[2]));
            return "";
        }
        if (step == "files") {
            return std::string("active ") + nameOf(kActive) + ", backup " + nameOf(kBackup);
        }
        if (step == "same") return boolean(ReadFile(words[1]) == ReadFile(words[2]));
        if (step == "pre-open") return boolean(mManager.PreOpenDB());
        if (step == "inject") return boolean(mManager.InjectDB());
        if (step == "copy") {
            return boolean(mManager.CopyFile(words[1].c_str(), words[2].c_str()));
        }
        if (step == "open") {
            mManager.OpenDB();
            return "";
        }
        if (step == "close") {
            mManager.CloseDB();
            return "";
        }
        if (step == "version") return std::to_string(mManager.getDBVersion());
        char* answer =
                mManager.LookupTzId(Lat(std::stoi(words.at(1))), Lon(std::stoi(words.at(2))));
        const std::string text = answer;
        EXPECT_EQ('\0', answer[text.size() + 1]);  // Two zero bytes end it.
        std::free(answer);
        return Bars(text);
    };
    CheckTranscript(
            OFFLINETZ_TESTS "/unit/manager.transcript",
            [&](const std::string&) {
                mManager.CloseDB();
                fs::remove(kActive);
                fs::remove(kBackup);
            },
            [&](const std::string& step) {
                const std::string result = run(SplitStep(step));
                Words lines;
                for (const LogLine& line : mLog.Take()) {
                    EXPECT_EQ("OfflinetimezoneInterface", line.tag);
                    lines.push_back(std::to_string(line.priority) + Bars(line.message));
                }
                if (!result.empty()) lines.push_back(result);
                return lines;
            });
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

TEST_F(ManagerTest, AHugeFileIsDamaged) {
    WriteFile(kActive, {});
    fs::resize_file(kActive, uint64_t{1} << 31);  // 2 GiB, all of it a hole.
    const Bytes good = MakeDatabase(3).File();
    WriteFile(kBackup, good);
    EXPECT_TRUE(mManager.PreOpenDB());
    EXPECT_EQ(good, ReadFile(kActive));
}

TEST_F(ManagerTest, DigestsMessages) {
    uint8_t digest[SHA1HashSize];
    EXPECT_EQ(0, mManager.sha1(nullptr, digest, 0));
    EXPECT_EQ(0xda, digest[0]);
    EXPECT_EQ(-1, mManager.sha1(nullptr, digest, 1));
    EXPECT_EQ(mLog.TakeMessages(), Words{"SHA1Input Error 1.\n"});
    EXPECT_EQ(-1, mManager.sha1(digest, nullptr, 1));
    EXPECT_EQ(mLog.TakeMessages(),
              Words{"SHA1Result Error 1, could not compute message digest.\n"});
}

}  // namespace
