// What happens when memory runs out or a disk is full: the n-th allocation of an operation
// fails, for every n, and nothing crashes or leaks.
#include <WorkerThread.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <set>
#include <thread>

#include "log_capture.h"
#include "raw_database.h"
#include "recorder.h"
#include "sample_databases.h"
#include "temporary_directory.h"

using android::sp;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;

namespace {

std::atomic<int> gAllocationToFail{-1};  // Counts down; the one at 0 fails.
std::atomic<bool> gAllFail{false};
std::atomic<int> gNewToFail{-1};            // Counts down in operator new, likewise.
std::atomic<size_t> gLargestNew{SIZE_MAX};  // Larger ones fail in operator new.
std::atomic<int> gSynchronised{0};          // Files that reached the medium.

bool MayAllocate() {
    return !gAllFail && gAllocationToFail-- != 0;
}

}  // namespace

// The C allocator as the reader and the manager call it (the linker sends their calls here).
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* memory, size_t size);
int __real_fsync(int fd);
int __wrap_fsync(int fd);

int __wrap_fsync(int fd) {
    const int result = __real_fsync(fd);
    if (result == 0) ++gSynchronised;
    return result;
}

void* __wrap_malloc(size_t size) {
    return MayAllocate() ? __real_malloc(size) : nullptr;
}
void* __wrap_calloc(size_t count, size_t size) {
    return MayAllocate() ? __real_calloc(count, size) : nullptr;
}
void* __wrap_realloc(void* memory, size_t size) {
    return MayAllocate() ? __real_realloc(memory, size) : nullptr;
}
}

// Not inlined, so that the compiler does not see malloc's memory behind new.
__attribute__((noinline)) void* operator new(size_t size) {
    const bool mayAllocate = size <= gLargestNew && gNewToFail-- != 0;
    void* memory = mayAllocate ? __real_malloc(size) : nullptr;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
__attribute__((noinline)) void* operator new(size_t size, const std::nothrow_t&) noexcept {
    const bool mayAllocate = size <= gLargestNew && gNewToFail-- != 0;
    return mayAllocate ? __real_malloc(size) : nullptr;
}
__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}
__attribute__((noinline)) void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace {

class MemoryTest : public testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directory("offlinetz"); }
    void TearDown() override {
        gAllocationToFail = -1;
        gAllFail = false;
        gNewToFail = -1;
        gLargestNew = SIZE_MAX;
    }

    TemporaryDirectory mDirectory;
    LogCapture mLog;
};

TEST_F(MemoryTest, OpeningFailsCleanly) {
    WriteFile("db", SampleDatabase("\"Zone/A\"", 5));
    // The handle, the array of names and the notice are needed; a name may be missing.
    const bool opens[] = {false, false, true, false, true};
    for (int failing = 0; failing < 5; ++failing) {
        gAllocationToFail = failing;
        ZDDatabase* database = ZDOpenDatabase("db");
        gAllocationToFail = -1;
        ASSERT_EQ(opens[failing], database != nullptr) << failing;
        if (database != nullptr) {
            EXPECT_EQ(failing == 2, database->fieldNames[0] == nullptr);
        }
        ZDCloseDatabase(database);
    }
}

// More hits than fit without memory: the list is whole, cut short, or missing.
TEST_F(MemoryTest, LookupsAnswerRightOrNotAtAll) {
    RawDatabase raw;
    raw.metadata = Bytes(40, 0);
    for (uint32_t zone = 0; zone < 40; ++zone)
        raw.AddRing(zone, {{-90, -90}, {90, -90}, {90, 90}, {-90, 90}});
    const DatabasePtr database = OpenBytes(raw.File());
    ASSERT_NE(nullptr, database);
    std::set<int> counts;
    for (int limit = 0; limit < 8; ++limit) {
        float safezone = -7.0f;
        gAllocationToFail = limit;
        ZDResult* results = ZDLookup(database.get(), 0, 0, &safezone);
        gAllocationToFail = -1;
        int count = 0;
        while (results != nullptr && results[count].result != ZDLookupEnd)
            ++count;
        counts.insert(results != nullptr ? count : -1);
        EXPECT_EQ(results == nullptr, safezone == -7.0f);
        ZDFreeResults(results);
    }
    EXPECT_EQ((std::set<int>{-1, 16, 32, 40}), counts);
}

TEST_F(MemoryTest, TheClientIsToldWhenNoAnswerCanBeMade) {
    WriteFile("db", SampleDatabase("\"Zone/A\"", 5));
    ZDDatabase* database = ZDOpenDatabase("db");
    std::set<std::string> answers;
    for (int limit = 0; limit < 12; ++limit) {
        float safezone;
        gAllocationToFail = limit;
        char* answer = LookupTzIdIn(database, 1, 2, &safezone);
        gAllocationToFail = -1;
        answers.insert(answer != nullptr ? answer : "(null)");
        std::free(answer);
    }
    // Without a list, without an answer, and whole; without a directory too.
    EXPECT_EQ((std::set<std::string>{"error:malloc failed", "(null)", "\"Zone/A\""}), answers);
    ZDCloseDatabase(database);

    WriteFile("offlinetz/lastcombinedTimezone.bin", SampleDatabase("\"Zone/A\"", 5));
    WorkerThread worker("OfflinetimezoneThread");
    const sp<Recorder> client = new Recorder;
    worker.registerCb(client);
    worker.CreateThread();
    worker.PostInitMsg(new MsgData);
    auto* data = new MsgData;
    data->lat = "1";
    data->lon = "2";
    const auto* again = new MsgData(*data);
    while (worker.getServerStatus() != SERVER_STATUS_RUNNING)
        std::this_thread::yield();
    gAllFail = true;
    worker.PostMsg(data);
    ASSERT_TRUE(client->WaitFor(1));
    gAllFail = false;
    worker.PostMsg(again);
    ASSERT_TRUE(client->WaitFor(2));
    EXPECT_EQ("error:malloc failed", client->Reports()[0].tzId);
    EXPECT_EQ("\"Zone/A\"", client->Reports()[1].tzId);
}

// On whichever thread memory runs out, from the start of the worker to a report: nothing ends, and
// the next request is answered.
TEST_F(MemoryTest, AnyAllocationOfTheWorkerMayFail) {
    WriteFile("offlinetz/lastcombinedTimezone.bin", SampleDatabase("\"Zone/A\"", 5));
    int failing = 0;
    for (bool failed = true; failed; ++failing) {
        WorkerThread worker("OfflinetimezoneThread");
        const sp<Recorder> client = new Recorder;
        worker.registerCb(client);
        const auto ask = [&worker] {
            worker.CreateThread();
            worker.PostInitMsg(new MsgData);
            worker.PostMsg(new MsgData{"1", "2", {}, 0, 0});
        };
        gNewToFail = failing;  // The directory's allocations are among them.
        try {
            ask();
        } catch (const std::bad_alloc&) {
        }
        worker.ExitThread();
        failed = gNewToFail < 0;
        gNewToFail = -1;
        ask();
        worker.ExitThread();
        ASSERT_FALSE(client->Reports().empty()) << failing;
        EXPECT_EQ((ClientReport{"1", "2", "\"Zone/A\""}), client->Reports().back()) << failing;
    }
    EXPECT_GT(failing, 10);
}

// A chunk that cannot be joined is a lost chunk: the length at the end does not match.
TEST_F(MemoryTest, AChunkThatCannotBeJoinedFailsTheDownload) {
    WorkerThread worker("OfflinetimezoneThread");
    const auto chunk = [](size_t size, uint32_t status, uint32_t totalSize) {
        auto* data = new MsgData;
        data->data = Bytes(size, 'x');
        data->status = status;
        data->totalSize = totalSize;
        return data;
    };
    worker.PostDownloadMsg(chunk(1000, DOWNLOAD_START, 0));
    worker.PostDownloadMsg(chunk(200000, DOWNLOAD_CONTINUE, 0));
    worker.PostDownloadMsg(chunk(1000, DOWNLOAD_CONTINUE, 0));
    worker.PostDownloadMsg(chunk(0, DOWNLOAD_END, 202000));
    gLargestNew = 100000;
    worker.CreateThread();
    worker.ExitThread();
    gLargestNew = SIZE_MAX;
    const std::vector<std::string> lines = mLog.TakeMessages();
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "download DB data lost"));
    EXPECT_FALSE(std::filesystem::exists("offlinetz/lastcombinedTimezonebackup.bin"));
}

// The backup, its directory and the copy of it are on the medium when the installation is done.
TEST_F(MemoryTest, AnInstallationReachesTheMedium) {
    WorkerThread worker("OfflinetimezoneThread");
    worker.CreateThread();
    gSynchronised = 0;
    worker.PostDownloadMsg(new MsgData{"", "", SampleDatabase("\"Zone/B\"", 6), DOWNLOAD_START, 0});
    worker.PostDownloadMsg(new MsgData{"", "", {}, DOWNLOAD_END, 82});
    worker.PostInjectMsg(new MsgData);
    worker.ExitThread();
    EXPECT_EQ(SERVER_STATUS_RUNNING, worker.getServerStatus());
    EXPECT_EQ(3, gSynchronised);
}

TEST_F(MemoryTest, AFullDiskShowsInTheLogAndInTheVerification) {
    WriteFile("offlinetz/lastcombinedTimezone.bin", SampleDatabase("\"Zone/A\"", 5));
    WorkerThread worker("OfflinetimezoneThread");
    worker.CreateThread();
    const Bytes file = SampleDatabase("\"Zone/B\"", 6);
    auto* data = new MsgData;
    data->data = file;
    data->status = DOWNLOAD_START;
    auto* end = new MsgData;
    end->status = DOWNLOAD_END;
    end->totalSize = static_cast<uint32_t>(file.size());
    // A limit on the size of files, in the midst of this one, stands in for the disk.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited;
    getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit full = {file.size() / 2, unlimited.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    worker.PostDownloadMsg(data);
    worker.PostDownloadMsg(end);
    worker.PostInjectMsg(new MsgData);
    worker.ExitThread();
    setrlimit(RLIMIT_FSIZE, &unlimited);
    const std::vector<std::string> lines = mLog.TakeMessages();
    EXPECT_NE(lines.end(),
              std::find(lines.begin(), lines.end(), "after  write it to backup File too large"));
    EXPECT_EQ(SERVER_STATUS_FAILED, worker.getServerStatus());
    EXPECT_EQ(65535, worker.getDBVersion());
}

}  // namespace
