#include "timing.h"

#include <algorithm>

namespace bench {

namespace {

using std::chrono::steady_clock;

// A percentile of values, which it reorders.
double Percentile(std::vector<double>* values, size_t percent) {
    const size_t place = std::min(values->size() * percent / 100, values->size() - 1);
    const auto at = values->begin() + static_cast<std::ptrdiff_t>(place);
    std::nth_element(values->begin(), at, values->end());
    return *at;
}

double MeanOfLoop(const Candidate& candidate) {
    const auto start = steady_clock::now();
    for (const Point& p : *candidate.points)
        candidate.look(p);
    return NanosecondsSince(start) / static_cast<double>(candidate.points->size());
}

Times OneRound(const Candidate& candidate) {
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

double MedianOf(const std::vector<Times>& rounds, double Times::*figure) {
    std::vector<double> values;
    values.reserve(rounds.size());
    for (const Times& times : rounds)
        values.push_back(times.*figure);
    return Median(std::move(values));
}

}  // namespace

double NanosecondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double, std::nano>(steady_clock::now() - start).count();
}

double ClockNanoseconds() {
    constexpr int kReadings = 1000000;
    const auto start = steady_clock::now();
    for (int i = 1; i < kReadings; ++i)
        steady_clock::now();
    return NanosecondsSince(start) / kReadings;
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
            all[i].push_back(OneRound(candidates[i]));
    }
    std::vector<Times> result;
    result.reserve(all.size());
    for (const std::vector<Times>& times : all) {
        result.push_back({MedianOf(times, &Times::mean), MedianOf(times, &Times::median),
                          MedianOf(times, &Times::p99)});
    }
    return result;
}

}  // namespace bench
