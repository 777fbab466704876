#include <fmt/format.h>
#include <reference_reader.h>

#include "files.h"
#include "input_files.h"
#include "reader.h"
#include "sections.h"
#include "timing.h"

namespace bench {

std::string PlainReadingSection(const std::string& directory) {
    constexpr size_t kPoints = 2000;
    constexpr int kRounds = 3;
    const std::string path = WorldFile(directory, kWhole, kDefaultTolerance);
    const std::string file = ReadFile(path);
    const DatabasePtr database = OpenDatabase(path);
    const oracle::ReferenceReader plain({file.begin(), file.end()});
    const std::vector<Point> points = LandPoints(database.get(), kPoints);
    const std::vector<Times> times =
            MeasureInTurns({{[&](const Point& p) { LookWithDistance(database.get(), p); }, &points},
                            {[&](const Point& p) { plain.Lookup(p.lat, p.lon); }, &points}},
                           kRounds);
    return fmt::format(
            "## Beside a plain reading\n\n"
            "A database of whole rings, {:.1f} MB, as the reader and as the tests' plain second "
            "reading of the format look up {} points on land, with a distance. Neither has "
            "an index into a ring: both read every ring whose box holds the point.\n\n"
            "| | mean, µs | median, µs | 99 %, µs |\n"
            "|---|--:|--:|--:|\n"
            "| reader | {:.1f} | {:.1f} | {:.1f} |\n"
            "| plain reading | {:.1f} | {:.1f} | {:.1f} |\n"
            "\nOn average the plain reading takes {:.1f} times as long.\n",
            static_cast<double>(file.size()) / 1e6, fmt::group_digits(kPoints), times[0].mean / 1e3,
            times[0].median / 1e3, times[0].p99 / 1e3, times[1].mean / 1e3, times[1].median / 1e3,
            times[1].p99 / 1e3, times[1].mean / times[0].mean);
}

}  // namespace bench
