// offlinetz lookup: the zones that contain a point, for one point or for lines of points.
#include <LookupInterface.h>
#include <fmt/format.h>
#include <offlinetz.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "csv.h"
#include "database/open_database.h"
#include "json_text.h"
#include "lines.h"
#include "message.h"
#include "options.h"
#include "points.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

constexpr double kLeastRadius = 0.01;  // In km. A smaller radius is not printed as a number.
constexpr char kNoZone[] =
        "no zone";  // The error where a database has neither zone nor nautical zone.

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
    size_t maxRow = LineFormat().maxRow;
    size_t jobs = std::max(std::thread::hardware_concurrency(), 1u);
};

// The exact text that a client of the service gets. Also writes the service's log of the lookup.
std::string ClientText(const ZDDatabase& database, double lat, double lon) {
    float distance = 0.0f;
    const std::unique_ptr<char, decltype(&std::free)> text(
            LookupTzIdIn(&database, static_cast<float>(lat), static_cast<float>(lon), &distance),
            &std::free);
    if (text == nullptr) throw std::bad_alloc();
    return text.get();
}

// What all answers share: the database and the texts of its zones.
class ZoneTexts {
  public:
    explicit ZoneTexts(const offlinetz_database& database) : mDatabase(database) {
        for (int32_t id = 0; id < offlinetz_zone_count(&database); ++id) {
            const char* const name = offlinetz_zone_name(&database, id);
            mPrintable.push_back(Printable(name));
            AppendJsonString(name, &mJson.emplace_back());
        }
    }

    const offlinetz_database& Database() const { return mDatabase; }
    const std::string& PrintableOf(int32_t id) const { return mPrintable[static_cast<size_t>(id)]; }
    const std::string& JsonOf(int32_t id) const { return mJson[static_cast<size_t>(id)]; }

  private:
    const offlinetz_database& mDatabase;
    std::vector<std::string> mPrintable;
    std::vector<std::string> mJson;
};

// The answers of the database.
class LookupAnswers : public Answers {
  public:
    LookupAnswers(const LookupOptions& options, const ZoneTexts& texts, const ZDDatabase& reader,
                  const PointColumns& points)
        : mOptions(options), mTexts(texts), mOffsets(points.lats.size() + 1) {
        constexpr ptrdiff_t kStride = sizeof(double);
        const size_t count = points.lats.size();
        const double* const lats = points.lats.data();
        const double* const lons = points.lons.data();
        const auto findAll = [&] {
            return offlinetz_find_all(&texts.Database(), count, lats, kStride, lons, kStride,
                                      mOffsets.data(), mIds.data(), mIds.size());
        };
        mIds.resize(count + count / 16);
        const size_t needed = findAll();
        if (needed > mIds.size()) {
            mIds.resize(needed);
            findAll();
        }
        if (options.radius) {
            mRadii.resize(count);
            offlinetz_find_many(&texts.Database(), count, lats, kStride, lons, kStride, nullptr, 0,
                                mRadii.data(), kStride);
        }
        for (size_t i = 0; (options.raw || options.verbose) && i < count; ++i)
            mRaw.push_back(ClientText(reader, lats[i], lons[i]));
    }

    bool IsError(size_t i) const override { return FirstId(i) < 0; }

    void AppendText(size_t i, std::string* row) const override {
        AppendZones(i, row);
        if (!mOptions.radius) return;
        if (mRadii[i] < kLeastRadius) {
            row->append("\tless than 10 m from a border");
        } else {
            fmt::format_to(std::back_inserter(*row), "\tholds within {:.2f} km", mRadii[i]);
        }
    }

    void AppendFields(size_t i, char separator, std::string* row) const override {
        std::string zones;
        AppendZones(i, &zones);
        row->push_back(separator);
        AppendField(zones, separator, row);
        if (mOptions.radius)
            fmt::format_to(std::back_inserter(*row), "{}{:.2f}", separator, mRadii[i]);
    }

    void AppendMembers(size_t i, const AnswerKeys& keys, std::string* row) const override {
        const auto begin = [row](const std::string& key) {
            row->append(",\"").append(key).append("\":");
        };
        if (IsError(i)) {
            begin(keys.error);
            AppendJsonString(kNoZone, row);
        } else {
            begin(keys.zones);
            for (int64_t at = mOffsets[i]; at < mOffsets[i + 1]; ++at)
                row->append(1, at == mOffsets[i] ? '[' : ',').append(mTexts.JsonOf(IdAt(at)));
            row->push_back(']');
        }
        if (mOptions.raw) {
            begin(keys.raw);
            AppendJsonString(mRaw[i], row);
        }
        if (mOptions.radius) {
            begin(keys.radius);
            AppendJsonNumber("", mRadii[i], row);
        }
    }

  private:
    int32_t IdAt(int64_t place) const { return mIds[static_cast<size_t>(place)]; }
    int32_t FirstId(size_t i) const { return IdAt(mOffsets[i]); }

    void AppendZones(size_t i, std::string* row) const {
        if (mOptions.raw) {
            row->append(mRaw[i]);
        } else if (IsError(i)) {
            row->append("error:").append(kNoZone);
        } else {
            for (int64_t at = mOffsets[i]; at < mOffsets[i + 1]; ++at) {
                if (at > mOffsets[i]) row->push_back(' ');
                row->append(mTexts.PrintableOf(IdAt(at)));
            }
        }
    }

    const LookupOptions& mOptions;
    const ZoneTexts& mTexts;
    std::vector<int64_t> mOffsets;
    std::vector<int32_t> mIds;
    std::vector<double> mRadii;
    std::vector<std::string> mRaw;
};

struct LibraryCloser {
    void operator()(offlinetz_database* database) const { offlinetz_close(database); }
};

int RunLookup(const LookupOptions& options, bool onePoint) {
    UseLog(options.verbose);
    const std::optional<PointText> point = PointOfArguments(onePoint, options.lat, options.lon);
    const offlinetz::DatabasePtr reader =
            offlinetz::OpenDatabase(options.database, !options.noVerify);
    offlinetz_database* opened;
    const offlinetz_status status =
            offlinetz_open_memory(ZDGetMapping(reader.get()), offlinetz::FileSize(*reader),
                                  OFFLINETZ_SKIP_DIGEST, &opened);
    const std::unique_ptr<offlinetz_database, LibraryCloser> database(opened);
    if (status != OFFLINETZ_OK)
        throw std::runtime_error(options.database + ": " + offlinetz_message(opened));
    if (options.radius && offlinetz_has_radius(opened) == 0)
        throw std::runtime_error(options.database + ": is not tiled, so it has no safe radius");
    const ZoneTexts texts(*database);
    LineFormat format;
    format.json = options.json;
    format.latColumn = options.latColumn;
    format.lonColumn = options.lonColumn;
    format.answerColumns = {"zone"};
    if (options.radius) format.answerColumns.push_back("radius_km");
    format.hasColumnOptions = true;
    format.maxRow = options.maxRow;
    // The service's log has the order of the points.
    format.jobs = options.verbose ? 1 : options.jobs;
    format.answer = [&](const PointColumns& points) {
        return std::make_unique<LookupAnswers>(options, texts, *reader, points);
    };
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
    command->add_flag("--raw", options->raw,
                      "Print the exact text that a client of the service gets");
    command->add_flag(
            "--radius", options->radius,
            "Also print the safe radius in km: all points within it have the same answer");
    command->add_option("--jobs", options->jobs,
                        "Number of threads that look up lines (default: the processor's)")
            ->type_name("N")
            ->check(WholeNumber(1, 1024));
    command->add_option("--max-row", options->maxRow,
                        "Length of the longest line or row in bytes (default: 1048576)")
            ->type_name("BYTES")
            ->check(WholeNumber(1, size_t{1} << 30));
    command->add_flag("--verbose", options->verbose, "Print the service's log on standard error");
    command->footer(
            "Without LAT and LON, each line of standard input is a point: a latitude and a\n"
            "longitude, separated by blanks, a comma or a semicolon, or degrees with N, S,\n"
            "E or W. If the first line names a latitude and a longitude column, the input is\n"
            "a table (CSV, fields separated by commas, semicolons or tabs); each row is\n"
            "printed with its zone as an additional column. The rows have the order of the\n"
            "input, whatever the number of threads.\n"
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
