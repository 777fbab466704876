// Storage as it fails for real: processes that are killed, disks that are full or read-only, other
// things in the place of the files, files that are cut short, and short resources. Whatever the
// service makes of it, after the next start the old or the new database is there, whole.
#include <WorkerThread.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>

#include "log_capture.h"
#include "raw_database.h"
#include "recorder.h"
#include "sample_databases.h"
#include "service_files.h"
#include "temporary_directory.h"

using android::sp;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
namespace fs = std::filesystem;

namespace {

void Limit(decltype(RLIMIT_AS) resource, rlim_t most) {
    rlimit limit;
    getrlimit(resource, &limit);
    limit.rlim_cur = most;
    setrlimit(resource, &limit);
}

// Does the steps as a process of its own would, and prints the status and the last answer.
class Victim {
  public:
    Victim() { Restart(); }

    void Do(const std::string& step) {
        const std::string argument = step.substr(step.find('=') + 1);
        if (step == "start") {
            mWorker->PostInitMsg(new MsgData);
        } else if (step == "ask") {
            mWorker->PostMsg(new MsgData{"1", "2", {}, 0, 0});
        } else if (step == "inject") {
            mWorker->PostInjectMsg(new MsgData);
        } else if (step == "cut") {
            fs::resize_file(kActive, 0);
        } else if (step == "lose") {
            fs::remove(kActive);
        } else if (step == "restart") {
            Restart();
        } else if (step.rfind("send", 0) == 0) {
            Bytes& file = mFiles[argument];
            if (file.empty()) file = ReadFile(argument);
            const auto size = static_cast<uint32_t>(file.size());
            mWorker->PostDownloadMsg(new MsgData{"", "", file, DOWNLOAD_START, 0});
            mWorker->PostDownloadMsg(new MsgData{"", "", {}, DOWNLOAD_END, size});
        } else if (step.rfind("descriptors", 0) == 0) {
            Limit(RLIMIT_NOFILE, 3 + std::stoul(argument));
        } else if (step.rfind("memory", 0) == 0) {
            std::ifstream statm("/proc/self/statm");
            rlim_t pages = 0;
            statm >> pages;
            Limit(RLIMIT_AS, pages * 4096 + std::stoul(argument) * 1024);
        } else if (step.rfind("file-size", 0) == 0) {
            Limit(RLIMIT_FSIZE, std::stoul(argument));
        }
        mWorker->CreateThread();
        mWorker->ExitThread();
    }

    std::string Result() {
        const auto reports = mClient->Reports();
        return std::to_string(mWorker->getServerStatus()) +
               (reports.empty() ? "" : " " + reports.back().tzId);
    }

  private:
    void Restart() {
        mWorker = std::make_unique<WorkerThread>("OfflinetimezoneThread");
        mWorker->registerCb(mClient);
    }

    const sp<Recorder> mClient = new Recorder;
    std::unique_ptr<WorkerThread> mWorker;
    std::map<std::string, Bytes> mFiles;  // Those sent before.
};

// What a victim says in the end, or the signal that ended it.
std::string RunVictim(const std::string& steps, const std::string& runner = "") {
    const std::string self = "/proc/" + std::to_string(getpid()) + "/exe";
    FILE* output = popen(("exec " + runner + " " + self + " --victim " + steps).c_str(), "re");
    char line[200] = "";
    while (std::fgets(line, sizeof line, output) != nullptr)
        continue;
    const int status = pclose(output);
    if (WIFSIGNALED(status)) return strsignal(WTERMSIG(status));
    return std::string(line, std::strcspn(line, "\n"));
}

// What lies in the place of the two files, what a process that takes the steps ends with (its
// status and last answer), and what the next one finds when the storage is in order again.
struct Case {
    const char* active;  // A file, or what Put knows.
    const char* backup;
    const char* steps;
    const char* result;
    const char* next;
};
const char kFailed[] = "3 error:Server is not supportted";
const char kInstallation[] = "start ask send=b ask inject ask";

class StorageTest : public testing::Test {
  protected:
    void SetUp() override {
        fs::create_directory("offlinetz");
        WriteFile("a", SampleDatabase("A", 1, 300000));
        WriteFile("b", SampleDatabase("B", 1, 200000));
        WriteFile("damaged", Bytes(1000, 'x'));
    }

    // A copy of the file, or a directory, a pipe, a link to what stands behind "->", or another
    // name of the other file; nothing for nothing.
    static void Put(const std::string& path, const std::string& thing) {
        fs::remove_all(path);
        if (thing == "directory") {
            fs::create_directory(path);
        } else if (thing == "pipe") {
            ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
        } else if (thing == "=") {
            fs::create_hard_link(kActive, path);
        } else if (thing.rfind("-> ", 0) == 0) {
            fs::create_symlink(fs::absolute(thing.substr(3)), path);
        } else if (!thing.empty()) {
            fs::copy_file(thing, path);
        }
    }

    static void PutFiles(const std::string& active, const std::string& backup) {
        Put(kActive, active);
        Put(kBackup, backup);
    }

    // What the next start finds.
    static std::string NextStart() {
        const std::string result = RunVictim("start ask");
        for (const auto& [answer, file] : {std::pair("1 A", "a"), {"1 B", "b"}}) {
            if (result == answer) {
                EXPECT_EQ(ReadFile(file), ReadFile(kActive));
            }
        }
        return result;
    }

    static void Check(
            const Case& c, const std::function<void()>& prepare = [] {},
            const std::function<void()>& mend = [] {}) {
        SCOPED_TRACE(std::string(c.active) + ", " + c.backup + ", " + c.steps);
        PutFiles(c.active, c.backup);
        prepare();
        EXPECT_EQ(c.result, RunVictim(c.steps));
        mend();
        for (const char* path : {kActive, kBackup}) {
            if (!fs::is_regular_file(fs::symlink_status(path))) fs::remove(path);
        }
        EXPECT_EQ(c.next, NextStart());
    }

    TemporaryDirectory mDirectory;
};

TEST_F(StorageTest, AKilledProcessLeavesTheOldOrTheNewDatabase) {
    const char* const times = std::getenv("KILLS");
    const int count = times != nullptr ? std::stoi(times) : 60;
    const char* const given = std::getenv("KILL_SEED");
    const unsigned seed =
            given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
    std::printf("KILLS=%d KILL_SEED=%u\n", count, seed);
    std::mt19937 random(seed);
    const Bytes a = ReadFile("a");
    const Bytes b = ReadFile("b");
    PutFiles("a", "a");
    const std::string steps = "send=b inject lose restart start send=a inject";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ("1", RunVictim(steps));
    // The moments lie in what two rounds take.
    std::uniform_real_distribution<double> moment(
            0.001,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() * 2);
    int torn = 0;
    for (int i = 0; i < count; ++i) {
        RunVictim("start forever " + steps, "timeout -s KILL " + std::to_string(moment(random)));
        for (const char* path : {kActive, kBackup}) {
            const Bytes file = fs::exists(path) ? ReadFile(path) : Bytes();
            if (file != a && file != b) ++torn;
        }
        const std::string found = NextStart();
        ASSERT_TRUE(found == "1 A" || found == "1 B") << found << " after kill " << i;
    }
    std::printf("%d files were torn\n", torn);
    EXPECT_TRUE(torn > 0 || count < 300);
}

TEST_F(StorageTest, OtherThingsInThePlaceOfFiles) {
    const Case cases[] = {
            {"directory", "a", kInstallation, kFailed, "1 B"},
            {"pipe", "a", kInstallation, kFailed, "1 B"},
            {"-> elsewhere", "a", kInstallation, "1 B", "1 B"},
            {"-> " ACTIVE, "a", kInstallation, kFailed, "1 B"},
            {"-> /dev/null", "a", kInstallation, kFailed, "1 B"},
            {"-> /dev/zero", "a", kInstallation, kFailed, "1 B"},
            {"-> /dev/full", "a", kInstallation, kFailed, "1 B"},
            {"-> " BACKUP, "a", kInstallation, kFailed, "1 A"},
            {"a", "directory", kInstallation, kFailed, "1 A"},
            {"a", "pipe", kInstallation, kFailed, "1 A"},
            {"a", "-> nowhere", kInstallation, "1 B", "1 B"},
            {"a", "-> " BACKUP, kInstallation, kFailed, "1 A"},
            {"a", "-> /dev/null", kInstallation, kFailed, "1 A"},
            {"a", "-> /dev/zero", kInstallation, kFailed, "1 A"},
            {"a", "-> /dev/full", kInstallation, kFailed, "1 A"},
            {"a", "-> " ACTIVE, kInstallation, kFailed, "1 A"},
            {"a", "=", kInstallation, kFailed, "1 A"},
            // A mapping ends where its file does. Who cuts the file kills who reads on.
            {"a", "a", "start ask cut ask", "Bus error", "1 A"},
            // The same limit, to a process that lives with the signal, is a full disk.
            {"a", "a", "start file-size=150000 send=b inject ask", "File size limit exceeded",
             "1 A"},
    };
    for (const Case& c : cases)
        Check(c);
}

// Not under sanitizers, which have needs of their own.
#ifdef OFFLINETZ_LIMITS
TEST_F(StorageTest, ShortResources) {
    for (const std::string limit : {"descriptors=0", "descriptors=1", "descriptors=2", "memory=0",
                                    "memory=100", "memory=200", "memory=300"}) {
        PutFiles("a", "a");
        // The first step makes the threads' stacks, which are kept.
        const std::string result = RunVictim("ask " + limit + " " + kInstallation);
        EXPECT_TRUE(result == kFailed || result == "1 B") << limit << ": " << result;
        const std::string next = NextStart();
        EXPECT_TRUE(next == "1 A" || next == "1 B") << limit << ": " << next;
    }
}
#endif

TEST_F(StorageTest, FullAndReadOnlyDisks) {
    // In a name space of this thread's own, so that nothing stays mounted.
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "offlinetz", "tmpfs", 0, "size=1m") != 0) {
        GTEST_SKIP() << "cannot mount a file system: " << std::strerror(errno);
    }
    WriteFile("large", SampleDatabase("L", 1, 800000));
    struct DiskCase {
        int freeKilobytes;  // Below 0: read-only.
        Case c;
    };
    const DiskCase cases[] = {
            {100, {"a", "a", "start send=large ask", "1 A", "1 A"}},
            {100, {"", "a", "start ask", kFailed, "1 A"}},
            {100, {"damaged", "a", "start ask", kFailed, "1 A"}},
            {300, {"", "", "send=b inject ask", kFailed, "1 B"}},
            // What does not fit into the backup is installed all the same.
            {100, {"a", "a", "start send=large inject ask", kFailed, kFailed}},
            {-1, {"a", "a", "start send=b inject ask", kFailed, "1 A"}},
            {-1, {"damaged", "a", "start ask", kFailed, "1 A"}},
    };
    for (const DiskCase& d : cases) {
        const auto remount = [](unsigned long flag) {
            EXPECT_EQ(0, mount("none", "offlinetz", nullptr, MS_REMOUNT | flag, nullptr));
        };
        const auto fill = [&] {
            if (d.freeKilobytes < 0) return remount(MS_RDONLY);
            const auto left = static_cast<uintmax_t>(d.freeKilobytes) * 1024;
            WriteFile("offlinetz/filler", Bytes(fs::space("offlinetz").available - left));
        };
        Check(d.c, fill, [&] {
            remount(0);
            fs::remove("offlinetz/filler");
        });
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--victim") == 0) {
        alarm(60);  // A hang ends it.
        const LogCapture log;
        Victim victim;
        int first = 0;  // Of the steps that are done for ever, until it is killed.
        for (int i = 2; i < argc; ++i) {
            if (std::strcmp(argv[i], "forever") == 0) first = i;
            try {
                victim.Do(argv[i]);
            } catch (const std::exception&) {
                // No memory for the request, as its client is told.
            }
            if (first > 0 && i + 1 == argc) i = first;
        }
        std::printf("%s\n", victim.Result().c_str());
        return 0;
    }
    // Sanitizers must let the victims end as they would.
    setenv("ASAN_OPTIONS", "handle_sigbus=0", 1);
    setenv("TSAN_OPTIONS", "handle_sigbus=0", 1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
