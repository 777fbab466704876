// offlinetz service: the service's library, loaded and used as a client on a device does.
#include <fmt/format.h>
#include <host/log.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "database.h"
#include "points.h"
#include "progress.h"
#include "service_client.h"

namespace {

constexpr int kExitNothingUsable = 3;  // Of an update: no database is left to answer from.

struct ServiceOptions {
    std::string library = OFFLINETZ_SERVICE_LIBRARY;
    bool verbose = false;
    std::string lat;
    std::string lon;
    std::string file;
    size_t chunkSize = 65536;
    bool force = false;
};

// The service prints a line on standard output whenever it opens a database, and logs much.
class QuietService {
  public:
    explicit QuietService(const ServiceOptions& options) {
        if (!options.verbose) host::SetLogReceiver([](int, const char*, const std::string&) {});
        mClient = std::make_unique<ServiceClient>(options.library);
    }
    ServiceClient* operator->() { return mClient.get(); }

  private:
    SilencedOutput mSilenced;
    std::unique_ptr<ServiceClient> mClient;
};

std::string VersionText(int32_t version) {
    return version == ServiceClient::kNoVersion ? "no database"
                                                : fmt::format("version {}", version);
}

int RunStatus(const ServiceOptions& options) {
    const ServiceClient::State state = QuietService(options)->GetState();
    std::printf("%s\n", state.IsUsable()
                                ? fmt::format("running, {}", VersionText(state.version)).c_str()
                                : "failed: no usable database");
    return state.IsUsable() ? kExitOk : kExitFailed;
}

int RunLookup(const ServiceOptions& options) {
    try {
        if (!options.lat.empty()) ParsePoint(options.lat, options.lon);
    } catch (const std::invalid_argument& error) {
        std::fprintf(stderr, "offlinetz: %s\n", error.what());
        return kExitUsage;
    }
    std::vector<std::string> answers;
    int exitCode = kExitOk;
    {
        QuietService service(options);
        if (!options.lat.empty()) {
            answers.push_back(service->Lookup(options.lat, options.lon));
        } else {
            std::string line;
            for (size_t number = 1; std::getline(std::cin, line); ++number) {
                try {
                    const PointText point = ParsePointLine(line);
                    answers.push_back(fmt::format("{} {}\t{}", point.latText, point.lonText,
                                                  service->Lookup(point.latText, point.lonText)));
                } catch (const std::invalid_argument& error) {
                    std::fprintf(stderr, "offlinetz: line %zu: %s\n", number, error.what());
                    exitCode = kExitFailed;
                }
            }
        }
    }
    for (const std::string& answer : answers)
        std::printf("%s\n", answer.c_str());
    return exitCode;
}

// The version byte in a database file's header, or no version.
int32_t VersionOf(const std::vector<uint8_t>& file) {
    return file.size() > 4 ? file[4] : ServiceClient::kNoVersion;
}

int RunUpdate(const ServiceOptions& options) {
    const std::vector<uint8_t> file = ReadFile(options.file);
    // A bad file that is injected takes the place of the active database and of its backup, so
    // it is stopped here.
    const std::string fault = options.force ? "" : FaultOf(options.file, file);
    Progress progress;
    ServiceClient::State before;
    ServiceClient::State after;
    {
        QuietService service(options);
        before = service->GetState();
        after = before;
        if (fault.empty()) {
            after = service->Update(file, options.chunkSize, [&](size_t sent) {
                progress.Show("sending", sent, file.size());
            });
        }
    }
    if (!fault.empty()) {
        std::printf("refused: %s is %s; still on %s\n", options.file.c_str(), fault.c_str(),
                    VersionText(before.version).c_str());
        return kExitFailed;
    }
    if (!after.IsUsable()) {
        std::printf(
                "nothing usable left: the service could not install %s and has no other "
                "database\n",
                options.file.c_str());
        return kExitNothingUsable;
    }
    if (after.version != VersionOf(file)) {
        std::printf("refused by the service; still on %s\n", VersionText(after.version).c_str());
        return kExitFailed;
    }
    std::printf("installed %s (before: %s)\n", VersionText(after.version).c_str(),
                VersionText(before.version).c_str());
    return kExitOk;
}

}  // namespace

void AddServiceCommand(CLI::App* app, int* exitCode) {
    const auto options = std::make_shared<ServiceOptions>();
    CLI::App* service = app->add_subcommand(
            "service", "Loads the service's library and uses it as a client does");
    service->require_subcommand(1);
    service->add_option("--library", options->library, "The service's library")
            ->capture_default_str();
    service->add_flag("--verbose", options->verbose, "The service's log on standard error");

    CLI::App* status =
            service->add_subcommand("status", "Says whether it runs, and on which version");
    status->callback([options, exitCode] { *exitCode = RunStatus(*options); });

    CLI::App* lookup = service->add_subcommand(
            "lookup", "Names the time zone of a point, or of each line of standard input");
    auto* lat = lookup->add_option("LAT", options->lat, "Latitude in degrees, north positive");
    auto* lon = lookup->add_option("LON", options->lon, "Longitude in degrees, east positive");
    lat->needs(lon);
    lon->needs(lat);
    lookup->callback([options, exitCode] { *exitCode = RunLookup(*options); });

    CLI::App* update = service->add_subcommand("update", "Sends a database and installs it");
    update->add_option("FILE", options->file, "Database file")->required();
    update->add_option("--chunk-size", options->chunkSize, "Bytes a call")
            ->check(CLI::Range(size_t{1}, size_t{1} << 30))
            ->capture_default_str();
    update->add_flag("--force", options->force, "Send the file even if it is damaged");
    update->footer(
            "Exit code 0: installed; 1: refused, and the database is the one before; "
            "3: no usable database is left.");
    update->callback([options, exitCode] { *exitCode = RunUpdate(*options); });
}
