// Clients that come, ask, stop and die while others look up and databases are replaced.
#include <gtest/gtest.h>
#include <host/death_registry.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "loaded_service.h"
#include "log_capture.h"
#include "sample_databases.h"
#include "temporary_directory.h"

using android::sp;

namespace {

TEST(Stress, AHundredClientsComeAndGo) {
    const TemporaryDirectory directory;
    LogCapture log;
    std::filesystem::create_directory("offlinetz");
    const Bytes databases[] = {SampleDatabase("\"Zone/A\"", 1), SampleDatabase("\"Zone/B\"", 2)};
    WriteFile("offlinetz/lastcombinedTimezone.bin", databases[0]);
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
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    everyone.push_back(client);
                }
                service->startLookup(client);
                for (int k = 0; k < 5; ++k)
                    service->Lookup("1", "2");
                if (i % 3 == 0) service->stopLookup(client);
                if (i % 2 == t % 2) host::EndOwnerOf(client);
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    updater.join();
    // Whoever is registered now, the next client is served after a death.
    const sp<Recorder> last = new Recorder;
    service->startLookup(last);
    host::EndOwnerOf(last);
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

}  // namespace
