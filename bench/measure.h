// Points to look up, and the times that lookups take. The same seed gives the same points.
#pragma once

#include <zonedetect.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "database/open_database.h"
#include "database/random_points.h"

namespace bench {

// Degrees, as the reader takes them.
struct Point {
    float lat;
    float lon;
};
using Points = std::vector<Point>;

// Opens a database as the service does: the reader maps the file and prints a line to standard
// output. Throws std::runtime_error where the reader refuses the file.
offlinetz::DatabasePtr MapDatabase(const std::string& path);

// Makes the answer of a point and releases it.
void LookUpWithDistance(const ZDDatabase& database, const Point& p);

// Draws `count` points. Where `database` is given, points outside all of its zones are dropped.
Points DrawPoints(size_t count, uint64_t seed,
                  const std::function<offlinetz::Degrees(offlinetz::RandomPoints*)>& draw,
                  const ZDDatabase* database = nullptr);

// Points evenly on the sphere. Those of LandPoints all lie in zones of the database.
Points SpherePoints(size_t count);
Points LandPoints(const ZDDatabase& database, size_t count);
// The cities of a table of geonames.org, by countries. Throws std::exception.
Points Cities();

double NanosecondsSince(std::chrono::steady_clock::time_point start);

// `values` must not be empty.
double Median(std::vector<double> values);

// Nanoseconds a lookup. The mean is the processor time of a loop without a clock in it: time in
// which other programs run does not count. The other figures are of single lookups, each between
// two readings of a steady clock.
struct Times {
    double mean = 0.0;
    double median = 0.0;
    double p99 = 0.0;  // The 99th percentile.
};

struct Candidate {
    std::function<void(const Point&)> look;
    const Points* points;  // Borrowed; not empty.
};

// The median times of each candidate over `rounds` rounds. Every candidate looks up all of its
// points before the first round, and twice in each round: without the clock, then with it. The
// candidates take turns within a round, so that other work on the machine slows all of them.
std::vector<Times> MeasureInTurns(const std::vector<Candidate>& candidates, int rounds);

}  // namespace bench
