// offlinetz verify: whether a database file is whole and readable.
#include <host/log.h>
#include <read_budget.h>

#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "database.h"
#include "printable.h"

namespace {

int RunVerify(const std::string& path) {
    host::DropLog();
    const FileCopy file(path);
    const DatabasePtr database = OpenCopy(file);
    const std::string fault = FaultOf(file, database.get());
    if (!fault.empty()) {
        std::printf("%s: %s\n", path.c_str(), fault.c_str());
        return kExitFailed;
    }
    std::printf("%s: good\n", path.c_str());
    std::printf("version    %u\n", ZDgetDBVersion(database.get()));
    std::printf("table type %u\n", static_cast<unsigned>(ZDGetTableType(database.get())));
    std::printf("precision  %u\n", static_cast<unsigned>(database->precision));
    std::printf("content    %d bytes\n", ZDGetLength(database.get()));
    // A lookup that comes to one of them ends early.
    std::printf("limits     %zu rings at a point, %lld bytes of rings and texts a lookup\n",
                zonedetect::kMaxHits,
                static_cast<long long>(zonedetect::ReadBudget::Bytes(database->length)));
    std::printf("notice     %s\n", Printable(ZDGetNotice(database.get())).c_str());
    return kExitOk;
}

}  // namespace

void AddVerifyCommand(CLI::App* app, int* exitCode) {
    const auto path = std::make_shared<std::string>();
    CLI::App* command = app->add_subcommand(
            "verify", "Says whether a database file is whole and its header makes sense");
    command->add_option("FILE", *path, "Database file")->required();
    command->callback([path, exitCode] { *exitCode = RunVerify(*path); });
}
