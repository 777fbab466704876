// offlinetz compile: compiles boundary polygons to a database.
#include <fmt/format.h>
#include <sha1.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "compiler/compile.h"
#include "compiler/source.h"
#include "database/open_database.h"
#include "inspector/zone_tables.h"
#include "options.h"
#include "progress.h"

namespace {

using offlinetz::CompileOptions;
using offlinetz::CompileSummary;

constexpr uint64_t kParserLimit = 0xFFFFFFFF;      // Bytes of text that the JSON parser accepts.
constexpr uint64_t kLargestDatabase = 0x7FFFFFFF;  // Bytes that the file format can address.

double PeakMegabytes() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void PrintSummary(const CompileOptions& options, const CompileSummary& s, double seconds) {
    // Standard output may have received the database itself.
    FILE* const to = options.output == "-" ? stderr : stdout;
    const auto print = [to](const char* name, const std::string& text) {
        std::fprintf(to, "%-13s %s\n", name, text.c_str());
    };
    print("zones", fmt::format("{} from {} features, {} sea features left out", s.zones, s.features,
                               s.seaFeatures));
    if (s.otherFeatures > 0)
        print("not wanted", fmt::format("{} features of other zones", s.otherFeatures));
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
    std::fprintf(to, "%s\n", TextOf(s.certificate).c_str());
    if (s.certificate.exceeding > 0)
        print("exceeding", fmt::format("{} edges exceed --max-error", s.certificate.exceeding));
    print("bytes", fmt::format("{}: header {}, box table {}, metadata {}, polygons {}, digest {}",
                               s.fileSize, s.sizes.header, s.sizes.boxTable, s.sizes.metadata,
                               s.sizes.polygons, int{SHA1HashSize}));
    if (options.selfCheckPoints > 0) {
        print("self-check",
              fmt::format("{} points, {} of them near a border, and {} beside the worst edges: {} "
                          "differ from the source, the furthest {} from a border; {} further than "
                          "certified",
                          s.selfCheck.points, s.selfCheck.nearBorder, s.selfCheck.probes,
                          s.selfCheck.differences,
                          offlinetz::DifferenceText(s.selfCheck.greatestMetres),
                          s.selfCheck.failures.size()));
    }
    print("took", fmt::format("{:.1f} s and {:.0f} MB of memory", seconds, PeakMegabytes()));
}

// Where new names of zones come from. Empty: from nowhere.
struct NewNames {
    std::string links;   // A file of links.
    std::string tables;  // Time zone tables.
};

// The new names of each zone.
offlinetz::ZoneLinks LinksOf(const NewNames& from) {
    if (from.links.empty()) return {};
    offlinetz::ZoneLinks links = offlinetz::ReadLinks(from.links);
    if (from.tables.empty()) return links;
    const offlinetz::ZoneTables tables = offlinetz::ReadZoneTables(from.tables);
    const auto has = [&](const std::string& name) { return tables.tableOf.count(name) > 0; };
    offlinetz::ZoneLinks needed;
    for (const auto& [target, names] : links) {
        if (has(target)) continue;
        std::vector<std::string> known;
        std::copy_if(names.begin(), names.end(), std::back_inserter(known), has);
        if (!known.empty()) needed[target] = known;
    }
    return needed;
}

int RunCompile(CompileOptions options, const NewNames& names) {
    const auto start = std::chrono::steady_clock::now();
    Progress progress;
    offlinetz::StartGeometry();
    offlinetz::CompileListener listener;
    listener.warn = [&](const std::string& line) { progress.PrintMessage("note: " + line); };
    listener.progress = progress.Callback();
    CompileSummary summary;
    try {
        options.zones.names = LinksOf(names);
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
    const auto names = std::make_shared<NewNames>();
    CLI::App* command = app->add_subcommand(
            "compile", "Compiles boundary polygons (GeoJSON, plain or gzip) to a database");
    command->add_option("INPUT", options->inputs,
                        "FeatureCollections, GeoJSON text sequences, or one feature a line; - is "
                        "standard input")
            ->required()
            ->type_name("");
    command->add_option("-o,--output", options->output,
                        "Database file to write; - is standard output")
            ->required()
            ->type_name("FILE");
    command->add_option("--tzid-property", options->tzidProperty,
                        fmt::format("Property that names the zone of a feature (default: {})",
                                    options->tzidProperty))
            ->type_name("NAME");
    command->add_option("--rename", names->links,
                        "Links as the file backward of tzdata has them (lines Link TARGET NAME): "
                        "zones named TARGET become NAME")
            ->check(NamesFile())
            ->type_name("FILE");
    command->add_option("--zoneinfo", names->tables,
                        "Rename only what these time zone tables lack, to a name that they have: "
                        "a directory, or the tzdata file of a device")
            ->check(NamesFile())
            ->type_name("PATH")
            ->needs("--rename");
    command->add_option("--only", options->zones.only, "Keep this zone only; may be repeated")
            ->type_name("ZONE")
            ->expected(1)
            ->take_all();
    command->add_option("--without", options->zones.without, "Leave this zone out; may be repeated")
            ->type_name("ZONE")
            ->expected(1)
            ->take_all();
    command->add_option(
                   "--data-version", options->version,
                   fmt::format("Version byte, by which clients tell databases apart (0 to 255, "
                               "default {})",
                               options->version))
            ->check(WholeNumber(0, 255))
            ->type_name("NUMBER");
    command->add_option("--notice", options->notice,
                        "Data release and attribution, up to 255 bytes (default: empty)")
            ->type_name("TEXT");
    command->add_option(
                   "--precision", options->precision,
                   fmt::format("Precision N of the grid, {} to {}: 2^(N-1) units in 90 degrees of "
                               "latitude and in 180 of longitude; answers at sea are right with 21 "
                               "only (default {})",
                               offlinetz::Grid::kMinPrecision, offlinetz::Grid::kMaxPrecision,
                               options->precision))
            ->check(CLI::Range(offlinetz::Grid::kMinPrecision, offlinetz::Grid::kMaxPrecision)
                            .description(""))
            ->type_name("N");
    command->add_option("--max-error", options->maxErrorMetres,
                        fmt::format("Metres from a source border within which answers may differ "
                                    "from the source (0 to 100000, default {}); more makes a "
                                    "smaller file; 0 keeps every point",
                                    options->maxErrorMetres))
            ->check(Number(0.0, 100000.0))
            ->type_name("METRES");
    command->add_flag("--exceed-max-error", options->exceedMaxError,
                      "Write the database even if some edges cannot meet --max-error (default: "
                      "list them and fail)");
    // Smaller tiles would mostly hold the corners of their own clip rectangles.
    constexpr uint64_t kFewestTilePoints = 32;
    constexpr uint64_t kMostTilePoints = 1000000;
    command->add_option(
                   "--max-tile-points", options->maxTilePoints,
                   fmt::format(
                           "Most points in a small tile, {} to {}, or 0 for whole rings without "
                           "tiles; larger tiles may hold fewer (default {})",
                           kFewestTilePoints, kMostTilePoints, options->maxTilePoints))
            ->check(WholeNumber(kFewestTilePoints, kMostTilePoints, true))
            ->type_name("POINTS");
    command->add_flag("--bare", options->bareIdentifiers,
                      "Store identifiers without double quotes around them (default: with)");
    command->add_option(
                   "--self-check", options->selfCheckPoints,
                   "Compare the answers at this many points with the input before writing (0 to "
                   "1000000000, default 0)")
            ->check(WholeNumber(0, 1000000000))
            ->type_name("POINTS");
    command->add_flag("--cross-antimeridian", options->crossAntimeridian,
                      "Let edges of more than 180 degrees of longitude cross the antimeridian, and "
                      "cut polygons there (default: refuse them)");
    command->add_flag("--skip-bad", options->skipBad,
                      "Leave out invalid polygons and features, and list them with their areas "
                      "(default: refuse the whole input)");
    command->add_option("--max-input", options->maxInputBytes,
                        fmt::format("Refuse an input file of more bytes, unpacked; units such as "
                                    "2GiB are accepted (1 to {}, default {}MiB)",
                                    kParserLimit, options->maxInputBytes >> 20))
            ->transform(CLI::AsSizeValue(false).description(""))
            ->check(CLI::Range(uint64_t{1}, kParserLimit).description(""))
            ->type_name("BYTES");
    command->add_option("--max-output", options->maxOutputBytes,
                        fmt::format("Refuse input that makes a larger database; units such as "
                                    "128MiB are accepted (1 to {}, default {}MiB)",
                                    kLargestDatabase, options->maxOutputBytes >> 20))
            ->transform(CLI::AsSizeValue(false).description(""))
            ->check(CLI::Range(uint64_t{1}, kLargestDatabase).description(""))
            ->type_name("BYTES");
    command->footer(
            "A feature is a Polygon or a MultiPolygon in degrees (WGS 84) with a property\n"
            "that names its zone. Features of one zone are joined.\n"
            "\n"
            "Exit code: 0 the database is written; 1 the input is not valid, it cannot meet\n"
            "--max-error, or the self-check failed, and nothing is written; 2 the command line\n"
            "is not valid.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz compile zones.geojson -o new.bin --data-version 2\n"
            "  $ offlinetz compile zones.geojson.gz -o new.bin --self-check 20000\n"
            "  $ offlinetz compile zones.geojson -o - --max-tile-points 0 >whole.bin");
    command->callback([options, names, exitCode] { *exitCode = RunCompile(*options, *names); });
}
