// offlinetz service: the service's library, loaded and used as a client on a device does.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "commands.h"
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

constexpr int kExitNoDatabase = 3;  // Of an update: the service has nothing to answer from now.

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

// Sends standard output to nowhere while it lives: the service prints a line there whenever it
// opens a database.
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

// The service, loaded and started. What it prints on standard output while it opens a database is
// dropped, and its log too unless it is asked for.
std::unique_ptr<ServiceClient> StartService(const ServiceOptions& options) {
    UseLog(options.verbose);
    const SilencedOutput silenced;
    return std::make_unique<ServiceClient>(options.library);
}

std::string VersionText(int32_t version) {
    return version == ServiceClient::kNoVersion ? "no database"
                                                : fmt::format("version {}", version);
}

// Throws where a service uses a database, but none in the directory that is looked at.
void RequireDirectory(const DatabaseDirectory& directory, const ServiceClient::State& state,
                      const ServiceOptions& options) {
    if (state.IsUsable() && !directory.IsInUse()) {
        throw std::runtime_error(
                fmt::format("{}: the library reads another directory, and is running there, {}",
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
        std::printf("The library does not use the active file: it may read another directory.\n");
    return state.IsUsable() ? kExitOk : kExitFailed;
}

int RunLookup(const ServiceOptions& options, bool onePoint) {
    PointText point;
    try {
        if (onePoint) point = ParsePoint(options.lat + " " + options.lon);
    } catch (const std::invalid_argument& error) {
        PrintMessage(error.what());
        return kExitUsage;
    }
    const std::unique_ptr<ServiceClient> service = StartService(options);
    int exitCode = kExitOk;
    const auto answer = [&](const PointText& where) {
        std::string raw = service->Lookup(where.latText, where.lonText);
        const offlinetz::Answer parsed = offlinetz::ParseAnswer(raw);
        if (!parsed.error.empty()) exitCode = kExitFailed;
        nlohmann::ordered_json object = offlinetz::AnswerJson(where.lat, where.lon, parsed);
        object["raw"] = raw;
        return LineAnswer{raw, {raw}, std::move(object)};
    };
    if (onePoint) {
        const LineAnswer found = answer(point);
        std::printf("%s\n",
                    options.json ? offlinetz::OneLine(found.object).c_str() : found.text.c_str());
    } else if (!AnswerLines({options.json, "", "", {"zone"}}, answer)) {
        exitCode = kExitFailed;
    }
    return exitCode;
}

// The version byte in a database file's header, or no version.
int32_t VersionOf(const offlinetz::FileBytes& file) {
    return file.size() > 4 ? file[4] : ServiceClient::kNoVersion;
}

int Refuse(const std::string& reason, const ServiceClient::State& state) {
    std::printf("refused: %s; still on %s\n", Printable(reason).c_str(),
                VersionText(state.version).c_str());
    return kExitFailed;
}

int RunUpdate(const ServiceOptions& options) {
    const auto bytes =
            std::make_shared<const offlinetz::FileBytes>(offlinetz::ReadFileBytes(options.file));
    const DatabaseDirectory directory(options.directory);
    const int32_t version = VersionOf(*bytes);
    const std::unique_ptr<ServiceClient> service = StartService(options);
    const ServiceClient::State before = service->GetState();
    RequireDirectory(directory, before, options);
    if (!options.force) {
        // A bad file that is injected takes the place of the active database and of its backup;
        // one of the same version cannot be told from what is there.
        zonedetect::OpenFailure failure;
        offlinetz::OpenBytes(bytes, &failure);
        const std::string fault = offlinetz::FaultOf(*bytes, failure);
        if (!fault.empty()) return Refuse(options.file + " is " + fault, before);
        if (before.IsUsable() && version == before.version) {
            return Refuse(options.file +
                                  " has the version that is installed, so whether it "
                                  "replaced it could not be seen (--force sends it)",
                          before);
        }
        // Without it the service would lose the backup, or both files, in the midst of writing.
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
                    "The next start restores the backup if the active file can be written then.\n");
        }
        return kExitNoDatabase;
    }
    if (after.version != version) {
        Refuse("the service did not install it", after);
        std::printf("%s", directory.Describe().c_str());
        return kExitFailed;
    }
    if (before.version == version) {
        std::printf("sent %s; whether it replaced the one before cannot be seen\n",
                    VersionText(version).c_str());
    } else {
        std::printf("installed %s (before: %s)\n", VersionText(version).c_str(),
                    VersionText(before.version).c_str());
    }
    return kExitOk;
}

}  // namespace

void AddServiceCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<ServiceOptions>();
    CLI::App* service = app->add_subcommand(
            "service", "Loads the service's library and uses it as a client does");
    service->require_subcommand(1);
    service->add_option(
            "--library", options->library,
            "The service's library, where it is not the one that comes with the program");
    service->add_option("--directory", options->directory,
                        "Where that library keeps its two files, which is built into it")
            ->capture_default_str();
    service->add_flag("--verbose", options->verbose, "The service's log on standard error");

    CLI::App* status =
            service->add_subcommand("status", "Says whether it runs, and on which version");
    status->callback([options, exitCode] { *exitCode = RunStatus(*options); });

    CLI::App* lookup = service->add_subcommand(
            "lookup", "Names the time zone of a point, or of each line of standard input");
    auto* lat = lookup->add_option("LAT", options->lat,
                                   "Latitude in degrees, north positive; or LAT,LON in one word");
    lookup->add_option("LON", options->lon, "Longitude in degrees, east positive");
    lookup->add_flag("--json", options->json, "One JSON object a line");
    lookup->callback(
            [options, lat, exitCode] { *exitCode = RunLookup(*options, lat->count() > 0); });

    CLI::App* update = service->add_subcommand("update", "Sends a database and installs it");
    update->add_option("FILE", options->file, "Database file")->required();
    update->add_option("--chunk-size", options->chunkSize, "Bytes a call")
            ->check(WholeNumber(1, size_t{1} << 30))
            ->capture_default_str();
    update->add_flag("--force", options->force,
                     "Send the file even if it is damaged, of the version installed, or has no "
                     "room");
    update->footer(
            "Exit code 0: installed; 1: refused, and the database is the one before; "
            "3: the service has no database in use.");
    update->callback([options, exitCode] { *exitCode = RunUpdate(*options); });
}
