// Compares the speed of two builds of the shipped library, such as before and after a change, in
// one process: they look up the same points in turns. Also counts points where answers differ.
//
// Usage: compare_readers BEFORE.so AFTER.so
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "measure.h"

namespace {

using namespace bench;
constexpr size_t kPoints = 100000;
constexpr int kMeasurements = 9;
constexpr int kRounds = 5;  // Of each measurement.

[[noreturn]] void Fail(const char* reason) {
    std::fprintf(stderr, "compare_readers: %s\n", reason);
    std::exit(1);
}

// The reader in a library. Neither the library nor the database is closed before the process ends.
class Reader {
  public:
    explicit Reader(const char* path) {
        // dlopen takes a name without a slash for that of an installed library.
        mLibrary = dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL);
        if (mLibrary == nullptr) Fail(dlerror());
        Find("ZDLookup", &mLookUp);
        Find("ZDFreeResults", &mFree);
        decltype(&ZDOpenDatabase) open;
        Find("ZDOpenDatabase", &open);
        mDatabase = open(OFFLINETZ_WORLD_DATABASE);
        if (mDatabase == nullptr) Fail("the reader refuses the database");
    }

    void Look(const Point& p, float* distance) const {
        mFree(mLookUp(mDatabase, p.lat, p.lon, distance));
    }

    // The distance, and the classification and record of each zone.
    std::vector<double> AnswerAt(const Point& p) const {
        float distance = 0.0f;
        ZDResult* results = mLookUp(mDatabase, p.lat, p.lon, &distance);
        std::vector<double> answer = {static_cast<double>(distance)};
        for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r)
            answer.insert(answer.end(), {1.0 * r->result, 1.0 * r->recordOffset});
        mFree(results);
        return answer;
    }

  private:
    template <typename Function>
    void Find(const char* name, Function* function) const {
        *function = reinterpret_cast<Function>(dlsym(mLibrary, name));
        if (*function == nullptr) Fail(dlerror());
    }

    void* mLibrary;
    decltype(&ZDLookup) mLookUp;
    decltype(&ZDFreeResults) mFree;
    ZDDatabase* mDatabase;
};

void Compare(const Reader& before, const Reader& after, const char* name, const Points& points) {
    for (const bool withDistance : {false, true}) {
        std::vector<Candidate> candidates;
        for (const Reader* reader : {&before, &after}) {
            candidates.push_back({[=](const Point& p) {
                                      float distance;
                                      reader->Look(p, withDistance ? &distance : nullptr);
                                  },
                                  &points});
        }
        std::vector<double> means[2];
        std::vector<double> ratios;
        for (int i = 0; i < kMeasurements; ++i) {
            const std::vector<Times> times = MeasureInTurns(candidates, kRounds);
            means[0].push_back(times[0].mean);
            means[1].push_back(times[1].mean);
            ratios.push_back(times[1].mean / times[0].mean);
        }
        const auto [least, greatest] = std::minmax_element(ratios.begin(), ratios.end());
        fmt::print("{:<7} {:<15} {:6.1f} {:6.1f}   {:.3f} ({:.3f} to {:.3f})\n", name,
                   withDistance ? "with a distance" : "", Median(means[0]), Median(means[1]),
                   Median(ratios), *least, *greatest);
    }
    const auto differences = std::count_if(points.begin(), points.end(), [&](const Point& p) {
        return before.AnswerAt(p) != after.AnswerAt(p);
    });
    fmt::print("{:<7} answers differ at {} of {} points\n", name, differences, points.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) Fail("usage: compare_readers BEFORE.so AFTER.so");
    const Reader before(argv[1]);
    const Reader after(argv[2]);
    const Points land = LandPoints(*MapDatabase(OFFLINETZ_WORLD_DATABASE), kPoints);
    fmt::print("mean of a lookup, ns    before  after   ratio (least and greatest of {})\n",
               kMeasurements);
    Compare(before, after, "land", land);
    Compare(before, after, "sphere", SpherePoints(kPoints));
    return 0;
}
