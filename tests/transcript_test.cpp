// The transcripts whose steps are shell commands: the host program, the service on storage that
// fails, the world database, the service's library file, and the C library as it is installed. The
// outcome of a step is its standard output, its standard error after "! ", and its exit code unless
// that is 0.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "raw_database.h"
#include "temporary_directory.h"
#include "transcript.h"

namespace fs = std::filesystem;

namespace {

void AppendLines(const char* path, const std::string& mark, Words* lines) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        lines->push_back(mark + line);
}

// The steps may use the functions of a steps.sh beside the transcript. `prepare` fills their
// working directory, which is new for each section.
void CheckCommands(const std::string& transcript, void (*prepare)()) {
    const std::string program = OFFLINETZ_PROGRAM;
    const std::string path = program.substr(0, program.rfind('/')) + ":" + std::getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    setenv("WORLD", OFFLINETZ_WORLD_DATABASE, 1);
    setenv("TESTS", OFFLINETZ_TESTS, 1);
    setenv("INPUTS", OFFLINETZ_TESTS "/cli/inputs", 1);
    setenv("BUILD", OFFLINETZ_BUILD, 1);
    setenv("SCRIPTS", OFFLINETZ_TESTS "/../scripts", 1);
    setenv("LIBRARY", OFFLINETZ_LOCAL_LIBRARY, 1);
    setenv("SHIPPED", OFFLINETZ_LIBRARY, 1);
    setenv("SERVICE_SOURCES", OFFLINETZ_SERVICE_SOURCES, 1);
    setenv("HOST_PROCESS", OFFLINETZ_HOST_PROCESS, 1);
    setenv("SERVICE", "offlinetz service --directory offlinetz --library " OFFLINETZ_LOCAL_LIBRARY,
           1);
    const std::string functions =
            fs::path(OFFLINETZ_TESTS "/" + transcript).replace_filename("steps.sh");
    const std::string source = fs::exists(functions) ? ". '" + functions + "'; " : "";
    std::optional<TemporaryDirectory> directory;
    CheckTranscript(
            OFFLINETZ_TESTS "/" + transcript,
            [&] {
                directory.emplace();
                fs::create_directory("work");
                fs::current_path("work");
                prepare();
            },
            [&](const std::string& step) {
                const int status =
                        std::system(("(" + source + step + ") >../out 2>../err").c_str());
                Words lines;
                AppendLines("../out", "", &lines);
                AppendLines("../err", "! ", &lines);
                const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                if (code != 0) lines.push_back("[exit code " + std::to_string(code) + "]");
                return lines;
            });
}

// A database that the reader opens and that has many faults: a record out of range, one that cannot
// be read, two tiles of a zone that overlap, a band without a tile, an empty bounding box, an open
// ring, unused bytes, two zones that overlap, an unsorted table.
Bytes FaultyDatabase() {
    constexpr int32_t kEdge = 1 << 20;
    RawDatabase raw;
    raw.tableType = 1;
    raw.headerStrings = String("TimezoneId") + String("");
    const uint32_t a = raw.AddRecord("\"A\"");
    const uint32_t b = raw.AddRecord("B");
    raw.AddRing(a, {{-9, -9}, {9, -9}, {9, 9}, {-9, 9}}, {{-kEdge, -kEdge}, {99, 99}});
    raw.AddRing(b, {{-5, -5}, {5, -5}, {5, 5}}, {{-kEdge, -kEdge}, {99, 99}});
    raw.AddRing(a, {{0, 0}, {200, 0}, {0, 9}}, {{-kEdge, 0}, {99, kEdge}});
    raw.AddRing(b, {{0, 0}}, {{-100, 5}, {-200, 5}});
    raw.AddRing(1000, {{1, 1}, {2, 2}, {3, 1}}, {{-10, 0}, {10, 10}});
    raw.AddRing(b + 2, {{1, 1}, {2, 2}, {3, 1}}, {{200, -kEdge}, {kEdge, kEdge}});
    raw.AddRing(a, {{1, 1}, {2, 2}, {3, 1}}, {{-300, -kEdge}, {-300, kEdge}});
    raw.metadata = raw.metadata + Unsigned(200);
    raw.polygons = raw.polygons + Bytes(7, 0);
    return raw.File();
}

// One zone of 4,797 entries, which share two rings. 4,097 entries have a small ring: one entry more
// than a lookup collects. 700 have a long one: together more bytes than a lookup reads. If
// `isTooMuch`, a point lies in the bounding boxes of all entries of a ring. Otherwise the first
// boxes lie beside their ring, and the others have two places.
Bytes CrowdedDatabase(bool isTooMuch) {
    RawDatabase raw;
    raw.AddRecord("\"A\"");
    raw.polygons = Unsigned(3) + Signed(0) + Signed(0) + Signed(9) + Signed(0) + Signed(-9) +
                   Signed(9) + Unsigned(1000) + Signed(4000) + Signed(0);
    for (int i = 1; i < 998; ++i)
        raw.polygons = raw.polygons + Signed(1) + Signed(0);
    raw.polygons = raw.polygons + Signed(0) + Signed(5000) + Signed(-997) + Signed(0);
    for (int32_t i = 0; i < 4097; ++i)
        isTooMuch ? raw.AddEntry({{0, 0}, {9 + i, 20}}, 0, 0)
                  : raw.AddEntry({{0, 100}, {9, 109}}, 0, 0);
    for (int32_t i = 0; i < 700; ++i) {
        const int32_t lat = isTooMuch || i < 350 ? 4200 : 4300;
        raw.AddEntry({{lat, 100}, {lat + 9, 109}}, 0, i == 0 ? 7 : 0);
    }
    return raw.File();
}

TEST(Cli, BehavesAsTheTranscriptSays) {
    CheckCommands("cli/cli.transcript", [] {
        fs::create_directory("offlinetz");
        const Bytes good = SampleDatabase("\"Zone/A\"", 1);
        Bytes damaged = SampleDatabase("\"Zone/C\"", 3);
        damaged[9] ^= 1;
        RawDatabase texts;
        texts.headerStrings = String("TimezoneId") + String("\x1b[2J\n");
        for (const char* zone : {"\"error:A\"", "\"x\x1b[2J\xff\""})
            texts.AddRing(texts.AddRecord(zone), {{0, 0}, {100000, 0}, {0, 100000}});
        RawDatabase refused;
        refused.headerStrings = String("TimezoneId") + Unsigned(5000);
        WriteFile("a.bin", good);
        WriteFile("b.bin", SampleDatabase("\"Zone/B\"", 2, 20000));
        WriteFile("damaged.bin", damaged);
        WriteFile("refused.bin", refused.File());
        WriteFile("texts.bin", texts.File());
        WriteFile("junk.bin", WithTrailer(Bytes(40, 'x')));
        WriteFile("faulty.bin", FaultyDatabase());
        WriteFile("crowded.bin", CrowdedDatabase(false));
        WriteFile("overcrowded.bin", CrowdedDatabase(true));
        WriteFile("empty.bin", {});
        WriteFile("header.bin", Bytes(good.begin(), good.begin() + 20));
        WriteFile("short.bin", Bytes(good.begin(), good.end() - 1));
        WriteFile("long.bin", good + Bytes(1, 0));
        WriteFile("huge.bin", {});
        fs::resize_file("huge.bin", uint64_t{1} << 31);
    });
}

TEST(Cli, CompilesAsTheTranscriptSays) {
    CheckCommands("cli/compile.transcript", [] {});
}

void WriteDatabases() {
    fs::create_directory("offlinetz");
    WriteFile("a.bin", SampleDatabase("A", 1, 300000));
    WriteFile("b.bin", SampleDatabase("B", 2, 200000));
    WriteFile("large.bin", SampleDatabase("L", 3, 800000));
    WriteFile("damaged.bin", Bytes(1000, 'x'));
}

TEST(Storage, FailsAsTheTranscriptSays) {
    CheckCommands("storage/storage.transcript", WriteDatabases);
}

TEST(Storage, DisksAreShort) {
    if (std::system("unshare --mount mount -t tmpfs none /mnt 2>/dev/null") != 0)
        GTEST_SKIP() << "nothing can be mounted";
    CheckCommands("storage/disks.transcript", WriteDatabases);
}

TEST(Library, IsAsTheTranscriptSays) {
    CheckCommands("service/library.transcript", [] {});
}

TEST(Examples, BehaveAsTheTranscriptSays) {
    CheckCommands("library/installed.transcript", [] {
        RawDatabase texts;
        texts.headerStrings = String("TimezoneId") + String("");
        texts.AddRing(texts.AddRecord("\"a\"\\\x1f\n\xc3\xa9\""),
                      {{0, 0}, {100000, 0}, {0, 100000}});
        WriteFile("texts.bin", texts.File());
    });
}

TEST(Release, IsAsTheTranscriptSays) {
    CheckCommands("release/release.transcript", [] {});
}

TEST(World, AnswersAsTheTranscriptSays) {
    CheckCommands("world/world.transcript", [] {});
}

}  // namespace
