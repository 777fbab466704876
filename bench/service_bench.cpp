// What the service costs around a lookup: the reader alone, and the loaded library from the call of
// Lookup to the report, with the host's log dropped and written to /dev/null.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <platform/log.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>

#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "database/open_database.h"
#include "database/random_points.h"

namespace {

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezoneCallback;

class Client : public IOfflinetimezoneCallback {
  public:
    Return<void> timeZoneIdReport(const hidl_string&, const hidl_string&,
                                  const hidl_string&) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mReports;
        mChanged.notify_one();
        return android::hardware::Void();
    }

    // Waits for the reports of so many more lookups.
    void WaitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        mExpected += count;
        mChanged.wait(lock, [&] { return mReports >= mExpected; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mReports = 0;
    size_t mExpected = 0;
};

std::vector<std::pair<std::string, std::string>> gPoints;  // Latitude and longitude.
sp<IOfflinetimezone> gService;
sp<Client> gClient;

void LookUpInReader() {
    static const offlinetz::DatabasePtr database =
            offlinetz::OpenDatabase(OFFLINETZ_WORLD_DATABASE);
    for (const auto& [lat, lon] : gPoints) {
        float distance;
        ZDFreeResults(ZDLookup(database.get(), std::stof(lat), std::stof(lon), &distance));
    }
}

// All lookups are queued at once: the throughput of queue, worker and report.
void LookUpInBulk() {
    for (const auto& [lat, lon] : gPoints)
        gService->Lookup(lat, lon);
    gClient->WaitFor(gPoints.size());
}

// Each lookup waits for the report of the one before: two switches between threads more.
void LookUpOneByOne() {
    for (const auto& [lat, lon] : gPoints) {
        gService->Lookup(lat, lon);
        gClient->WaitFor(1);
    }
}

void Register(const char* name, void (*lookUpAll)(), bool isLogWritten) {
    benchmark::RegisterBenchmark(
            name,
            [=](benchmark::State& state) {
                if (isLogWritten) platform::SetLogReceiver(nullptr);
                for (auto _ : state)
                    lookUpAll();
                platform::DropLog();
                state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(gPoints.size()));
            })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;  // Receives the log.
    char directory[] = "/tmp/offlinetz-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr) return 1;
    std::filesystem::current_path(directory);
    std::filesystem::create_directory("offlinetz");
    std::filesystem::copy_file(OFFLINETZ_WORLD_DATABASE, "offlinetz/lastcombinedTimezone.bin");

    offlinetz::RandomPoints random(1);
    for (int i = 0; i < 2000; ++i) {
        const offlinetz::Degrees p = random.OnSphere();
        gPoints.emplace_back(std::to_string(p.lat), std::to_string(p.lon));
    }
    platform::DropLog();
    void* library = dlopen(OFFLINETZ_LOCAL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return 1;
    using Fetch = IOfflinetimezone* (*)(const char*);
    gService = reinterpret_cast<Fetch>(dlsym(library, "HIDL_FETCH_IOfflinetimezone"))("default");
    gClient = new Client;
    gService->startLookup(gClient);

    Register("reader", LookUpInReader, false);
    Register("service_in_bulk/log_dropped", LookUpInBulk, false);
    Register("service_one_by_one/log_dropped", LookUpOneByOne, false);
    Register("service_in_bulk/log_written", LookUpInBulk, true);
    Register("service_one_by_one/log_written", LookUpOneByOne, true);
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetErrorStream(&std::cout);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::filesystem::remove_all(directory);
    return 0;
}
