// offlinetz diff: the differences between two databases.
#include <fmt/format.h>
#include <sha1.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "compiler/geometry.h"
#include "database/answer.h"
#include "database/open_database.h"
#include "database/output_file.h"
#include "database/random_points.h"
#include "inspected.h"
#include "inspector/areas.h"
#include "inspector/differences.h"
#include "inspector/geojson.h"
#include "inspector/zones.h"
#include "message.h"
#include "options.h"
#include "progress.h"

namespace {

using offlinetz::Change;
using offlinetz::Differences;

constexpr int kTimedLookups = 200000;

struct DiffOptions {
    std::string oldFile;
    std::string newFile;
    std::string geojson;
    double leastSquareKilometres = 0.01;
    bool json = false;
};

// The version byte of a database, and its size and speed.
struct Costs {
    unsigned version;
    size_t bytes;
    size_t entries;
    size_t points = 0;
    double lookupMicroseconds;
};

// The mean time of lookups at random points on the sphere, the same points in each call.
double MeanLookupMicroseconds(const ZDDatabase& database) {
    offlinetz::RandomPoints random(1);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTimedLookups; ++i) {
        const offlinetz::Degrees point = random.OnSphere();
        float distance;
        ZDFreeResults(ZDLookup(&database, static_cast<float>(point.lat),
                               static_cast<float>(point.lon), &distance));
    }
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    return took.count() / kTimedLookups;
}

Costs CostsOf(const InspectedFile& file) {
    Costs costs = {file.database->version, offlinetz::FileSize(*file.database),
                   file.inspected.entries.size(), 0, MeanLookupMicroseconds(*file.database)};
    for (const offlinetz::InspectedZone& zone : file.inspected.zones)
        costs.points += zone.points;
    return costs;
}

std::string NameOr(const std::string& zone) {
    return zone.empty() ? "(none)" : Printable(zone);
}

void PrintText(const DiffOptions& options, const Differences& d, const Costs& was,
               const Costs& is) {
    for (const std::string& zone : d.added)
        std::printf("added      %s\n", Printable(zone).c_str());
    for (const std::string& zone : d.removed)
        std::printf("removed    %s\n", Printable(zone).c_str());
    for (const auto& [from, to] : d.renamed)
        std::printf("renamed    %s is now %s\n", Printable(from).c_str(), Printable(to).c_str());
    double smaller = 0.0;
    size_t count = 0;
    for (const Change& c : d.changes) {
        if (c.km2 < options.leastSquareKilometres) {
            smaller += c.km2;
            ++count;
            continue;
        }
        std::printf("%s\n", fmt::format("changed    {:.3f} km2 from {} to {}, at {:.5f} {:.5f}, "
                                        "box {:.4f} {:.4f} {:.4f} {:.4f}",
                                        c.km2, NameOr(c.from), NameOr(c.to), c.sample[0],
                                        c.sample[1], c.box[0], c.box[1], c.box[2], c.box[3])
                                    .c_str());
    }
    if (count > 0) {
        std::printf(
                "%s\n",
                fmt::format("changed    {:.3f} km2 in {} smaller parts", smaller, count).c_str());
    }
    std::printf("version    %u, was %u\n", is.version, was.version);
    std::printf("bytes      %zu, were %zu\n", is.bytes, was.bytes);
    std::printf("entries    %zu, were %zu\n", is.entries, was.entries);
    std::printf("points     %zu, were %zu\n", is.points, was.points);
    std::printf("lookup     %.3f us, was %.3f\n", is.lookupMicroseconds, was.lookupMicroseconds);
}

nlohmann::ordered_json CostsJson(const Costs& c) {
    return {{"version", c.version},
            {"bytes", c.bytes},
            {"entries", c.entries},
            {"points", c.points},
            {"lookup_us", c.lookupMicroseconds}};
}

void PrintJson(const Differences& d, const Costs& was, const Costs& is) {
    nlohmann::ordered_json all = {{"added", d.added}, {"removed", d.removed}};
    all["renamed"] = nlohmann::ordered_json::array();
    for (const auto& [from, to] : d.renamed)
        all["renamed"].push_back({{"from", from}, {"to", to}});
    all["changes"] = nlohmann::ordered_json::array();
    for (const Change& c : d.changes)
        all["changes"].push_back(offlinetz::ChangeJson(c));
    all["old"] = CostsJson(was);
    all["new"] = CostsJson(is);
    std::printf("%s\n", offlinetz::OneLine(all).c_str());
}

void WriteMap(const std::string& path, const Differences& d) {
    std::string text = "{\"type\":\"FeatureCollection\",\"features\":[\n";
    for (size_t i = 0; i < d.changes.size(); ++i) {
        text += offlinetz::FeatureOf(offlinetz::ChangeJson(d.changes[i]), d.changes[i].area.get());
        text += i + 1 < d.changes.size() ? ",\n" : "\n";
    }
    text += "]}\n";
    offlinetz::WriteOutput(path, {text.begin(), text.end()});
}

bool HaveSameContent(const ZDDatabase& a, const ZDDatabase& b) {
    return a.length == b.length && std::equal(a.checksum, a.checksum + SHA1HashSize, b.checksum);
}

int RunDiff(const DiffOptions& options) {
    if (!options.geojson.empty()) {
        offlinetz::CheckOutputPath(options.geojson, {options.oldFile, options.newFile});
    }
    Progress progress;
    const InspectedFile was = Inspect(options.oldFile, &progress);
    const InspectedFile is = Inspect(options.newFile, &progress);
    const Differences differences = offlinetz::Compare(was.inspected, was.scale, is.inspected,
                                                       is.scale, progress.Callback());
    if (was.database->version == is.database->version &&
        !HaveSameContent(*was.database, *is.database)) {
        progress.PrintMessage(fmt::format(
                "{}: has the same version byte as {} ({}), by which clients tell databases apart",
                options.newFile, options.oldFile, is.database->version));
    }
    progress.Show("", 0, 0);
    if (!options.geojson.empty()) WriteMap(options.geojson, differences);
    if (options.geojson == "-") return kExitOk;
    if (options.json) {
        PrintJson(differences, CostsOf(was), CostsOf(is));
    } else {
        PrintText(options, differences, CostsOf(was), CostsOf(is));
    }
    return kExitOk;
}

}  // namespace

void AddDiffCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<DiffOptions>();
    CLI::App* command = app->add_subcommand("diff",
                                            "Shows the areas whose zone changes between two "
                                            "databases, and the size and lookup cost of both");
    command->add_option("OLD", options->oldFile, "Database file")->required()->type_name("");
    command->add_option("NEW", options->newFile, "Database file that would replace it")
            ->required()
            ->type_name("");
    command->add_option(
                   "--least", options->leastSquareKilometres,
                   fmt::format("List areas of at least this many square kilometres, and sum up "
                               "smaller ones (0 to 1000000000, default {})",
                               options->leastSquareKilometres))
            ->check(CLI::Range(0.0, 1e9).description(""))
            ->type_name("KM2");
    command->add_option(
                   "--geojson", options->geojson,
                   "Write all areas to FILE as GeoJSON; - is standard output, and nothing else "
                   "is printed then (default: not written)")
            ->check(NamesFile())
            ->type_name("FILE");
    command->add_flag("--json", options->json,
                      "Print one JSON object with all areas (default: text)");
    command->footer(
            "Areas are in square kilometres (km2), bounding boxes in degrees, and the mean\n"
            "time of a lookup in microseconds (us).\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz diff old.bin new.bin\n"
            "  $ offlinetz diff old.bin new.bin --least 1 --geojson changes.geojson");
    command->callback([options, exitCode] { *exitCode = RunDiff(*options); });
}
