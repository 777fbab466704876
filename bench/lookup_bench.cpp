// Speed of lookups, opening and verification over a world database; beside them, in the same
// run, the plain reading of the test tree and, given the source polygons, a geometry library.
//
// Usage: lookup_bench [--benchmark_...] [DATABASE [SOURCE.geojson]]
#include <LookupInterface.h>
#include <benchmark/benchmark.h>
#include <host/log.h>
#include <plain_reader.h>
#include <self_check.h>
#include <source.h>
#include <zonedetect.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct Point {
    float lat;
    float lon;
};

constexpr size_t kPoints = 20000;

std::string gPath = OFFLINETZ_WORLD_DATABASE;
ZDDatabase* gDatabase = nullptr;
std::unique_ptr<oracle::PlainReader> gPlain;
std::unique_ptr<offlinetz::Source> gSource;
std::unique_ptr<offlinetz::SourceLookup> gSourceLookup;
std::vector<Point> gSphere;
std::vector<Point> gLand;

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void MakePoints() {
    std::mt19937_64 random(1);
    const auto uniform = [&random] { return static_cast<double>(random() >> 11) * 0x1p-53; };
    while (gSphere.size() < kPoints || gLand.size() < kPoints) {
        const Point p = {static_cast<float>(std::asin(2.0 * uniform() - 1.0) * 57.29577951308232),
                         static_cast<float>(360.0 * uniform() - 180.0)};
        if (gSphere.size() < kPoints) gSphere.push_back(p);
        ZDResult* results = ZDLookup(gDatabase, p.lat, p.lon, nullptr);
        if (results->result != ZDLookupEnd && gLand.size() < kPoints) gLand.push_back(p);
        ZDFreeResults(results);
    }
}

// Times each call of `look` by itself and reports the spread beside the mean.
void EachPoint(benchmark::State& state, const std::vector<Point>& points,
               const std::function<void(const Point&)>& look) {
    std::vector<double> times;
    size_t next = 0;
    for (auto _ : state) {
        const Point& point = points[next++ % points.size()];
        const auto start = std::chrono::steady_clock::now();
        look(point);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count());
        times.push_back(took.count());
    }
    std::sort(times.begin(), times.end());
    state.counters["p50_us"] = 1e6 * times[times.size() / 2];
    state.counters["p99_us"] = 1e6 * times[times.size() * 99 / 100];
}

void Reader(benchmark::State& state, const std::vector<Point>* points, bool distance) {
    EachPoint(state, *points, [distance](const Point& p) {
        float safezone;
        ZDFreeResults(ZDLookup(gDatabase, p.lat, p.lon, distance ? &safezone : nullptr));
    });
    double bytes = 0.0;
    for (const Point& p : *points)
        bytes += static_cast<double>(gPlain->Lookup(p.lat, p.lon).bytesRead);
    state.counters["bytes_read"] = bytes / static_cast<double>(points->size());
}

void PlainReading(benchmark::State& state, const std::vector<Point>* points) {
    EachPoint(state, *points,
              [](const Point& p) { benchmark::DoNotOptimize(gPlain->Lookup(p.lat, p.lon)); });
}

void GeometryLibrary(benchmark::State& state, const std::vector<Point>* points) {
    EachPoint(state, *points, [](const Point& p) {
        benchmark::DoNotOptimize(
                gSourceLookup->ZonesAt(static_cast<double>(p.lat), static_cast<double>(p.lon)));
    });
}

void Open(benchmark::State& state) {
    for (auto _ : state)
        ZDCloseDatabase(ZDOpenDatabase(gPath.c_str()));
}

void Verify(benchmark::State& state) {
    const std::vector<uint8_t> file = ReadFile(gPath);
    vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupInterface manager;
    uint8_t digest[20];
    for (auto _ : state) {
        manager.sha1(file.data(), digest, static_cast<uint32_t>(file.size() - 20));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(file.size()));
}

void Register(const char* name, const std::vector<Point>* points,
              void (*function)(benchmark::State&, const std::vector<Point>*)) {
    benchmark::RegisterBenchmark(name, function, points)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond)
            ->Iterations(kPoints);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc > 1) gPath = argv[1];
    // The reader prints a line whenever it opens a file; the report does not need it.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    host::SetLogReceiver([](int, const char*, const std::string&) {});
    gDatabase = ZDOpenDatabase(gPath.c_str());
    if (gDatabase == nullptr) {
        std::fprintf(stderr, "%s: cannot be opened\n", gPath.c_str());
        return 1;
    }
    gPlain = std::make_unique<oracle::PlainReader>(ReadFile(gPath));
    MakePoints();
    if (argc > 2) {
        offlinetz::StartGeometry();
        gSource = std::make_unique<offlinetz::Source>(offlinetz::ReadSource(
                {argv[2]}, [](const std::string&) {}, [](const char*, size_t, size_t) {}));
        gSourceLookup = std::make_unique<offlinetz::SourceLookup>(*gSource);
    }
    struct {
        const char* name;
        const std::vector<Point>* points;
    } const sets[] = {{"sphere", &gSphere}, {"land", &gLand}};
    for (const auto& set : sets) {
        const std::string name = set.name;
        Register(("reader/" + name).c_str(), set.points,
                 [](benchmark::State& s, const std::vector<Point>* p) { Reader(s, p, false); });
        Register(("reader_with_distance/" + name).c_str(), set.points,
                 [](benchmark::State& s, const std::vector<Point>* p) { Reader(s, p, true); });
        Register(("plain_reading/" + name).c_str(), set.points, PlainReading);
        if (gSourceLookup)
            Register(("geometry_library/" + name).c_str(), set.points, GeometryLibrary);
    }
    benchmark::RegisterBenchmark("open", Open)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("verify", Verify)->Unit(benchmark::kMillisecond);
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    ZDCloseDatabase(gDatabase);
    return 0;
}
