#include "measure.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

using offlinetz::Degrees;
using offlinetz::RandomPoints;
using std::chrono::steady_clock;

constexpr uint64_t kLandSeed = 1;
constexpr uint64_t kSphereSeed = 2;
constexpr char kCities[] = "/usr/share/libtimezonemap/ui/cities15000.txt";

bool HasZone(const ZDDatabase& database, const Point& p) {
    ZDResult* results = ZDLookup(&database, p.lat, p.lon, nullptr);
    const bool has = results[0].result != ZDLookupEnd;
    ZDFreeResults(results);
    return has;
}

// A percentile of values, which it reorders.
double Percentile(std::vector<double>* values, size_t percent) {
    const size_t place = std::min(values->size() * percent / 100, values->size() - 1);
    const auto at = values->begin() + static_cast<std::ptrdiff_t>(place);
    std::nth_element(values->begin(), at, values->end());
    return *at;
}

double ProcessorNanoseconds() {
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

double MeanOfLoop(const Candidate& candidate) {
    const double start = ProcessorNanoseconds();
    for (const Point& p : *candidate.points)
        candidate.look(p);
    return (ProcessorNanoseconds() - start) / static_cast<double>(candidate.points->size());
}

Times MeasureOnce(const Candidate& candidate) {
    Times times;
    times.mean = MeanOfLoop(candidate);
    std::vector<double> single;
    single.reserve(candidate.points->size());
    for (const Point& p : *candidate.points) {
        const auto start = steady_clock::now();
        candidate.look(p);
        single.push_back(NanosecondsSince(start));
    }
    times.median = Percentile(&single, 50);
    times.p99 = Percentile(&single, 99);
    return times;
}

}  // namespace

offlinetz::DatabasePtr MapDatabase(const std::string& path) {
    offlinetz::DatabasePtr database(ZDOpenDatabase(path.c_str()));
    if (database == nullptr) throw std::runtime_error(path + ": the reader refuses it");
    return database;
}

void LookUpWithDistance(const ZDDatabase& database, const Point& p) {
    float distance;
    ZDFreeResults(ZDLookup(&database, p.lat, p.lon, &distance));
}

Points DrawPoints(size_t count, uint64_t seed, const std::function<Degrees(RandomPoints*)>& draw,
                  const ZDDatabase* database) {
    RandomPoints random(seed);
    Points points;
    while (points.size() < count) {
        const Degrees drawn = draw(&random);
        const Point p = {static_cast<float>(drawn.lat), static_cast<float>(drawn.lon)};
        if (database == nullptr || HasZone(*database, p)) points.push_back(p);
    }
    return points;
}

Points SpherePoints(size_t count) {
    return DrawPoints(count, kSphereSeed, std::mem_fn(&RandomPoints::OnSphere));
}

Points LandPoints(const ZDDatabase& database, size_t count) {
    return DrawPoints(count, kLandSeed, std::mem_fn(&RandomPoints::OnSphere), &database);
}

Points Cities() {
    std::ifstream file(kCities);
    Points points;
    std::string columns[6];
    while (std::getline(file, columns[0], '\t')) {
        for (size_t i = 1; i < 6; ++i)
            std::getline(file, columns[i], '\t');
        points.push_back({std::stof(columns[4]), std::stof(columns[5])});
        std::getline(file, columns[0]);  // The rest of the line.
    }
    if (points.empty()) throw std::runtime_error(std::string(kCities) + ": cannot be read");
    return points;
}

double NanosecondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double, std::nano>(steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
    return Percentile(&values, 50);
}

std::vector<Times> MeasureInTurns(const std::vector<Candidate>& candidates, int rounds) {
    for (const Candidate& candidate : candidates)
        MeanOfLoop(candidate);
    std::vector<std::vector<Times>> all(candidates.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < candidates.size(); ++i)
            all[i].push_back(MeasureOnce(candidates[i]));
    }
    std::vector<Times> medians(candidates.size());
    for (size_t i = 0; i < candidates.size(); ++i) {
        for (double Times::*const figure : {&Times::mean, &Times::median, &Times::p99}) {
            std::vector<double> values;
            for (const Times& times : all[i])
                values.push_back(times.*figure);
            medians[i].*figure = Median(std::move(values));
        }
    }
    return medians;
}

}  // namespace bench
