// The worker by itself, with its classes linked in.
#include <LookupInterface.h>
#include <Offlinetimezone.h>
#include <WorkerThread.h>
#include <android/log.h>
#include <coordinate_text.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sha1.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <filesystem>
#include <future>
#include <system_error>

#include "log_capture.h"
#include "raw_database.h"
#include "recorder.h"
#include "sample_databases.h"
#include "service_files.h"
#include "temporary_directory.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

using android::sp;
using testing::Contains;
using testing::ElementsAre;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
namespace fs = std::filesystem;

namespace {

std::atomic<int> gFaults{0};

}  // namespace

// The worker's calls of the assertion hook come here.
extern "C" void __wrap_FaultHandler(const char* file, int line);
extern "C" void __wrap_FaultHandler(const char* file, int line) {
    EXPECT_STREQ("hardware/interfaces/offlinetimezone/1.0/default/WorkerThread", file);
    EXPECT_GT(line, 0);
    ++gFaults;
}

namespace {

struct OpenWorker : WorkerThread {
    using WorkerThread::MakeMessage;
    using WorkerThread::Post;
    using WorkerThread::WorkerThread;
};

class WorkerTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directory("offlinetz"); }

    static const MsgData* Lookup(const char* lat, const char* lon) {
        return new MsgData{lat, lon, {}, 0, 0};
    }

    TemporaryDirectory mDirectory;
    LogCapture mLog;
};

TEST_F(WorkerTest, QueuesWithoutAThreadUntilItIsClosed) {
    gFaults = 0;
    OpenWorker worker("OfflinetimezoneThread");
    EXPECT_EQ(65535, worker.getDBVersion());
    EXPECT_EQ(0, worker.getServerStatus());
    worker.ExitThread();  // Without a thread: nothing to do.
    const sp<Recorder> client = new Recorder;
    worker.registerCb(client);
    worker.PostMsg(Lookup("1", "2"));
    worker.PostInitMsg(new MsgData);
    EXPECT_EQ(2u, worker.GetMsgLength());
    EXPECT_EQ(2, gFaults);
    EXPECT_TRUE(worker.CreateThread());
    const pthread_t thread = worker.GetThreadId();
    EXPECT_TRUE(worker.CreateThread());
    EXPECT_TRUE(pthread_equal(thread, worker.GetThreadId()));
    EXPECT_FALSE(pthread_equal(thread, WorkerThread::GetCurrentThreadId()));
    worker.Post(worker.MakeMessage(77, new MsgData));  // No such message.
    worker.Post(worker.MakeMessage(MSG_TIMER, new MsgData));
    worker.ExitThread();
    EXPECT_EQ(3, gFaults);
    EXPECT_THAT(mLog.TakeMessages(), Contains("Timer expired on "));
    EXPECT_EQ(0u, worker.GetMsgLength());
    EXPECT_EQ(3, worker.getServerStatus());  // There was no database to open.

    worker.PostMsg(Lookup("3", "4"));  // Stays in the queue until a thread runs again.
    EXPECT_EQ(1u, worker.GetMsgLength());
    EXPECT_EQ(1u, client->Reports().size());
    EXPECT_TRUE(worker.CreateThread());
    worker.Close();
    const char* const answer = "error:Server is not supportted";
    EXPECT_THAT(client->Reports(),
                ElementsAre(ClientReport{"1", "2", answer}, ClientReport{"3", "4", answer}));
    EXPECT_EQ(1, client->getStrongCount());
    // The library's own class of callbacks takes any report.
    EXPECT_TRUE(sp<OfflinetimezoneCallback>(new OfflinetimezoneCallback)
                        ->timeZoneIdReport("", "", "")
                        .isOk());
    worker.registerCb(client);
    worker.PostMsg(Lookup("5", "6"));
    EXPECT_EQ(nullptr, worker.registeredCb());
    EXPECT_EQ(0u, worker.GetMsgLength());
    EXPECT_EQ(65535, worker.getDBVersion());
    EXPECT_THROW(worker.CreateThread(), std::system_error);
}

TEST_F(WorkerTest, ReadsAndLogsNumbersWithoutTheLocale) {
    // A locale whose decimal point is a comma, made here: few machines have one.
    ASSERT_EQ(0, std::system("localedef -i de_DE -f UTF-8 ./de_DE.UTF-8 >/dev/null 2>&1"));
    setenv("LOCPATH", fs::current_path().c_str(), 1);
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, "de_DE.UTF-8"));
    ASSERT_EQ(1.5f, std::strtof("1,5", nullptr));
    float value;
    EXPECT_TRUE(ParseCoordinate("12,5", &value));
    EXPECT_EQ(12.0f, value);
    EXPECT_TRUE(ParseCoordinate("12.5", &value));
    EXPECT_EQ(12.5f, value);
    __android_log_print(ANDROID_LOG_INFO, "Tag", "Safezone: %f\n", 1.5);
    EXPECT_THAT(mLog.TakeMessages(), ElementsAre("Safezone: 1.500000\n"));
    __android_log_print(ANDROID_LOG_INFO, "Tag", "%s", std::string(300, 'x').c_str());
    platform::DropLog();
    __android_log_print(ANDROID_LOG_INFO, "Tag", "not this one");
    EXPECT_THAT(mLog.TakeMessages(), ElementsAre(std::string(300, 'x')));
    std::setlocale(LC_ALL, "C");
}

// A client holds the worker in its report until it is told to go on.
TEST_F(WorkerTest, CountsWhileItWorksAndDiscardsWhenItEnds) {
    WriteFile(kActive, SampleDatabase("\"Zone/A\"", 5));
    std::promise<void> gate;
    const std::shared_future<void> open = gate.get_future();
    WorkerThread worker("OfflinetimezoneThread");
    const sp<Recorder> client = new Recorder;
    client->onReport = [&] { open.wait(); };
    worker.registerCb(client);
    worker.CreateThread();
    worker.PostInitMsg(new MsgData);
    worker.PostMsg(Lookup("1", "2"));
    ASSERT_TRUE(client->WaitFor(1));
    worker.PostMsg(Lookup("3", "4"));
    EXPECT_EQ(1u, worker.GetMsgLength());  // The one in hand no longer counts.
    // What is posted behind the exit message is discarded.
    std::thread ender([&worker] { worker.ExitThread(); });
    while (worker.GetMsgLength() < 2)
        std::this_thread::yield();
    worker.PostMsg(Lookup("5", "6"));
    gate.set_value();
    ender.join();
    EXPECT_EQ(0u, worker.GetMsgLength());
    worker.CreateThread();
    worker.ExitThread();
    EXPECT_THAT(client->Reports(), ElementsAre(ClientReport{"1", "2", "\"Zone/A\""},
                                               ClientReport{"3", "4", "\"Zone/A\""}));
}

TEST_F(WorkerTest, TheManagerRestoresAndItsDigestTellsOfMisuse) {
    LookupInterface manager;
    close(STDIN_FILENO);  // As for a process without one: a file gets descriptor 0.
    WriteFile(kActive, {});
    fs::resize_file(kActive, uint64_t{1} << 31);  // 2 GiB, all of it a hole.
    WriteFile(kBackup, SampleDatabase("A", 1));
    ASSERT_TRUE(manager.PreOpenDB());
    EXPECT_EQ(ReadFile(kBackup), ReadFile(kActive));
    mLog.Take();
    uint8_t digest[SHA1HashSize];
    EXPECT_EQ(0, manager.sha1(nullptr, digest, 0));
    EXPECT_EQ(0xda, digest[0]);
    EXPECT_EQ(-1, manager.sha1(nullptr, digest, 1));
    EXPECT_EQ(-1, manager.sha1(digest, nullptr, 1));
    EXPECT_THAT(mLog.TakeMessages(),
                ElementsAre("SHA1Input Error 1.\n",
                            "SHA1Result Error 1, could not compute message digest.\n"));
}

// From its report a client may end the process: then the worker is destroyed on its own thread,
// which it cannot wait for. Or its thread alone, and where nothing tells the worker of that, it
// must not wait either.
TEST(WorkerDeathTest, AClientMayEndTheProcessOrTheThreadFromItsReport) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    // The companion thread, which has ended, is not joined any more.
    setenv("TSAN_OPTIONS", "report_thread_leaks=0", 1);
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // What an ended thread held is never released.
    for (const bool endsProcess : {true, false}) {
        // The thread sanitizer waits for every thread to end its own way.
        if (!endsProcess && __has_feature(thread_sanitizer)) continue;
        EXPECT_EXIT(
                {
                    alarm(60);
                    static WorkerThread worker("OfflinetimezoneThread");
                    const sp<Recorder> client = new Recorder;
                    client->onReport = [endsProcess] {
                        if (endsProcess) std::exit(7);
                        syscall(SYS_exit, 0);
                    };
                    worker.registerCb(client);
                    worker.CreateThread();
                    worker.PostMsg(new MsgData);
                    if (endsProcess) std::this_thread::sleep_for(std::chrono::minutes(1));
                    client->WaitFor(1);
                    std::exit(7);
                },
                testing::ExitedWithCode(7), "");
    }
}

}  // namespace
