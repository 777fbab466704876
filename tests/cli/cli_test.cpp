// The host program as users run it: standard output, standard error and exit code, whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "raw_database.h"
#include "sample_databases.h"
#include "temporary_directory.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Outcome {
    int exitCode;
    std::string output;
    std::string errors;
};

std::string Slurp(const char* path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

Outcome RunProgram(const std::string& arguments, const std::string& input = "") {
    WriteFile("stdin", Bytes(input.begin(), input.end()));
    const std::string command =
            std::string(OFFLINETZ_PROGRAM) + " " + arguments + " <stdin >stdout 2>stderr";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp("stdout"), Slurp("stderr")};
}

class CliTest : public testing::Test {
  protected:
    TemporaryDirectory mDirectory;
    const std::string mWorld = std::string("--db ") + OFFLINETZ_WORLD_DATABASE + " ";
};

TEST_F(CliTest, LooksPointsUp) {
    const struct {
        const char* arguments;
        const char* input;
        int exitCode;
        const char* output;
        const char* errors;
    } cases[] = {
            {"48.8566 2.3522", "", 0, "Europe/Paris\n", ""},
            {"-- -33.8688 151.2093", "", 0, "Australia/Sydney\n", ""},
            {"-33.8688 151.2093", "", 0, "Australia/Sydney\n", ""},
            {"--raw 43.8256 87.6168", "", 0, "\"Asia/Shanghai\"\"Asia/Urumqi\"\n", ""},
            {"43.8256 87.6168", "", 0, "Asia/Shanghai Asia/Urumqi\n", ""},
            {"--raw 30 -40", "", 0, "\"Etc/GMT+3\"\n", ""},
            {"--json 43.8256 87.6168", "", 0,
             "{\"lat\":43.8256,\"lon\":87.6168,\"zones\":[\"Asia/Shanghai\",\"Asia/Urumqi\"]}\n",
             ""},
            {"", "48.8566 2.3522\n\n -33.8688,+151.2093\r\n30;-40\n", 0,
             "48.8566 2.3522\tEurope/Paris\n-33.8688 +151.2093\tAustralia/Sydney\n"
             "30 -40\tEtc/GMT+3\n",
             ""},
            {"--json --raw", "48.8566, 2.3522\n", 0,
             "{\"lat\":48.8566,\"lon\":2.3522,\"zones\":[\"Europe/Paris\"],"
             "\"raw\":\"\\\"Europe/Paris\\\"\"}\n",
             ""},
            {"", "lat,lon\n1 2 3\n91 0\n7\n30 -40\n", 1, "30 -40\tEtc/GMT+3\n",
             "offlinetz: line 1: latitude 'lat' is not a decimal number\n"
             "offlinetz: line 2: longitude '2 3' is not a decimal number\n"
             "offlinetz: line 3: latitude 91 lies outside -90 to 90\n"
             "offlinetz: line 4: expected a latitude and a longitude\n"},
            {"90.5 0", "", 2, "", "offlinetz: latitude 90.5 lies outside -90 to 90\n"},
            {"0 -180.01", "", 2, "", "offlinetz: longitude -180.01 lies outside -180 to 180\n"},
            {"12north 0", "", 2, "", "offlinetz: latitude '12north' is not a decimal number\n"},
            {"nan 0", "", 2, "", "offlinetz: latitude nan lies outside -90 to 90\n"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = RunProgram("lookup " + mWorld + c.arguments, c.input);
        EXPECT_EQ(c.exitCode, outcome.exitCode) << c.arguments;
        EXPECT_EQ(c.output, outcome.output) << c.arguments;
        EXPECT_EQ(c.errors, outcome.errors) << c.arguments;
    }
}

TEST_F(CliTest, TellsTheDistanceAndTheLogOnRequest) {
    const Outcome near = RunProgram("lookup " + mWorld + "--distance 48.8566 2.3522");
    EXPECT_THAT(near.output, StartsWith("Europe/Paris\tborder at least "));
    EXPECT_EQ("Etc/GMT+9\tno border near\n",
              RunProgram("lookup " + mWorld + "--distance -- 40 -135").output);
    EXPECT_THAT(RunProgram("lookup " + mWorld + "--json --distance -- 40 -135").output,
                HasSubstr("\"border_km\":null"));
    EXPECT_THAT(
            RunProgram("lookup " + mWorld + "--verbose 48.8566 2.3522").errors,
            StartsWith("I OfflinetimezoneInterface: input lat : 48.856602, long : 2.352200 \n"));
}

TEST_F(CliTest, ExplainsWhatItCannotDo) {
    WriteFile("text.bin", WithTrailer(Bytes(100, 'x')));
    RawDatabase raw;
    Bytes damaged = raw.File();
    WriteFile("good.bin", damaged);
    damaged[3] ^= 1;
    WriteFile("damaged.bin", damaged);
    const struct {
        const char* arguments;
        int exitCode;
        const char* output;
        const char* errors;
    } cases[] = {
            {"lookup --db nowhere.bin 1 2", 1, "",
             "offlinetz: nowhere.bin: No such file or directory\n"},
            {"lookup --db text.bin 1 2", 1, "", "offlinetz: text.bin: is not a zone database\n"},
            {"verify nowhere.bin", 1, "", "offlinetz: nowhere.bin: No such file or directory\n"},
            {"verify damaged.bin", 1,
             "damaged.bin: damaged: the digest at its end does not match its content\n", ""},
            {"verify text.bin", 1,
             "text.bin: unusable: the digest matches, but the content is not a zone database\n",
             ""},
            {"verify good.bin", 0,
             "good.bin: good\nversion    7\ntable type 0\nprecision  21\ncontent    28 bytes\n"
             "notice     notice\n",
             ""},
    };
    for (const auto& c : cases) {
        const Outcome outcome = RunProgram(c.arguments);
        EXPECT_EQ(c.exitCode, outcome.exitCode) << c.arguments;
        EXPECT_EQ(c.output, outcome.output) << c.arguments;
        EXPECT_EQ(c.errors, outcome.errors) << c.arguments;
    }
    for (const char* usage : {"", "lookup 1", "lookup 1 2 3", "lookup --no-such", "frobnicate",
                              "compile", "compile x", "compile x -o y --precision 99"}) {
        const Outcome outcome = RunProgram(usage);
        EXPECT_EQ(2, outcome.exitCode) << usage;
        EXPECT_EQ("", outcome.output) << usage;
        EXPECT_NE("", outcome.errors) << usage;
    }
    EXPECT_EQ(0, RunProgram("--help").exitCode);
}

// An update told in plain words, with an exit code for scripts.
TEST_F(CliTest, UsesTheServiceAsAClient) {
    const std::string service = "service --library " OFFLINETZ_LOCAL_LIBRARY " ";
    std::filesystem::create_directory("offlinetz");
    WriteFile("a.bin", SampleDatabase("\"Zone/A\"", 1));
    WriteFile("b.bin", SampleDatabase("\"Zone/B\"", 2, 20000));
    Bytes damaged = SampleDatabase("\"Zone/C\"", 3);
    damaged[9] ^= 1;
    WriteFile("c.bin", damaged);
    WriteFile("junk.bin", WithTrailer(Bytes(40, 'x')));
    const struct {
        const char* arguments;
        const char* input;
        int exitCode;
        const char* output;
    } steps[] = {
            {"status", "", 1, "failed: no usable database\n"},
            {"lookup 1 2", "", 0, "error:Server is not supportted\n"},
            {"update a.bin", "", 0, "installed version 1 (before: no database)\n"},
            {"status", "", 0, "running, version 1\n"},
            {"lookup 1 2", "", 0, "\"Zone/A\"\n"},
            {"lookup", "1 2\n-1,-2\n", 0, "1 2\t\"Zone/A\"\n-1 -2\t\"Etc/GMT\"\n"},
            {"update --chunk-size 1 b.bin", "", 0, "installed version 2 (before: version 1)\n"},
            {"update c.bin", "", 1,
             "refused: c.bin is damaged: the digest at its end does not match its content; still "
             "on version 2\n"},
            {"update junk.bin", "", 1,
             "refused: junk.bin is unusable: the digest matches, but the content is not a zone "
             "database; still on version 2\n"},
            {"update --chunk-size 4093 b.bin", "", 0, "installed version 2 (before: version 2)\n"},
            {"update --force junk.bin", "", 3,
             "nothing usable left: the service could not install junk.bin and has no other "
             "database\n"},
            {"update --force c.bin", "", 3,
             "nothing usable left: the service could not install c.bin and has no other "
             "database\n"},
            {"status", "", 1, "failed: no usable database\n"},
            {"update a.bin", "", 0, "installed version 1 (before: no database)\n"},
    };
    for (const auto& step : steps) {
        const Outcome outcome = RunProgram(service + step.arguments, step.input);
        EXPECT_EQ(step.exitCode, outcome.exitCode) << step.arguments;
        EXPECT_EQ(step.output, outcome.output) << step.arguments;
        EXPECT_EQ("", outcome.errors) << step.arguments;
    }
    EXPECT_THAT(RunProgram(service + "--verbose lookup 1 2").errors,
                HasSubstr("\nI OfflinetimezoneThread: start to call back from hidl\n"));
    EXPECT_EQ(1, RunProgram("service --library ./none.so status").exitCode);
    EXPECT_EQ(1, RunProgram("service --library libm.so.6 status").exitCode);
    EXPECT_EQ(1, RunProgram(service + "update none.bin").exitCode);
    EXPECT_EQ(2, RunProgram(service + "update --chunk-size 0 a.bin").exitCode);
    EXPECT_EQ(2, RunProgram(service + "lookup 91 0").exitCode);
}

TEST_F(CliTest, CompilesAFileToADatabase) {
    const std::string json =
            R"({"type":"FeatureCollection","features":[{"type":"Feature","properties":{"tzid":"A/B"},)"
            R"("geometry":{"type":"Polygon","coordinates":[[[1,1],[1,2],[2,2],[2,1],[1,1]]]}}]})";
    WriteFile("in.geojson", Bytes(json.begin(), json.end()));
    const Outcome compiled = RunProgram(
            "compile in.geojson -o out.bin --data-version 9 --notice Here --self-check 500");
    EXPECT_EQ(0, compiled.exitCode);
    EXPECT_EQ("", compiled.errors);
    EXPECT_THAT(compiled.output, HasSubstr("zones         1 from 1 features"));
    EXPECT_THAT(compiled.output, HasSubstr("0 further than allowed"));
    EXPECT_THAT(RunProgram("verify out.bin").output, HasSubstr("version    9\n"));
    EXPECT_EQ("A/B\n", RunProgram("lookup --db out.bin 1.5 1.5").output);

    const Outcome refused = RunProgram("compile stdin -o out.bin", "{");
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_THAT(refused.errors, StartsWith("offlinetz: stdin: is not JSON"));
    EXPECT_EQ("A/B\n", RunProgram("lookup --db out.bin 1.5 1.5").output);
    EXPECT_EQ(1, RunProgram("compile in.geojson -o no/where.bin").exitCode);
}

}  // namespace
