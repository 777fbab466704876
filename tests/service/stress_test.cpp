// Clients that come, ask, stop and die while others look up and databases are replaced; and, when
// asked for, many more lookups and injections than a device makes in a month.
#include <gtest/gtest.h>
#include <platform/death_registry.h>
#include <platform/log.h>

#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "loaded_service.h"
#include "log_capture.h"
#include "sample_databases.h"
#include "service_files.h"
#include "temporary_directory.h"

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using android::hardware::Void;

namespace {

// What a client does in its report, by its number.
void Behave(LoadedService* service, const sp<Recorder>& client, int number) {
    const int manner = number % 8;
    if (manner == 1) throw std::runtime_error("a client's trouble");
    if (manner == 2) pthread_exit(nullptr);
    if (manner == 3) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (manner != 0) return;
    (*service)->stopLookup(client);
    (*service)->startLookup(client);
    EXPECT_GE(2, static_cast<int32_t>((*service)->getServerStatus()));
    EXPECT_LE(1, static_cast<int32_t>((*service)->getDBVersion()));
}

class StressTest : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directory("offlinetz");
        WriteFile(kActive, mDatabases[0]);
    }

    const TemporaryDirectory mDirectory;
    LogCapture mLog;
    const Bytes mDatabases[2] = {SampleDatabase("\"Zone/A\"", 1), SampleDatabase("\"Zone/B\"", 2)};
};

void ComeAndGo(const Bytes (&databases)[2]) {
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);

    std::atomic<bool> stop{false};
    std::atomic<int> wrongStates{0};
    std::thread watcher([&] {
        while (!stop) {
            const int32_t version = service->getDBVersion();
            const int32_t status = service->getServerStatus();
            if (version != 1 && version != 2 && version != 65535) ++wrongStates;
            if (status < 0 || status > 2) ++wrongStates;
            std::this_thread::yield();
        }
    });
    std::thread updater([&] {
        for (int i = 0; i < 20; ++i) {
            service.Send(databases[(i + 1) % 2], 37);
            service->injectDB();
        }
    });
    std::mutex mutex;
    std::vector<sp<Recorder>> everyone;  // Guarded by mutex.
    std::vector<std::thread> clients;
    for (int t = 0; t < 4; ++t) {
        clients.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                const sp<Recorder> client = new Recorder;
                client->onReport = [&service, i, c = client.get()] { Behave(&service, c, i); };
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    everyone.push_back(client);
                }
                service->startLookup(client);
                for (int k = 0; k < 5; ++k)
                    service->Lookup("1", "2");
                if (i % 3 == 0) service->stopLookup(client);
                if (i % 2 == t % 2) platform::EndOwnerOf(client);
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    updater.join();
    // Whoever is registered now, the next client is served after a death.
    const sp<Recorder> last = new Recorder;
    service->startLookup(last);
    platform::EndOwnerOf(last);
    service->startLookup(last);
    service->Lookup("1", "2.5");
    stop = true;
    watcher.join();
    service.Unload();
    EXPECT_EQ(0, wrongStates);
    ASSERT_FALSE(last->Reports().empty());
    EXPECT_EQ((ClientReport{"1", "2.5", "\"Zone/A\""}), last->Reports().back());

    everyone.push_back(last);
    const std::set<std::string> possible = {"\"Zone/A\"", "\"Zone/B\"",
                                            "error:Server is not supportted"};
    size_t reports = 0;
    for (const sp<Recorder>& client : everyone) {
        for (const ClientReport& report : client->Reports()) {
            ++reports;
            EXPECT_EQ(1u, possible.count(report.tzId)) << report;
        }
    }
    EXPECT_GT(reports, 1u);
    EXPECT_LE(reports, 501u);
}

// What the process holds: kilobytes of memory, descriptors, threads.
struct Holdings {
    size_t kilobytes = 0;
    long descriptors;
    long threads;

    Holdings() {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word && word != "RssAnon:";) {
        }
        status >> kilobytes;
        namespace fs = std::filesystem;
        descriptors =
                std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
        threads =
                std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
    }
};

TEST_F(StressTest, AHundredClientsComeAndGoWithEachLibrary) {
    ComeAndGo(mDatabases);
    mLog.Take();
    const Holdings before;
    for (int round = 0; round < 2; ++round)
        ComeAndGo(mDatabases);
    mLog.Take();
    const Holdings after;
    EXPECT_EQ(before.descriptors, after.descriptors);
    EXPECT_EQ(before.threads, after.threads);
    std::ifstream file("/proc/self/maps");
    const std::string maps(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(std::string::npos, maps.find("impl_local"));
    EXPECT_EQ(std::string::npos, maps.find("lastcombinedTimezone"));
}

// Ten million lookups and a thousand injections.
TEST_F(StressTest, DISABLED_HoldsNoMoreAfterTenMillionLookups) {
    struct Counter : Recorder {
        Return<void> timeZoneIdReport(const hidl_string&, const hidl_string&,
                                      const hidl_string&) override {
            ++mReports;
            return Void();
        }
        std::atomic<size_t> mReports{0};
    };
    platform::DropLog();
    LoadedService service(OFFLINETZ_LOCAL_LIBRARY);
    const sp<Counter> client = new Counter;
    service->startLookup(client);
    std::optional<Holdings> warm;
    for (size_t round = 1; round <= 1000; ++round) {
        for (int i = 0; i < 9999; ++i)
            service->Lookup("1", "2.5");
        service.Send(mDatabases[round % 2], 37);
        service->injectDB();
        service->Lookup("1", "2.5");  // Its report tells that the injection is done.
        while (client->mReports < round * 10000)
            std::this_thread::yield();
        if (round % 100 != 0) continue;
        const Holdings now;
        std::printf("%zu lookups, %zu injections: %zu KB, %ld descriptors, %ld threads\n",
                    client->mReports.load(), round, now.kilobytes, now.descriptors, now.threads);
        if (!warm) warm = now;
        EXPECT_LE(now.kilobytes, warm->kilobytes + 1024);
        EXPECT_EQ(warm->descriptors, now.descriptors);
        EXPECT_EQ(warm->threads, now.threads);
    }
}

}  // namespace
