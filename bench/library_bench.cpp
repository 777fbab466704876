// Measures the C library beside the reader: one point at a time, many points, many points in the
// order of places, with cold caches, and on two threads. Measures distances to borders.
//
// Usage: library_bench DIRECTORY    writes library.md and borders.md there
#include <fmt/format.h>
#include <malloc.h>
#include <offlinetz.h>

#include <cmath>
#include <ctime>
#include <thread>

#include "inputs.h"
#include "measure.h"

namespace {

using namespace bench;

constexpr size_t kPoints = 100000;
constexpr size_t kOrderedPoints = 1000000;
constexpr int kRounds = 9;
constexpr size_t kColdPoints = 200;  // Between two times that the caches are emptied.
constexpr size_t kBorderPoints = 20000;

// Degrees, as the library takes them.
struct Place {
    double lat;
    double lon;
};
using Places = std::vector<Place>;

Places PlacesOf(const Points& points) {
    Places places;
    for (const Point& p : points)
        places.push_back({static_cast<double>(p.lat), static_cast<double>(p.lon)});
    return places;
}

// By cells of a quarter of a degree, row by row.
Places InOrder(Places places) {
    const auto cell = [](const Place& p) {
        return std::pair(std::floor(4.0 * p.lat), std::floor(4.0 * p.lon));
    };
    std::sort(places.begin(), places.end(),
              [&](const Place& a, const Place& b) { return cell(a) < cell(b); });
    return places;
}

double NanosecondsOf(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

// Removes bytes from the processor's caches, where that can be done.
void Flush(const void* bytes, size_t size) {
#ifdef __x86_64__
    for (size_t i = 0; i < size; i += 64)
        __builtin_ia32_clflush(static_cast<const char*>(bytes) + i);
    __builtin_ia32_mfence();
#endif
}

struct Way {
    std::string name;
    std::function<void(const Place* places, size_t count)> look;
    bool isCold = false;
    clockid_t clock = CLOCK_PROCESS_CPUTIME_ID;
};

// Nanoseconds a point of each way: medians over rounds, in which the ways take turns.
std::vector<double> Measure(const std::vector<Way>& ways, const Places& places,
                            const std::vector<uint8_t>& file) {
    std::vector<std::vector<double>> all(ways.size());
    for (int round = -1; round < kRounds; ++round) {  // The first round does not count.
        for (size_t i = 0; i < ways.size(); ++i) {
            double time = 0.0;
            const size_t step = ways[i].isCold ? kColdPoints : places.size();
            const size_t count = ways[i].isCold ? 100 * kColdPoints : places.size();
            for (size_t begin = 0; begin < count; begin += step) {
                if (ways[i].isCold) Flush(file.data(), file.size());
                const double start = NanosecondsOf(ways[i].clock);
                ways[i].look(&places[begin], std::min(step, count - begin));
                time += NanosecondsOf(ways[i].clock) - start;
            }
            if (round >= 0) all[i].push_back(time / static_cast<double>(count));
        }
    }
    std::vector<double> medians;
    for (std::vector<double>& times : all)
        medians.push_back(Median(std::move(times)));
    return medians;
}

// What building the index takes: median milliseconds over kHandles handles, and the heap that it
// keeps, in KB.
struct IndexCost {
    double milliseconds;
    double kilobytes;
};

template <typename Build, typename Free>
IndexCost CostOf(const Build& build, const Free& free) {
    constexpr size_t kHandles = 50;
    std::vector<double> times;
    std::vector<double> sizes;
    for (size_t i = 0; i < kHandles; ++i) {
        const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        const auto start = std::chrono::steady_clock::now();
        build();
        times.push_back(NanosecondsSince(start) / 1e6);
        const size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
        sizes.push_back(static_cast<double>(after - before) / 1e3);
        free();
    }
    return {Median(times), Median(sizes)};
}

std::string IndexTable(const std::vector<uint8_t>& file) {
    ZDDatabase* handle = nullptr;
    const IndexCost reader = CostOf(
            [&] {
                handle = zonedetect::OpenBytes(file.data(), file.size(), nullptr);
                ZDFreeResults(ZDLookup(handle, 0.0f, 0.0f, nullptr));
            },
            [&] { ZDCloseDatabase(handle); });
    offlinetz_database* database = nullptr;
    const IndexCost library = CostOf(
            [&] {
                offlinetz_open_memory(file.data(), file.size(), OFFLINETZ_SKIP_DIGEST, &database);
            },
            [&] { offlinetz_close(database); });
    return fmt::format(
            "\n| opening bytes, unverified, and building the index | ms | KB |\n"
            "|---|--:|--:|\n| reader | {:.2f} | {:.0f} |\n| C library | {:.2f} | {:.0f} |\n",
            reader.milliseconds, reader.kilobytes, library.milliseconds, library.kilobytes);
}

// Places up to a kilometre from borders: from the nearest ones of other places.
Places NearBorders(const offlinetz_database* database, const Places& places) {
    offlinetz::RandomPoints random(3);
    Places near;
    for (const Place& p : places) {
        offlinetz_border border;
        offlinetz_nearest_border(database, p.lat, p.lon, HUGE_VAL, &border);
        near.push_back({std::clamp(border.lat + 0.02 * random.Uniform() - 0.01, -90.0, 90.0),
                        std::clamp(border.lon + 0.02 * random.Uniform() - 0.01, -180.0, 180.0)});
    }
    return near;
}

// Those of the places whose answer is a nautical zone.
Places AtSea(const offlinetz_database* database, const Places& places) {
    const int32_t firstNautical = offlinetz_zone_id(database, "Etc/GMT+12");
    Places sea;
    for (const Place& p : places) {
        int32_t id;
        offlinetz_find(database, p.lat, p.lon, &id, 1, nullptr, nullptr);
        if (id >= firstNautical) sea.push_back(p);
    }
    return sea;
}

// Microseconds of calls of ask(place). The mean is processor time, the median over rounds. The
// other figures are of the least time of each place over the rounds, because other work interrupts
// some.
struct CallTimes {
    double first;  // The mean of the first round.
    double mean;
    double p99;
    double worst;
};

template <typename Ask>
CallTimes TimesOf(const Places& places, const Ask& ask) {
    std::vector<double> means;
    std::vector<double> least(places.size(), HUGE_VAL);
    for (int round = 0; round < kRounds; ++round) {
        const double start = NanosecondsOf(CLOCK_PROCESS_CPUTIME_ID);
        for (const Place& p : places)
            ask(p);
        means.push_back((NanosecondsOf(CLOCK_PROCESS_CPUTIME_ID) - start) / 1e3 /
                        static_cast<double>(places.size()));
        for (size_t i = 0; i < places.size(); ++i) {
            const auto begin = std::chrono::steady_clock::now();
            ask(places[i]);
            least[i] = std::min(least[i], NanosecondsSince(begin) / 1e3);
        }
    }
    std::sort(least.begin(), least.end());
    return {means[0], Median(means), least[least.size() * 99 / 100], least.back()};
}

std::string BorderTable(const std::vector<uint8_t>& file, const Places& land) {
    offlinetz_database* database;
    offlinetz_open_memory(file.data(), file.size(), OFFLINETZ_SKIP_DIGEST, &database);
    const std::vector<std::pair<const char*, Places>> sets = {
            {"land", {land.begin(), land.begin() + kBorderPoints}},
            {"sea", AtSea(database, PlacesOf(SpherePoints(kBorderPoints)))},
            {"cities", PlacesOf(Cities())},
            {"near borders", NearBorders(database, {land.begin(), land.begin() + kBorderPoints})}};
    std::string text =
            "| µs a point | mean | 99 % | worst | 100 km: mean | 99 % | worst | the first "
            "time, mean "
            "| safe radius / distance |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|\n";
    for (const auto& [name, places] : sets) {
        offlinetz_database* fresh;
        offlinetz_open_memory(file.data(), file.size(), OFFLINETZ_SKIP_DIGEST, &fresh);
        std::vector<double> shares;
        for (const Place& p : places) {
            offlinetz_border border;
            double radius;
            offlinetz_find(fresh, p.lat, p.lon, nullptr, 0, nullptr, &radius);
            offlinetz_nearest_border(fresh, p.lat, p.lon, HUGE_VAL, &border);
            shares.push_back(1000.0 * radius / border.metres);
        }
        const CallTimes nearest = TimesOf(places, [&](const Place& p) {
            offlinetz_border border;
            offlinetz_nearest_border(fresh, p.lat, p.lon, HUGE_VAL, &border);
        });
        const CallTimes within = TimesOf(places, [&](const Place& p) {
            int32_t ids[16];
            double distances[16];
            offlinetz_zones_within(fresh, p.lat, p.lon, 1e5, ids, distances, 16);
        });
        text += fmt::format(
                "| {} | {:.1f} | {:.0f} | {:.0f} | {:.1f} | {:.0f} | {:.0f} | {:.1f} | {:.2f} |\n",
                name, nearest.mean, nearest.p99, nearest.worst, within.mean, within.p99,
                within.worst, within.first, Median(shares));
        offlinetz_close(fresh);
    }
    offlinetz_close(database);
    return text;
}

void Run(const std::string& directory) {
    const auto file = offlinetz::ReadFileBytes(WorldFile(directory));
    const offlinetz::DatabasePtr reader = offlinetz::CheckFile(file, false).database;
    offlinetz_database* database;
    if (offlinetz_open_memory(file->data(), file->size(), 0, &database) != OFFLINETZ_OK)
        throw std::runtime_error(offlinetz_message(database));
    const offlinetz::DatabasePtr none;

    std::vector<int32_t> ids(kOrderedPoints);
    std::vector<double> radii(kOrderedPoints);
    const auto many = [&](const Place* p, size_t count, size_t to, bool withRadius) {
        offlinetz_find_many(database, count, &p->lat, sizeof *p, &p->lon, sizeof *p, &ids[to],
                            sizeof ids[0], withRadius ? &radii[to] : nullptr, sizeof radii[0]);
    };
    const auto readEach = [&](const Place* p, size_t count, bool withDistance) {
        for (const Place* end = p + count; p < end; ++p) {
            float distance;
            ZDFreeResults(ZDLookup(reader.get(), static_cast<float>(p->lat),
                                   static_cast<float>(p->lon), withDistance ? &distance : nullptr));
        }
    };
    const auto findEach = [&](const Place* p, size_t count, bool withRadius) {
        for (size_t i = 0; i < count; ++i) {
            offlinetz_find(database, p[i].lat, p[i].lon, &ids[i], 1, nullptr,
                           withRadius ? &radii[i] : nullptr);
        }
    };
    const auto read = [&](auto* p, size_t n) { readEach(p, n, false); };
    const auto find = [&](auto* p, size_t n) { findEach(p, n, false); };
    const auto findMany = [&](auto* p, size_t n) { many(p, n, 0, false); };
    const std::vector<Way> ways = {
            {"`ZDLookup`", read},
            {"`ZDLookup` with a distance", [&](auto* p, size_t n) { readEach(p, n, true); }},
            {"`offlinetz_find`", find},
            {"`offlinetz_find` with a radius", [&](auto* p, size_t n) { findEach(p, n, true); }},
            {"`offlinetz_find_many`", findMany},
            {"`offlinetz_find_many` with radii", [&](auto* p, size_t n) { many(p, n, 0, true); }},
            {"`ZDLookup`, the file flushed from the caches", read, true},
            {"`offlinetz_find`, the file flushed", find, true},
            {"`offlinetz_find_many`, the file flushed", findMany, true},
            {"`offlinetz_find_many`, wall time", findMany, false, CLOCK_MONOTONIC},
            {"`offlinetz_find_many`, wall time of two threads",
             [&](const Place* p, size_t n) {
                 std::thread other([&] { many(p, n / 2, 0, false); });
                 many(p + n / 2, n - n / 2, n / 2, false);
                 other.join();
             },
             false, CLOCK_MONOTONIC}};

    const Places land = PlacesOf(LandPoints(*reader, kPoints));
    std::vector<std::vector<double>> sets;
    for (const Places& places : {land, PlacesOf(SpherePoints(kPoints)), PlacesOf(Cities()),
                                 InOrder(PlacesOf(LandPoints(*reader, kOrderedPoints)))})
        sets.push_back(Measure(ways, places, *file));
    std::string text =
            "| ns a point | land | sphere | cities | land, in the order of places |\n"
            "|---|--:|--:|--:|--:|\n";
    for (size_t i = 0; i < ways.size(); ++i) {
        text += "| " + ways[i].name;
        for (const std::vector<double>& times : sets)
            text += fmt::format(" | {:.0f} ({:.2f})", times[i], times[i] / times[0]);
        text += " |\n";
    }
    offlinetz_close(database);
    WriteText(directory + "/library.md", text + IndexTable(*file));
    WriteText(directory + "/borders.md", BorderTable(*file, land));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    Run(argv[1]);
    return 0;
}
