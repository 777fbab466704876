// offlinetz lookup: the zones that contain a point, for one point or for lines of points.
#include <LookupInterface.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "database/answer.h"
#include "database/open_database.h"
#include "database/safe_radius.h"
#include "lines.h"
#include "message.h"
#include "options.h"
#include "points.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

constexpr double kLeastRadius = 0.01;  // In km. A smaller radius is not printed as a number.

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

// The exact text that a client of the service gets. Also writes the service's log of the lookup.
std::string ClientText(const ZDDatabase& database, const PointText& point) {
    float distance = 0.0f;
    const std::unique_ptr<char, decltype(&std::free)> text(
            LookupTzIdIn(&database, static_cast<float>(point.lat), static_cast<float>(point.lon),
                         &distance),
            &std::free);
    if (text == nullptr) throw std::bad_alloc();
    return text.get();
}

LineAnswer AnswerAt(const LookupOptions& options, const ZDDatabase& database,
                    const PointText& point, bool* isError) {
    const offlinetz::Answer answer = offlinetz::LookUp(database, static_cast<float>(point.lat),
                                                       static_cast<float>(point.lon));
    const double radius =
            options.radius ? offlinetz::SafeRadiusKilometres(database, point.lat, point.lon, answer)
                           : 0.0;
    const std::string raw = options.raw || options.verbose ? ClientText(database, point) : "";
    *isError = !answer.error.empty();
    LineAnswer row;
    if (options.json) {
        row.object = offlinetz::AnswerJson(point.lat, point.lon, answer);
        if (options.raw) row.object["raw"] = raw;
        if (options.radius) row.object["radius_km"] = radius;
        return row;
    }
    if (options.raw) {
        row.text = raw;
    } else if (*isError) {
        row.text = "error:" + answer.error;
    } else {
        row.text = Printable(fmt::format("{}", fmt::join(offlinetz::IdentifiersOf(answer), " ")));
    }
    row.columns = {row.text};
    if (options.radius) {
        row.text += radius < kLeastRadius ? "\tless than 10 m from a border"
                                          : fmt::format("\tholds within {:.2f} km", radius);
        row.columns.push_back(fmt::format("{:.2f}", radius));
    }
    return row;
}

int RunLookup(const LookupOptions& options, bool onePoint) {
    UseLog(options.verbose);
    const std::optional<PointText> point = PointOfArguments(onePoint, options.lat, options.lon);
    const offlinetz::DatabasePtr database =
            offlinetz::OpenDatabase(options.database, !options.noVerify);
    if (options.radius && !offlinetz::IsTiled(*database)) {
        throw std::runtime_error(options.database + ": is not tiled, so it has no safe radius");
    }
    int exitCode = kExitOk;
    const auto answer = [&](const PointText& where) {
        bool isError = false;
        LineAnswer row = AnswerAt(options, *database, where, &isError);
        if (isError) exitCode = kExitFailed;
        return row;
    };
    if (!AnswerPointOrLines(point,
                            {options.json, options.latColumn, options.lonColumn,
                             options.radius ? std::vector<std::string>{"zone", "radius_km"}
                                            : std::vector<std::string>{"zone"},
                             true},
                            answer)) {
        exitCode = kExitFailed;
    }
    return exitCode;
}

}  // namespace

void AddLookupCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<LookupOptions>();
    CLI::App* command = app->add_subcommand(
            "lookup", "Prints the time zone of a point, or of each line of standard input");
    auto* lat = command->add_option("LAT", options->lat,
                                    "Latitude in degrees, -90 to 90, north positive; or LAT,LON")
                        ->type_name("");
    command->add_option("LON", options->lon, "Longitude in degrees, -180 to 180, east positive")
            ->type_name("");
    command->add_option("--db", options->database,
                        "Database to read (default: the world that comes with the program)")
            ->type_name("FILE");
    command->add_flag(
            "--no-verify", options->noVerify,
            "Accept a database whose digest does not match its content (default: refuse)");
    command->add_flag("--json", options->json, "Print one JSON object a line (default: text)");
    command->add_option("--lat", options->latColumn,
                        "Latitude column of a table (default: lat, latitude or y)")
            ->type_name("NAME");
    command->add_option("--lon", options->lonColumn,
                        "Longitude column of a table (default: lon, lng, long, longitude or x)")
            ->type_name("NAME");
    command->add_flag("--raw", options->raw,
                      "Print the exact text that a client of the service gets");
    command->add_flag(
            "--radius", options->radius,
            "Also print the safe radius in km: all points within it have the same answer");
    command->add_flag("--verbose", options->verbose, "Print the service's log on standard error");
    command->footer(
            "Without LAT and LON, each line of standard input is a point: a latitude and a\n"
            "longitude, separated by blanks, a comma or a semicolon, or degrees with N, S,\n"
            "E or W. If the first line names a latitude and a longitude column, the input is\n"
            "a table (CSV, fields separated by commas, semicolons or tabs); each row is\n"
            "printed with its zone as an additional column.\n"
            "\n"
            "A line without a valid point gives a row with the error, and a message on\n"
            "standard error.\n"
            "\n"
            "Exit code: 0 every point has an answer; 1 a line is not valid, or the database\n"
            "cannot be used; 2 the command line is not valid.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz lookup 48.8566 2.3522\n"
            "  $ offlinetz lookup --radius 33.9S 18.4E\n"
            "  $ offlinetz lookup --json <places.csv");
    command->callback(
            [options, lat, exitCode] { *exitCode = RunLookup(*options, lat->count() > 0); });
}
