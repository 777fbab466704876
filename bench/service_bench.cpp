// What the service costs around a lookup: the same points through the bare reader, and from the
// post to the report through the loaded library, with the host's log dropped and written.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <platform/log.h>
#include <unistd.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>
#include <zonedetect.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace {

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezoneCallback;

constexpr size_t kPoints = 2000;

struct Point {
    std::string lat;
    std::string lon;
};

std::vector<Point> gPoints;
sp<IOfflinetimezone> gService;

class Counter : public IOfflinetimezoneCallback {
  public:
    Return<void> timeZoneIdReport(const hidl_string&, const hidl_string&,
                                  const hidl_string&) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mReports;
        mChanged.notify_one();
        return android::hardware::Void();
    }
    void WaitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mReports >= count; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mReports = 0;
};

sp<Counter> gClient;
size_t gExpected = 0;  // Reports asked for so far.

void BareReader(benchmark::State& state) {
    ZDDatabase* database = ZDOpenDatabase(OFFLINETZ_WORLD_DATABASE);
    for (auto _ : state) {
        for (const Point& p : gPoints) {
            float safezone;
            ZDFreeResults(ZDLookup(database, std::strtof(p.lat.c_str(), nullptr),
                                   std::strtof(p.lon.c_str(), nullptr), &safezone));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(gPoints.size()));
    ZDCloseDatabase(database);
}

// All points posted at once: the throughput of queue, worker and report.
void ServiceInBulk(benchmark::State& state) {
    for (auto _ : state) {
        for (const Point& p : gPoints)
            gService->Lookup(p.lat, p.lon);
        gClient->WaitFor(gExpected += gPoints.size());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(gPoints.size()));
}

// Each point posted when the one before it was reported: two hand-overs between threads more.
void ServiceOneByOne(benchmark::State& state) {
    for (auto _ : state) {
        for (const Point& p : gPoints) {
            gService->Lookup(p.lat, p.lon);
            gClient->WaitFor(++gExpected);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(gPoints.size()));
}

void WithLog(benchmark::State& state, void (*run)(benchmark::State&), bool isWritten) {
    if (isWritten) {
        platform::SetLogReceiver(nullptr);
    } else {
        platform::DropLog();
    }
    run(state);
    platform::DropLog();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    // The reports go to the standard error that was; the log, where written, to nowhere.
    FILE* reports = fdopen(dup(STDERR_FILENO), "w");
    if (reports == nullptr || std::freopen("/dev/null", "w", stderr) == nullptr ||
        std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 1;
    }
    char directory[] = "/tmp/offlinetz-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr) return 1;
    std::filesystem::current_path(directory);
    std::filesystem::create_directory("offlinetz");
    std::filesystem::copy_file(OFFLINETZ_WORLD_DATABASE, "offlinetz/lastcombinedTimezone.bin");

    std::mt19937_64 random(1);
    for (size_t i = 0; i < kPoints; ++i) {
        gPoints.push_back({std::to_string(static_cast<double>(random() % 1400000) / 1e4 - 60.0),
                           std::to_string(static_cast<double>(random() % 3600000) / 1e4 - 180.0)});
    }
    platform::DropLog();
    void* library = dlopen(OFFLINETZ_LOCAL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return 1;
    using Fetch = IOfflinetimezone* (*)(const char*);
    gService = reinterpret_cast<Fetch>(dlsym(library, "HIDL_FETCH_IOfflinetimezone"))("default");
    gClient = new Counter;
    gService->startLookup(gClient);

    benchmark::RegisterBenchmark("bare_reader", BareReader)->Unit(benchmark::kMillisecond);
    for (const bool isWritten : {false, true}) {
        const std::string suffix = isWritten ? "/log_written" : "/log_dropped";
        benchmark::RegisterBenchmark(("service_in_bulk" + suffix).c_str(), WithLog, ServiceInBulk,
                                     isWritten)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("service_one_by_one" + suffix).c_str(), WithLog,
                                     ServiceOneByOne, isWritten)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
    }
    class FileBuffer : public std::streambuf {
      public:
        explicit FileBuffer(FILE* file) : mFile(file) {}
        int overflow(int c) override { return std::fputc(c, mFile); }

      private:
        FILE* mFile;
    } buffer(reports);
    std::ostream stream(&buffer);
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&stream);
    reporter.SetErrorStream(&stream);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::fflush(reports);
    std::filesystem::remove_all(directory);
    return 0;
}
