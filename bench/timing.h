// Times of lookups, taken so that what disturbs the machine disturbs all candidates alike.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include "points.h"

namespace bench {

// Nanoseconds since `start`.
double NanosecondsSince(std::chrono::steady_clock::time_point start);

// Nanoseconds that reading the clock takes: each time of a single lookup holds one reading.
double ClockNanoseconds();

double Median(std::vector<double> values);  // Not of none.

// Nanoseconds a lookup: the mean of a loop without a clock in it, the median and the 99th
// percentile of times of single lookups.
struct Times {
    double mean = 0.0;
    double median = 0.0;
    double p99 = 0.0;
};

struct Candidate {
    std::function<void(const Point&)> look;
    const std::vector<Point>* points;  // Not none.
};

// One pass to warm up, then so many rounds, in each of which every candidate looks up its points
// twice, without and with the clock. Each figure is the median over the rounds.
std::vector<Times> MeasureInTurns(const std::vector<Candidate>& candidates, int rounds);

}  // namespace bench
