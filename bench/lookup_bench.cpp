// Measures the reader and its peers in one run and writes the report, DIRECTORY/RESULTS.md, with
// the numbers of its pictures beside it. make_bench_inputs fills the directory before.
//
// Usage: lookup_bench DIRECTORY
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <string>

#include "files.h"
#include "machine.h"
#include "sections.h"
#include "timing.h"

namespace {

std::string Introduction() {
    return "# Measurements\n\n"
           "Made in one run by `bench/make-results`, which fetches the boundary polygons, compiles "
           "them, measures, and writes this file and its pictures. Lookups are made by one "
           "thread.\n\n" +
           bench::DescribeMachine() +
           fmt::format(
                   "\nCandidates take turns over the same points, several rounds of them, so that "
                   "what disturbs the machine disturbs all alike; each figure is the median over "
                   "the rounds. Means are those of a loop without a clock in it. Medians and 99 % "
                   "are of single lookups, each between two readings of a steady clock, one of "
                   "which, {:.0f} ns, each time holds. Compare the figures of one run only, and "
                   "trust "
                   "none of a machine that had other work.\n",
                   bench::ClockNanoseconds());
}

void Measure(const std::string& directory) {
    using namespace bench;
    struct {
        const char* name;
        std::string (*make)(const std::string&);
    } const sections[] = {{"peers", PeersSection},
                          {"plain reading", PlainReadingSection},
                          {"opening", OpeningSection},
                          {"size", SizeSection},
                          {"safe radius", SafeRadiusSection},
                          {"growth", GrowthSection}};
    std::string report = Introduction();
    for (const auto& section : sections) {
        std::fprintf(stderr, "measuring: %s\n", section.name);
        report += "\n" + section.make(directory);
    }
    WriteFile(directory + "/RESULTS.md", report.data(), report.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    try {
        Measure(argv[1]);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
    return 0;
}
