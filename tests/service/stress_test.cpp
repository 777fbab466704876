// Clients start, ask, stop and die while others look up and databases are replaced.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "loaded_service.h"
#include "log_capture.h"
#include "service_steps.h"

namespace {

// What the client of that number does in its report.
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

// Adds the number of reports to clients that came and went to `*allReports`.
void ComeAndGo(size_t* allReports) {
    const Bytes databases[] = {SampleDatabase("A", 1), SampleDatabase("B", 2)};
    WriteFile(kActive, databases[0]);
    LoadedService service;
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
            Send(service.Get(), databases[(i + 1) % 2], 37);
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
                // Else most are gone before the worker comes to their questions.
                if (i % 4 == t) client->WaitFor(1, std::chrono::milliseconds(20));
                if (i % 3 == 0) service->stopLookup(client);
                if (i % 2 == t % 2) platform::EndOwnerOf(client);
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    updater.join();
    // Whichever client is registered now, a death makes room for the next one. A client in its
    // report may take that room.
    const sp<Recorder> last = new Recorder;
    for (int attempt = 0; attempt < 10 && last->Reports().empty(); ++attempt) {
        service->startLookup(last);
        platform::EndOwnerOf(last);
        service->startLookup(last);
        service->Lookup("1", "2.5");
        last->WaitFor(1, std::chrono::seconds(1));
    }
    stop = true;
    watcher.join();
    service.Unload();
    EXPECT_EQ(0, wrongStates);
    const std::vector<ClientReport> answers = last->Reports();  // To others' questions first.
    ASSERT_FALSE(answers.empty());
    EXPECT_EQ((ClientReport{"1", "2.5", "A"}), answers.back());

    const std::set<std::string> possible = {"A", "B", "error:Server is not supportted"};
    size_t reports = 0;
    for (const sp<Recorder>& client : everyone) {
        for (const ClientReport& report : client->Reports()) {
            ++reports;
            EXPECT_EQ(1u, possible.count(report.tzId)) << report;
        }
    }
    EXPECT_LE(reports, 500u);
    *allReports += reports;
}

TEST(Stress, AHundredClientsComeAndGoWithEachLibrary) {
    const ServiceDirectory directory;
    LogCapture log;
    size_t reports = 0;
    ComeAndGo(&reports);
    const size_t descriptors = CountEntries("/proc/self/fd");
    const size_t threads = CountEntries("/proc/self/task");
    alarm(120);  // A hang ends the test.
    // On a busy machine most clients are gone before they are answered.
    for (int round = 0; round < 2 || reports <= 10; ++round)
        ComeAndGo(&reports);
    EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
    // A thread that has ended may linger.
    while (CountEntries("/proc/self/task") > threads)
        std::this_thread::yield();
    alarm(0);
    const Bytes file = ReadFile("/proc/self/maps");
    const std::string maps(file.begin(), file.end());
    EXPECT_EQ(std::string::npos, maps.find("impl_local"));
    EXPECT_EQ(std::string::npos, maps.find("lastcombinedTimezone"));
}

}  // namespace
