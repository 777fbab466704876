// offlinetz lookup: the zones that contain a point, for one point or for lines of points.
#include <offlinetz.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "commands.h"
#include "database/open_database.h"
#include "library_database.h"
#include "lines.h"
#include "lookup_answers.h"
#include "options.h"
#include "points.h"

namespace {

constexpr char kNow[] = "now";

struct LookupOptions {
    std::string database = BesideProgram(OFFLINETZ_WORLD_DATABASE);
    std::string lat;
    std::string lon;
    bool json = false;
    LookupParts parts;
    std::string when;  // Of --time.
    std::string timeColumn;
    std::string latColumn;
    std::string lonColumn;
    bool noVerify = false;
    size_t maxRow = LineFormat().maxRow;
    size_t jobs = std::max(std::thread::hardware_concurrency(), 1u);
};

// Sets what --time and --time-column ask for. Throws UsageError (commands.h) for a text that is no
// instant.
void SetTime(bool onePoint, LookupOptions* options) {
    const bool hasColumn = !options->timeColumn.empty();
    if (hasColumn && onePoint) throw UsageError("--time-column needs a table on standard input");
    options->parts.time = hasColumn || !options->when.empty();
    if (hasColumn || options->when.empty()) return;
    try {
        options->parts.instant = options->when == kNow ? Now() : ParseInstant(options->when);
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string("--time: ") + error.what());
    }
}

int RunLookup(LookupOptions options, bool onePoint) {
    SetTime(onePoint, &options);
    UseLog(options.parts.log);
    const std::optional<PointText> point = PointOfArguments(onePoint, options.lat, options.lon);
    const offlinetz::DatabasePtr reader =
            offlinetz::OpenDatabase(options.database, !options.noVerify);
    const LibraryPtr database = OpenLibrary(*reader, options.database);
    if ((options.parts.radius || options.parts.within) &&
        offlinetz_has_borders(database.get()) == 0) {
        throw std::runtime_error(options.database +
                                 ": is not tiled, so it has no distances to borders");
    }
    const LookupAnswerer answerer(*database, *reader, options.parts);
    LineFormat format;
    format.json = options.json;
    format.latColumn = options.latColumn;
    format.lonColumn = options.lonColumn;
    format.instantColumn = options.timeColumn;
    format.answerColumns = options.parts.Columns();
    format.hasColumnOptions = true;
    format.maxRow = options.maxRow;
    // The service's log has the order of the points.
    format.jobs = options.parts.log ? 1 : options.jobs;
    format.answer = [&](const PointColumns& points) { return answerer.Answer(points); };
    return AnswerPointOrLines(point, format) ? kExitOk : kExitFailed;
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
    command->add_flag("--raw", options->parts.raw,
                      "Print the exact text that a client of the service gets");
    command->add_flag(
            "--radius", options->parts.radius,
            "Also print the radius in km within which all points have the same answer, and the "
            "nearest border with the zones beyond it");
    command->add_option("--within", options->parts.within,
                        "Also print all zones within so many metres (0 to 20100000), the nearest "
                        "first: those that are possible if a position is so accurate")
            ->check(Number(0.0, 20100000.0))
            ->type_name("METRES");
    CLI::Option* const time = command->add_flag(
            "--time{now}", options->when,
            "Also print local time, offset and abbreviation in each zone, now or at an instant as "
            "ISO 8601 writes it (--time=2026-07-01T12:00Z), by the time zone tables of the system");
    command->add_option("--time-column", options->timeColumn,
                        "The same at the instants in a column of a table")
            ->type_name("NAME")
            ->excludes(time);
    command->add_option("--jobs", options->jobs,
                        "Number of threads that look up lines (default: the processor's)")
            ->type_name("N")
            ->check(WholeNumber(1, 1024));
    command->add_option("--max-row", options->maxRow,
                        "Length of the longest line or row in bytes (default: 1048576)")
            ->type_name("BYTES")
            ->check(WholeNumber(1, size_t{1} << 30));
    command->add_flag("--verbose", options->parts.log, "Print the service's log on standard error");
    command->footer(
            "Without LAT and LON, each line of standard input is a point: a latitude and a\n"
            "longitude, separated by blanks, a comma or a semicolon, or degrees with N, S,\n"
            "E or W. If the first line names a latitude and a longitude column, the input is\n"
            "a table (CSV, fields separated by commas, semicolons or tabs); each row is\n"
            "printed with its zone as an additional column. The rows have the order of the\n"
            "input, whatever the number of threads.\n"
            "\n"
            "In names such as Etc/GMT+3 the sign is inverted: these are three hours behind\n"
            "UTC, and lie in the west.\n"
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
            "  $ offlinetz lookup --within 50 51.44 4.93\n"
            "  $ offlinetz lookup --json <places.csv\n"
            "  $ offlinetz lookup --time 48.8566 2.3522\n"
            "  $ offlinetz lookup --time-column taken <photos.csv");
    command->callback(
            [options, lat, exitCode] { *exitCode = RunLookup(*options, lat->count() > 0); });
}
