// Clients that come, ask, stop and die while others look up and databases are replaced.
#include <gtest/gtest.h>
#include <host/death_registry.h>

#include <atomic>
#include <filesystem>
#include <thread>

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
    std::atomic<int> wrongAnswers{0};
    std::atomic<size_t> answers{0};
    std::vector<std::thread> clients;
    for (int t = 0; t < 4; ++t) {
        clients.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                const sp<Recorder> client = new Recorder;
                service->startLookup(client);
                for (int k = 0; k < 5; ++k)
                    service->Lookup("1", "2");
                if (i % 3 == 0) service->stopLookup(client);
                if (i % 2 == t % 2) host::EndOwnerOf(client);
                for (const ClientReport& report : client->Reports()) {
                    ++answers;
                    if (report.lat != "1" || report.lon != "2" ||
                        (report.tzId != "\"Zone/A\"" && report.tzId != "\"Zone/B\"" &&
                         report.tzId != "error:Server is not supportted")) {
                        ++wrongAnswers;
                    }
                }
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
    service->Lookup("1", "2");
    EXPECT_TRUE(last->WaitFor(1));
    stop = true;
    watcher.join();
    EXPECT_EQ(0, wrongStates);
    EXPECT_EQ(0, wrongAnswers);
    EXPECT_EQ("\"Zone/A\"", last->Reports().back().tzId);
    service.Unload();
}

}  // namespace
