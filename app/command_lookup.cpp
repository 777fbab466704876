// offlinetz lookup: which zones contain a point, for one point or for lines of points.
#include <LookupInterface.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "answer.h"
#include "commands.h"
#include "database.h"
#include "lines.h"
#include "message.h"
#include "points.h"
#include "printable.h"
#include "program_files.h"
#include "safe_radius.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

struct LookupOptions {
    std::string database = BesideProgram(OFFLINETZ_WORLD_DATABASE);
    std::string lat;
    std::string lon;
    bool json = false;
    bool raw = false;
    bool radius = false;
    std::string latColumn;
    std::string lonColumn;
    bool verbose = false;
    bool noVerify = false;
};

struct Answer {
    std::string raw;  // The exact text that a client of the service gets.
    double radiusKilometres = 0.0;
};

Answer LookUp(const LookupOptions& options, const ZDDatabase* database, const PointText& point) {
    Answer answer;
    float distance = 0.0f;
    const std::unique_ptr<char, decltype(&std::free)> text(
            LookupTzIdIn(database, static_cast<float>(point.lat), static_cast<float>(point.lon),
                         &distance),
            &std::free);
    if (text == nullptr) throw std::bad_alloc();
    answer.raw = text.get();
    if (options.radius) {
        answer.radiusKilometres = SafeRadiusKilometres(database, point, answer.raw, distance);
    }
    return answer;
}

LineAnswer Format(const LookupOptions& options, const PointText& point, const Answer& answer) {
    LineAnswer formatted;
    if (options.json) {
        formatted.object = AnswerJson(point, answer.raw, options.raw);
        if (options.radius) formatted.object["radius_km"] = answer.radiusKilometres;
        return formatted;
    }
    formatted.text =
            options.raw
                    ? answer.raw
                    : Printable(fmt::format("{}", fmt::join(SplitIdentifiers(answer.raw), " ")));
    formatted.columns = {formatted.text};
    if (options.radius) {
        formatted.text += fmt::format("\tholds within {:.2f} km", answer.radiusKilometres);
        formatted.columns.push_back(fmt::format("{:.2f}", answer.radiusKilometres));
    }
    return formatted;
}

int RunLookup(const LookupOptions& options, bool onePoint) {
    UseLog(options.verbose);
    PointText point;
    try {
        if (onePoint) point = ParsePoint(options.lat + " " + options.lon);
    } catch (const std::invalid_argument& error) {
        PrintMessage(error.what());
        return kExitUsage;
    }
    const DatabasePtr database = OpenDatabase(options.database, !options.noVerify);
    if (options.radius && !IsTiled(database.get())) {
        throw std::runtime_error(options.database +
                                 ": is not tiled, so how far an answer holds is not known");
    }
    int exitCode = kExitOk;
    const auto answer = [&](const PointText& where) {
        const Answer found = LookUp(options, database.get(), where);
        if (IsError(found.raw)) exitCode = kExitFailed;
        return Format(options, where, found);
    };
    if (onePoint) {
        const LineAnswer found = answer(point);
        std::printf("%s\n", options.json ? OneLine(found.object).c_str() : found.text.c_str());
    } else if (!AnswerLines({options.json, options.latColumn, options.lonColumn,
                             options.radius ? std::vector<std::string>{"zone", "radius_km"}
                                            : std::vector<std::string>{"zone"}},
                            answer)) {
        exitCode = kExitFailed;
    }
    return exitCode;
}

}  // namespace

void AddLookupCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<LookupOptions>();
    CLI::App* command = app->add_subcommand(
            "lookup", "Names the time zone of a point, or of each line of standard input");
    auto* lat = command->add_option("LAT", options->lat,
                                    "Latitude in degrees, north positive; or LAT,LON in one word");
    command->add_option("LON", options->lon, "Longitude in degrees, east positive");
    command->add_option("--db", options->database,
                        "Database file, where it is not the world that comes with the program");
    command->add_flag("--no-verify", options->noVerify,
                      "Answer from a database whose digest does not match its content");
    command->add_flag("--json", options->json, "One JSON object a line");
    command->add_option("--lat", options->latColumn,
                        "The table's column of latitudes, where it has no usual name");
    command->add_option("--lon", options->lonColumn, "The same of longitudes");
    command->add_flag("--raw", options->raw, "The exact text that a client of the service gets");
    command->add_flag(
            "--radius", options->radius,
            "Also how far the answer holds: no point within so many kilometres has another");
    command->add_flag("--verbose", options->verbose, "The service's log on standard error");
    command->footer(
            "Lines hold a latitude and a longitude with blanks or a comma between them, or degrees "
            "with N, S, E or W. A table whose first line names its columns (lat and lon, latitude "
            "and longitude, y and x, ...) keeps them and gets the zone as one more. Each line "
            "gives "
            "a row; one that makes no sense gives an error row and is reported, and the exit code "
            "is 1.");
    command->callback(
            [options, lat, exitCode] { *exitCode = RunLookup(*options, lat->count() > 0); });
}
