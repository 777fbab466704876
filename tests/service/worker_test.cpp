// The worker and the database manager by themselves, with their classes linked in.
#include <LookupInterface.h>
#include <Offlinetimezone.h>
#include <WorkerThread.h>
#include <android/log.h>
#include <coordinate_text.h>
#include <fcntl.h>
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
#include "service_steps.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

using testing::Contains;
using testing::ElementsAre;
using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
namespace fs = std::filesystem;

namespace {

std::atomic<int> gFaults{0};

}  // namespace

// Replaces the assertion hook for the worker.
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
    static const MsgData* Lookup(const char* lat, const char* lon) {
        return new MsgData{lat, lon, {}, 0, 0};
    }

    ServiceDirectory mDirectory;
    LogCapture mLog;
};

TEST_F(WorkerTest, QueuesWithoutAThreadUntilItIsClosed) {
    gFaults = 0;
    OpenWorker worker("OfflinetimezoneThread");
    EXPECT_EQ(65535, worker.getDBVersion());
    EXPECT_EQ(0, worker.getServerStatus());
    worker.ExitThread();  // Does nothing without a thread.
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

    worker.PostMsg(Lookup("3", "4"));  // Waits in the queue until there is a thread again.
    EXPECT_EQ(1u, worker.GetMsgLength());
    EXPECT_EQ(1u, client->Reports().size());
    EXPECT_TRUE(worker.CreateThread());
    worker.Close();
    const char* const answer = "error:Server is not supportted";
    EXPECT_THAT(client->Reports(),
                ElementsAre(ClientReport{"1", "2", answer}, ClientReport{"3", "4", answer}));
    EXPECT_EQ(1, client->getStrongCount());
    // The library's own callback class accepts any report.
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
    // A locale with a decimal comma. Few machines have one, so it is made here.
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

// A client keeps the worker in a report until the test lets it go on.
TEST_F(WorkerTest, CountsWaitingMessagesAndDiscardsThoseAfterTheExit) {
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
    EXPECT_EQ(1u, worker.GetMsgLength());  // The one that is being handled does not count.
    // Messages after the exit message are discarded.
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

TEST_F(WorkerTest, TheManagerReplacesAHugeFileAndReportsMisuseOfTheDigest) {
    LookupInterface manager;
    close(STDIN_FILENO);  // The next file that is opened gets descriptor 0.
    WriteFile(kActive, {});
    fs::resize_file(kActive, uint64_t{1} << 31);  // 2 GiB, without a block on the disk.
    WriteFile(kBackup, SampleDatabase("A", 1));
    ASSERT_TRUE(manager.PreOpenDB());
    EXPECT_EQ(ReadFile(kBackup), ReadFile(kActive));
    EXPECT_EQ(STDIN_FILENO, open("/dev/null", O_RDONLY));  // It is free again.
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

// A client may end the process from its report. The worker is then destroyed on its own thread,
// which it cannot join. A client may also end the thread by a system call, of which the worker does
// not learn: the end of the process must not wait for that thread either.
TEST(WorkerDeathTest, AClientMayEndTheProcessOrTheThreadFromItsReport) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    // The timer thread has ended but is never joined.
    setenv("TSAN_OPTIONS", "report_thread_leaks=0", 1);
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // The ended thread releases nothing.
    for (const bool endsProcess : {true, false}) {
        // The thread sanitizer waits for each thread to end in the usual way.
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
