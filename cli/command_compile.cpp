// offlinetz compile: boundary polygons to a database.
#include <fmt/format.h>
#include <sha1.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "commands.h"
#include "compiler/compile.h"
#include "compiler/source.h"
#include "database/open_database.h"
#include "options.h"
#include "progress.h"

namespace {

using offlinetz::CompileOptions;
using offlinetz::CompileSummary;

constexpr uint64_t kParserLimit = 0xFFFFFFFF;      // The parser takes no longer text.
constexpr uint64_t kLargestDatabase = 0x7FFFFFFF;  // The format holds no more bytes.

double PeakMegabytes() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void PrintSummary(const CompileOptions& options, const CompileSummary& s, double seconds) {
    // Where the database went to standard output, its description cannot.
    FILE* const to = options.output == "-" ? stderr : stdout;
    const auto print = [to](const char* name, const std::string& text) {
        std::fprintf(to, "%-13s %s\n", name, text.c_str());
    };
    print("zones", fmt::format("{} from {} features, {} sea features left out", s.zones, s.features,
                               s.seaFeatures));
    const offlinetz::LeftOut& bad = s.leftOut;
    if (bad.features + bad.polygons + bad.zones > 0) {
        print("left out",
              fmt::format("bad features: {}, polygons of others: {}, zones: {}; together {:.2f} km2"
                          "{}",
                          bad.features, bad.polygons, bad.zones, bad.km2,
                          bad.ofUnknownArea > 0
                                  ? fmt::format(" and {} of unknown area", bad.ofUnknownArea)
                                  : ""));
    }
    print("points", fmt::format("{} in, {} out in {} rings", s.pointsIn, s.pointsOut, s.rings));
    print("tiles",
          fmt::format("{} with {} rings and {} points", s.tiles, s.entries, s.entryPoints));
    print("grid",
          fmt::format(
                  "points added where edges meet: {}; flat rings kept as boxes: {}, dropped: {}",
                  s.pointsAdded, s.snap.boxed, s.snap.dropped));
    print("displacement", fmt::format("at most {:.1f} m by simplification and {:.1f} m by the grid",
                                      s.greatestSimplification, s.greatestRounding));
    print("bytes", fmt::format("{}: header {}, box table {}, metadata {}, polygons {}, digest {}",
                               s.fileSize, s.sizes.header, s.sizes.boxTable, s.sizes.metadata,
                               s.sizes.polygons, int{SHA1HashSize}));
    if (options.selfCheckPoints > 0) {
        print("self-check",
              fmt::format("{} points, {} of them near a border: {} differ from the source, at most "
                          "{:.1f} m from a border; {} further than allowed",
                          s.selfCheck.points, s.selfCheck.nearBorder, s.selfCheck.differences,
                          s.selfCheck.greatestMetres, s.selfCheck.failures.size()));
    }
    print("took", fmt::format("{:.1f} s and {:.0f} MB of memory", seconds, PeakMegabytes()));
}

int RunCompile(const CompileOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    Progress progress;
    offlinetz::StartGeometry();
    offlinetz::CompileListener listener;
    listener.warn = [&](const std::string& line) { progress.PrintMessage("note: " + line); };
    listener.progress = progress.Callback();
    CompileSummary summary;
    try {
        summary = offlinetz::Compile(options, listener);
    } catch (const offlinetz::InputError& error) {
        for (const std::string& line : error.Lines())
            progress.PrintMessage("error: " + line);
        if (!error.Conclusion().empty()) {
            progress.PrintMessage("Nothing written: " + error.Conclusion());
        }
        return kExitFailed;
    }
    for (const std::string& failure : summary.selfCheck.failures) {
        progress.PrintMessage("error: self-check: " + failure);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    progress.Show("", 0, 0);
    PrintSummary(options, summary, took.count());
    if (!summary.selfCheck.failures.empty()) {
        progress.PrintMessage("Nothing written: the self-check failed");
        return kExitFailed;
    }
    return kExitOk;
}

}  // namespace

void AddCompileCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<CompileOptions>();
    CLI::App* command = app->add_subcommand(
            "compile", "Compiles boundary polygons (GeoJSON, plain or gzip) to a database");
    command->add_option(
                   "INPUT", options->inputs,
                   "FeatureCollections, text sequences or lines of features, polygons with a tzid "
                   "property; - for standard input")
            ->required();
    command->add_option("-o,--output", options->output,
                        "Database file to write; - for standard output")
            ->required();
    command->add_option("--tzid-property", options->tzidProperty,
                        "Property that names the zone of a feature")
            ->capture_default_str();
    command->add_option("--data-version", options->version, "Version byte")
            ->check(WholeNumber(0, 255))
            ->capture_default_str();
    command->add_option("--notice", options->notice,
                        "Data release and attribution, up to 255 bytes");
    command->add_option("--precision", options->precision,
                        "Grid of 2^(N-1) units per 90 degrees of latitude and 180 of longitude; "
                        "only 21 fits the answers at sea")
            ->check(CLI::Range(offlinetz::Grid::kMinPrecision, offlinetz::Grid::kMaxPrecision))
            ->capture_default_str();
    command->add_option("--tolerance", options->toleranceMetres,
                        "Metres that borders may move to save points; 0 for none")
            ->check(CLI::Range(0.0, 100000.0))
            ->check(CLI::Validator(
                    [](const std::string& text) {
                        return !std::isnan(std::strtod(text.c_str(), nullptr))
                                       ? std::string()
                                       : "not a number of metres: " + text;
                    },
                    ""))
            ->capture_default_str();
    command->add_option(
                   "--max-tile-points", options->maxTilePoints,
                   "Tile the world into boxes of at most so many points, large boxes of fewer; "
                   "0 keeps rings whole")
            ->check(WholeNumber(0, 1000000))
            ->check(CLI::Validator(
                    [](const std::string& text) {
                        // Tiles of fewer points would mostly hold the corners of their fences.
                        const unsigned long points = std::strtoul(text.c_str(), nullptr, 10);
                        return points == 0 || points >= 32 ? std::string()
                                                           : "neither 0 nor at least 32: " + text;
                    },
                    ""))
            ->capture_default_str();
    command->add_flag("--bare", options->bareIdentifiers,
                      "Store identifiers without the double quotes at both ends");
    command->add_option("--self-check", options->selfCheckPoints,
                        "Look up so many points and compare with the input")
            ->check(WholeNumber(0, 1000000000));
    command->add_flag(
            "--cross-antimeridian", options->crossAntimeridian,
            "Have edges of more than 180 degrees of longitude cross the antimeridian, and "
            "cut polygons there, instead of refusing them");
    command->add_flag(
            "--skip-bad", options->skipBad,
            "Leave out polygons and features that cannot be read, and list them with their "
            "areas, instead of refusing the whole input");
    command->add_option("--max-input", options->maxInputBytes,
                        "Refuse a file of more bytes, unpacked; with a unit like 2GiB if you like")
            ->transform(CLI::AsSizeValue(false))
            ->check(CLI::Range(uint64_t{1}, kParserLimit))
            ->capture_default_str();
    command->add_option("--max-output", options->maxOutputBytes,
                        "Refuse input that makes a larger database; with a unit like 128MiB if you "
                        "like")
            ->transform(CLI::AsSizeValue(false))
            ->check(CLI::Range(uint64_t{1}, kLargestDatabase))
            ->capture_default_str();
    command->callback([options, exitCode] { *exitCode = RunCompile(*options); });
}
