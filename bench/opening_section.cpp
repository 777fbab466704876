#include <fmt/format.h>
#include <malloc.h>

#include "input_files.h"
#include "reader.h"
#include "sections.h"
#include "timing.h"

namespace bench {

namespace {

double HeapBytes() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks) + static_cast<double>(heap.hblkhd);
}

}  // namespace

std::string OpeningSection(const std::string& directory) {
    constexpr size_t kHandles = 50;
    const std::string path = DefaultWorldFile(directory);
    const std::vector<Point> points = LandPoints(OpenDatabase(path).get(), kHandles);
    std::vector<double> opening;
    std::vector<double> first;
    double directoryBytes = 0.0;
    for (const Point& p : points) {
        auto start = std::chrono::steady_clock::now();
        const DatabasePtr database = OpenDatabase(path);
        opening.push_back(NanosecondsSince(start));
        const double heap = HeapBytes();
        start = std::chrono::steady_clock::now();
        LookWithDistance(database.get(), p);
        first.push_back(NanosecondsSince(start));
        directoryBytes = HeapBytes() - heap;
    }
    return fmt::format(
            "## Opening and the first lookup\n\n"
            "The first lookup of a handle makes the directory of the box table, which later ones "
            "use. Medians of {} handles on the tiled database, the file in the page cache.\n\n"
            "| | |\n"
            "|---|--:|\n"
            "| opening | {:.0f} µs |\n"
            "| first lookup, with a distance | {:.2f} ms |\n"
            "| heap that the directory takes | {:.0f} KB |\n",
            kHandles, Median(opening) / 1e3, Median(first) / 1e6, directoryBytes / 1e3);
}

}  // namespace bench
