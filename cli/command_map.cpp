// offlinetz map: a page that shows a database on a map and answers lookups without a network.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "compiler/geometry.h"
#include "compiler/simplify.h"
#include "database/answer.h"
#include "database/encode.h"
#include "database/output_file.h"
#include "inspected.h"
#include "inspector/areas.h"
#include "inspector/differences.h"
#include "inspector/geojson.h"
#include "options.h"
#include "progress.h"

namespace {

using offlinetz::Grid;

// Tolerance of the borders that the page draws when the whole world is visible: at most two pixels.
// At higher zoom the page draws the rings that lookups read.
constexpr double kDrawnToleranceMetres = 1000.0;

// The farthest that a ring of this world may reach beyond the world's edge, in units. The
// compiler's rings reach at most eight.
constexpr int32_t kBeyondEdge = 64;

// The element of the template page in which the data replaces "null".
constexpr char kDataElement[] = "<script id=\"data\" type=\"application/json\">null</script>";
constexpr size_t kOffsetOfNull = sizeof kDataElement - sizeof "null</script>";

struct MapOptions {
    std::string file;
    std::string newFile;
    std::string output;
    double leastSquareKilometres = 0.01;
};

// Base64 (RFC 4648).
std::string Base64(const uint8_t* bytes, size_t length) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((length + 2) / 3 * 4);
    for (size_t i = 0; i < length; i += 3) {
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k)
            group = (group << 8) | (i + k < length ? bytes[i + k] : 0u);
        for (size_t k = 0; k < 4; ++k)
            text += i + k > length ? '=' : kDigits[(group >> (18 - 6 * k)) & 63];
    }
    return text;
}

std::string ReadPage(const std::string& path) {
    const auto bytes = offlinetz::ReadFileBytes(path);
    return {bytes->begin(), bytes->end()};
}

// The rings of all zones, simplified for drawing. A database with points far beyond the world's
// edge is not simplified, because that would take hours.
std::vector<offlinetz::ZoneRings> SimplifiedRings(const InspectedFile& file) {
    const int precision = file.database->precision;
    bool canSimplify = precision >= Grid::kMinPrecision && precision <= Grid::kMaxPrecision;
    const int32_t reach = file.scale < INT32_MAX / 2 ? file.scale + kBeyondEdge : INT32_MAX;
    const offlinetz::GridBox world = {{-reach, -reach}, {reach, reach}};
    std::vector<offlinetz::ZoneRings> rings;
    for (const offlinetz::InspectedZone& zone : file.inspected.zones) {
        rings.push_back(zone.rings);
        for (const offlinetz::GridRing& ring : zone.rings)
            canSimplify = canSimplify && world.Contains(offlinetz::BoxOf(ring));
    }
    if (canSimplify) offlinetz::Simplify(&rings, Grid(precision), kDrawnToleranceMetres);
    return rings;
}

// The delta-encoded coordinates of a ring: latitude, longitude, latitude and so on, in units.
nlohmann::ordered_json DeltasOf(const offlinetz::GridRing& ring) {
    nlohmann::ordered_json deltas = nlohmann::json::array();
    offlinetz::GridPoint last;
    for (const offlinetz::GridPoint& p : ring) {
        deltas.push_back(int64_t{p.lat} - last.lat);
        deltas.push_back(int64_t{p.lon} - last.lon);
        last = p;
    }
    return deltas;
}

// The page's object for a database. Includes the zones only if `isDrawn` is set: a page of two
// databases draws only the new one.
nlohmann::ordered_json DatabaseJson(const std::string& name, const InspectedFile& file,
                                    bool isDrawn, Progress* progress) {
    const ZDDatabase& database = *file.database;
    const size_t bytes = offlinetz::FileSize(database);
    nlohmann::ordered_json object = {{"name", name},
                                     {"bytes", bytes},
                                     {"version", database.version},
                                     {"precision", database.precision},
                                     {"tiled", database.tableType == zonedetect::kTiledTable},
                                     {"notice", database.notice},
                                     {"content", Base64(database.mapping, bytes)},
                                     {"zones", nlohmann::json::array()}};
    if (!isDrawn) return object;
    progress->Show("simplifying borders", 0, 1);
    const std::vector<offlinetz::ZoneRings> simplified = SimplifiedRings(file);
    for (size_t i = 0; i < simplified.size(); ++i) {
        progress->Show("drawing", i, simplified.size());
        const offlinetz::InspectedZone& zone = file.inspected.zones[i];
        if (zone.rings.empty()) continue;
        nlohmann::ordered_json drawn = {
                {"name", zone.tzid},
                {"km2",
                 offlinetz::Rounded(offlinetz::SquareKilometres(zone.rings, file.scale), 1e1)},
                {"box", nlohmann::json::array()},
                {"rings", nlohmann::json::array()}};
        for (const double side : offlinetz::BoundsOf(zone.rings, file.scale))
            drawn["box"].push_back(offlinetz::Rounded(side, 1e4));
        for (const offlinetz::GridRing& ring : simplified[i])
            drawn["rings"].push_back(DeltasOf(ring));
        object["zones"].push_back(std::move(drawn));
    }
    return object;
}

// Escapes "<" in JSON, so that no text in it can end the script element that contains it.
std::string WithoutTags(const std::string& json) {
    std::string text;
    text.reserve(json.size());
    for (const char c : json) {
        if (c == '<') {
            text += "\\u003c";
        } else {
            text += c;
        }
    }
    return text;
}

// The changes as features, separated by commas: the inside of a JSON array.
std::string ChangeFeatures(const MapOptions& options, const InspectedFile& was,
                           const InspectedFile& is, Progress* progress) {
    const offlinetz::Differences differences = offlinetz::Compare(
            was.inspected, was.scale, is.inspected, is.scale, progress->Callback());
    std::string text;
    for (const offlinetz::Change& change : differences.changes) {
        if (change.km2 < options.leastSquareKilometres) continue;
        text += (text.empty() ? "" : ",") +
                offlinetz::FeatureOf(offlinetz::ChangeJson(change), change.area.get());
    }
    return text;
}

// The name of a file on the page: its file name, or its path if `other` has the same file name.
std::string NameOf(const std::string& path, const std::string& other) {
    const auto name = [](const std::string& p) { return std::filesystem::path(p).filename(); };
    return name(path) == name(other) ? path : name(path).string();
}

int RunMap(const MapOptions& options) {
    const std::string pagePath = BesideProgram(OFFLINETZ_MAP_PAGE);
    const bool isCompared = !options.newFile.empty();
    offlinetz::CheckOutputPath(options.output, {pagePath, options.file, options.newFile});
    std::string page = ReadPage(pagePath);
    const size_t place = page.find(kDataElement);
    if (place == std::string::npos)
        throw std::runtime_error(pagePath + ": is not the template of the map page");
    Progress progress;
    const InspectedFile file = Inspect(options.file, &progress);
    std::string data = "{\"databases\":[" +
                       offlinetz::OneLine(DatabaseJson(NameOf(options.file, options.newFile), file,
                                                       !isCompared, &progress));
    std::string changes;
    if (isCompared) {
        const InspectedFile newFile = Inspect(options.newFile, &progress);
        changes = ChangeFeatures(options, file, newFile, &progress);
        data += ',' + offlinetz::OneLine(DatabaseJson(NameOf(options.newFile, options.file),
                                                      newFile, true, &progress));
    }
    data = WithoutTags(data + "],\"changes\":[" + changes + "]}");
    page.replace(place + kOffsetOfNull, sizeof "null" - 1, data);
    offlinetz::WriteOutput(options.output, {page.begin(), page.end()});
    return kExitOk;
}

}  // namespace

void AddMapCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<MapOptions>();
    CLI::App* command = app->add_subcommand(
            "map", "Writes a page that shows a database on a map and answers lookups offline");
    command->add_option("FILE", options->file, "Database file")->required()->type_name("");
    command->add_option("NEW", options->newFile,
                        "Database file that would replace it: the page also shows what changes")
            ->type_name("");
    command->add_option("-o,--output", options->output, "Page to write; - is standard output")
            ->required()
            ->check(NamesFile())
            ->type_name("FILE");
    command->add_option("--least", options->leastSquareKilometres,
                        fmt::format("Leave out changed areas of fewer square kilometres (0 to "
                                    "1000000000, default {})",
                                    options->leastSquareKilometres))
            ->check(CLI::Range(0.0, 1e9).description(""))
            ->type_name("KM2");
    command->footer(
            "Examples:\n"
            "  $ offlinetz map world.bin -o world.html\n"
            "  $ offlinetz map old.bin new.bin -o changes.html");
    command->callback([options, exitCode] { *exitCode = RunMap(*options); });
}
