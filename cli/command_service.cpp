// offlinetz service: loads the service's library and uses it as a client on a device does.
#include <fcntl.h>
#include <fmt/format.h>
#include <reader/format.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "commands.h"
#include "csv.h"
#include "database/answer.h"
#include "database/open_database.h"
#include "database_directory.h"
#include "lines.h"
#include "message.h"
#include "options.h"
#include "points.h"
#include "progress.h"
#include "service_client.h"

namespace {

constexpr int kExitNoDatabase = 3;  // Of an update: the service has no database in use.
constexpr size_t kLargestChunk = size_t{1} << 30;  // Bytes.

struct ServiceOptions {
    std::string library = BesideProgram(OFFLINETZ_SERVICE_LIBRARY);
    std::string directory = DefaultDatabaseDirectory();
    bool verbose = false;
    std::string lat;
    std::string lon;
    bool json = false;
    std::string file;
    size_t chunkSize = 65536;
    bool force = false;
};

// Redirects standard output to /dev/null during its lifetime, because the service prints a line
// there each time it opens a database. Not thread-safe.
class SilencedOutput {
  public:
    SilencedOutput() {
        std::fflush(stdout);
        mSaved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere >= 0) {
            dup2(nowhere, STDOUT_FILENO);
            close(nowhere);
        }
    }
    ~SilencedOutput() {
        std::fflush(stdout);
        if (mSaved >= 0) {
            dup2(mSaved, STDOUT_FILENO);
            close(mSaved);
        }
    }
    SilencedOutput(const SilencedOutput&) = delete;
    SilencedOutput& operator=(const SilencedOutput&) = delete;

  private:
    int mSaved;
};

// Loads and starts the service. Drops what the service prints on standard output while it opens a
// database, and also its log unless --verbose is given.
std::unique_ptr<ServiceClient> StartService(const ServiceOptions& options) {
    UseLog(options.verbose);
    const SilencedOutput silenced;
    return std::make_unique<ServiceClient>(options.library);
}

std::string VersionText(int32_t version) {
    return version == ServiceClient::kNoVersion ? "no database"
                                                : fmt::format("version {}", version);
}

// Throws std::runtime_error if the service uses a database that is not in `directory`.
void RequireDirectory(const DatabaseDirectory& directory, const ServiceClient::State& state,
                      const ServiceOptions& options) {
    if (state.IsUsable() && !directory.IsInUse()) {
        throw std::runtime_error(
                fmt::format("{}: the library uses another directory and runs there on {}",
                            options.directory, VersionText(state.version)));
    }
}

int RunStatus(const ServiceOptions& options) {
    const std::unique_ptr<ServiceClient> service = StartService(options);
    const ServiceClient::State state = service->GetState();
    const DatabaseDirectory directory(options.directory);
    RequireDirectory(directory, state, options);
    std::printf("%s\n", state.IsUsable()
                                ? fmt::format("running, {}", VersionText(state.version)).c_str()
                                : "failed: no usable database");
    std::printf("%s", directory.Describe().c_str());
    if (!state.IsUsable() && directory.ActiveIsGood())
        std::printf("The library does not use the active file: it may use another directory.\n");
    return state.IsUsable() ? kExitOk : kExitFailed;
}

// The answers of the service.
class ServiceAnswers : public Answers {
  public:
    ServiceAnswers(ServiceClient* service, const PointColumns& points) {
        for (size_t i = 0; i < points.lats.size(); ++i) {
            mRaw.push_back(service->Lookup(std::string(points.latTexts[i]),
                                           std::string(points.lonTexts[i])));
            mParsed.push_back(offlinetz::ParseAnswer(mRaw.back()));
        }
    }

    bool IsError(size_t i) const override { return !mParsed[i].error.empty(); }
    void AppendText(size_t i, std::string* row) const override { row->append(mRaw[i]); }
    void AppendFields(size_t i, char separator, std::string* row) const override {
        row->push_back(separator);
        AppendField(mRaw[i], separator, row);
    }
    void AppendMembers(size_t i, const AnswerKeys& keys, std::string* row) const override {
        nlohmann::ordered_json object;
        if (IsError(i)) {
            object[keys.error] = mParsed[i].error;
        } else {
            object[keys.zones] = mParsed[i].zones;
        }
        object[keys.raw] = mRaw[i];
        const std::string members = offlinetz::OneLine(object);
        row->append(",").append(members, 1, members.size() - 2);
    }

  private:
    std::vector<std::string> mRaw;
    std::vector<offlinetz::Answer> mParsed;
};

int RunLookup(const ServiceOptions& options, bool onePoint) {
    const std::optional<PointText> point = PointOfArguments(onePoint, options.lat, options.lon);
    const std::unique_ptr<ServiceClient> service = StartService(options);
    LineFormat format;
    format.json = options.json;
    format.answerColumns = {"zone"};
    format.needsTexts = true;
    format.answer = [&](const PointColumns& points) {
        return std::make_unique<ServiceAnswers>(service.get(), points);
    };
    return AnswerPointOrLines(point, format) ? kExitOk : kExitFailed;
}

// The version byte in a database file's header, or kNoVersion if the file is too short.
int32_t VersionOf(const offlinetz::FileBytes& file) {
    return file.size() > zonedetect::kVersionOffset ? file[zonedetect::kVersionOffset]
                                                    : ServiceClient::kNoVersion;
}

int Refuse(const std::string& reason, const ServiceClient::State& state) {
    std::printf("refused: %s; still on %s\n", Printable(reason).c_str(),
                VersionText(state.version).c_str());
    return kExitFailed;
}

int RunUpdate(const ServiceOptions& options) {
    const auto bytes = offlinetz::ReadFileBytes(options.file);
    const DatabaseDirectory directory(options.directory);
    const int32_t version = VersionOf(*bytes);
    const std::unique_ptr<ServiceClient> service = StartService(options);
    const ServiceClient::State before = service->GetState();
    RequireDirectory(directory, before, options);
    if (!options.force) {
        // The service installs what it gets: a bad file would replace the active database and its
        // backup. The installation of a file with the same version could not be confirmed.
        const std::string fault = offlinetz::CheckFile(bytes).fault;
        if (!fault.empty()) return Refuse(options.file + " is " + fault, before);
        if (before.IsUsable() && version == before.version) {
            return Refuse(options.file +
                                  " has the installed version, so its installation could not be "
                                  "confirmed (--force sends it anyway)",
                          before);
        }
        // If the disk fills up while the service writes, it loses the backup or both files.
        const std::string lack = directory.LackOfRoom(bytes->size());
        if (!lack.empty()) return Refuse(lack, before);
    }
    ServiceClient::State after;
    {
        Progress progress;
        const SilencedOutput silenced;
        after = service->Update(*bytes, options.chunkSize, [&](size_t sent) {
            progress.Show("sending", sent, bytes->size());
        });
    }
    if (!after.IsUsable()) {
        std::printf("no database in use: the service could not install %s\n%s",
                    Printable(options.file).c_str(), directory.Describe().c_str());
        if (directory.BackupIsGood()) {
            std::printf(
                    "The next start restores the backup, provided the active file can be "
                    "written.\n");
        }
        return kExitNoDatabase;
    }
    if (after.version != version) {
        Refuse("the service did not install it", after);
        std::printf("%s", directory.Describe().c_str());
        return kExitFailed;
    }
    if (before.version == version) {
        std::printf("sent %s; it was installed before, so the installation cannot be confirmed\n",
                    VersionText(version).c_str());
    } else {
        std::printf("installed %s (before: %s)\n", VersionText(version).c_str(),
                    VersionText(before.version).c_str());
    }
    return kExitOk;
}

void AddStatus(CLI::App* service, const std::shared_ptr<ServiceOptions>& options, int* exitCode) {
    CLI::App* status = service->add_subcommand(
            "status", "Shows the service's state, its database version and its two files");
    status->footer(
            "Exit code: 0 the service uses a database; 1 it has no usable database, or cannot\n"
            "be loaded; 2 the command line is not valid.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz service status\n"
            "  $ offlinetz service --verbose status");
    status->callback([options, exitCode] { *exitCode = RunStatus(*options); });
}

void AddLookup(CLI::App* service, const std::shared_ptr<ServiceOptions>& options, int* exitCode) {
    CLI::App* lookup = service->add_subcommand(
            "lookup",
            "Asks the service for the zone of a point, or of each line of standard input");
    auto* lat = lookup->add_option("LAT", options->lat,
                                   "Latitude in degrees, -90 to 90, north positive; or LAT,LON")
                        ->type_name("");
    lookup->add_option("LON", options->lon, "Longitude in degrees, -180 to 180, east positive")
            ->type_name("");
    lookup->add_flag("--json", options->json, "Print one JSON object a line (default: text)");
    lookup->footer(
            "Prints the exact text that a client gets. Lines and tables are read as\n"
            "'offlinetz lookup' reads them.\n"
            "\n"
            "Exit code: 0 every point has an answer; 1 a line is not valid, or the service\n"
            "answers with an error; 2 the command line is not valid.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz service lookup 48.8566 2.3522\n"
            "  $ offlinetz service lookup --json <places.csv");
    lookup->callback(
            [options, lat, exitCode] { *exitCode = RunLookup(*options, lat->count() > 0); });
}

void AddUpdate(CLI::App* service, const std::shared_ptr<ServiceOptions>& options, int* exitCode) {
    CLI::App* update =
            service->add_subcommand("update", "Sends a database to the service and installs it");
    update->add_option("FILE", options->file, "Database file")->required()->type_name("");
    update->add_option("--chunk-size", options->chunkSize,
                       fmt::format("Bytes sent in one call (1 to {}, default {})", kLargestChunk,
                                   options->chunkSize))
            ->check(WholeNumber(1, kLargestChunk))
            ->type_name("BYTES");
    update->add_flag("--force", options->force,
                     "Send the file even if it is damaged, has the installed version, or does not "
                     "fit on the disk (default: refuse)");
    update->footer(
            "Exit code: 0 installed; 1 refused, and the service keeps its database; 2 the\n"
            "command line is not valid; 3 the service has no database in use afterwards.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz service update new.bin\n"
            "  $ offlinetz service --directory /data/offlinetz update --chunk-size 4096 new.bin");
    update->callback([options, exitCode] { *exitCode = RunUpdate(*options); });
}

}  // namespace

void AddServiceCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<ServiceOptions>();
    CLI::App* service = app->add_subcommand(
            "service", "Loads the service's library and uses it as a client on a device does");
    service->require_subcommand(1);
    service->add_option("--library", options->library,
                        "Library to load (default: the one that comes with the program)")
            ->type_name("FILE");
    service->add_option("--directory", options->directory,
                        fmt::format("Directory of the library's two database files, which is built "
                                    "into the library (default: {})",
                                    options->directory))
            ->type_name("DIRECTORY");
    service->add_flag("--verbose", options->verbose, "Print the service's log on standard error");
    service->footer(
            "Examples:\n"
            "  $ offlinetz service status\n"
            "  $ offlinetz service lookup 48.8566 2.3522\n"
            "  $ offlinetz service update new.bin");
    AddStatus(service, options, exitCode);
    AddLookup(service, options, exitCode);
    AddUpdate(service, options, exitCode);
}
