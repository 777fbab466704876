// offlinetz verify: the faults of a database file.
#include <fmt/format.h>
#include <reader/read_budget.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "compiler/geometry.h"
#include "database/answer.h"
#include "database/open_database.h"
#include "inspector/check.h"
#include "inspector/zone_tables.h"
#include "library_database.h"
#include "message.h"
#include "options.h"
#include "progress.h"

namespace {

using offlinetz::Finding;
using offlinetz::Severity;

const char* NameOf(Severity severity) {
    switch (severity) {
        case Severity::kError:
            return "error";
        case Severity::kWarning:
            return "warning";
        default:
            return "note";
    }
}

size_t CountOf(const std::vector<Finding>& findings, Severity severity) {
    size_t count = 0;
    for (const Finding& finding : findings)
        count += finding.severity == severity ? finding.count : 0;
    return count;
}

std::string Verdict(const std::vector<Finding>& findings) {
    const size_t errors = CountOf(findings, Severity::kError);
    const size_t warnings = CountOf(findings, Severity::kWarning);
    if (errors + warnings == 0) return "good";
    return fmt::format("{} errors, {} warnings", errors, warnings);
}

void PrintText(const std::string& path, const ZDDatabase& database,
               const std::vector<Finding>& findings) {
    std::printf("%s: %s\n", Printable(path).c_str(), Verdict(findings).c_str());
    std::printf("version    %u\n", ZDgetDBVersion(&database));
    std::printf("table type %u\n", static_cast<unsigned>(ZDGetTableType(&database)));
    std::printf("precision  %u\n", static_cast<unsigned>(database.precision));
    std::printf("bytes      %zu\n", offlinetz::FileSize(database));
    // A lookup that reaches one of them stops early.
    std::printf(
            "limits     a lookup collects up to %zu rings, and reads up to %lld bytes of rings and "
            "as "
            "many bytes of records\n",
            zonedetect::kMaxHits,
            static_cast<long long>(zonedetect::ReadBudget::Bytes(database.length)));
    std::printf("notice     %s\n", Printable(ZDGetNotice(&database)).c_str());
    for (const Finding& f : findings) {
        std::string line = fmt::format("{:<10}", NameOf(f.severity));
        if (f.position.has_value()) line += fmt::format(" byte {}", *f.position);
        if (f.entry.has_value()) line += fmt::format(" entry {}", *f.entry);
        line += fmt::format("{} {}: {}", f.position.has_value() || f.entry.has_value() ? ":" : "",
                            Printable(f.what), f.effect);
        if (f.count > 1) line += fmt::format(" ({} more like it)", f.count - 1);
        std::printf("%s\n", line.c_str());
    }
}

void PrintJson(const std::string& path, const std::string& verdict,
               const std::vector<Finding>& findings) {
    nlohmann::ordered_json all = {{"file", path}, {"verdict", verdict}};
    all["findings"] = nlohmann::ordered_json::array();
    for (const Finding& f : findings) {
        nlohmann::ordered_json one = {{"severity", NameOf(f.severity)}, {"kind", f.kind}};
        if (f.position.has_value()) one["byte"] = *f.position;
        if (f.entry.has_value()) one["entry"] = *f.entry;
        one["what"] = f.what;
        one["effect"] = f.effect;
        one["count"] = f.count;
        all["findings"].push_back(one);
    }
    std::printf("%s\n", offlinetz::OneLine(all).c_str());
}

// `zoneinfo`: the path of time zone tables; empty if none are to be compared.
int RunVerify(const std::string& path, const std::string& zoneinfo, bool json) {
    const offlinetz::ZoneTables tables =
            zoneinfo.empty() ? offlinetz::ZoneTables() : offlinetz::ReadZoneTables(zoneinfo);
    const auto [database, fault] = offlinetz::CheckFile(offlinetz::ReadFileBytes(path));
    if (!fault.empty()) {
        if (json) {
            PrintJson(path, fault, {});
        } else {
            std::printf("%s: %s\n", Printable(path).c_str(), fault.c_str());
        }
        return kExitFailed;
    }
    std::vector<Finding> findings;
    {
        Progress progress;
        offlinetz::StartGeometry();
        findings = offlinetz::CheckDatabase(*database, progress.Callback());
    }
    if (!zoneinfo.empty()) {
        const std::vector<Finding> more =
                offlinetz::CheckZoneTables(ZoneNames(*OpenLibrary(*database, path)), tables);
        findings.insert(findings.end(), more.begin(), more.end());
        std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
            return a.severity > b.severity;
        });
    }
    if (json) {
        PrintJson(path, Verdict(findings), findings);
    } else {
        PrintText(path, *database, findings);
    }
    if (CountOf(findings, Severity::kError) > 0) return kExitFailed;
    return CountOf(findings, Severity::kWarning) > 0 ? kExitWarned : kExitOk;
}

}  // namespace

void AddVerifyCommand(CLI::App* app, int* exitCode) {
    const auto path = std::make_shared<std::string>();
    const auto json = std::make_shared<bool>(false);
    const auto zoneinfo = std::make_shared<std::string>();
    CLI::App* command =
            app->add_subcommand("verify", "Checks a database file before a device gets it");
    command->add_option("FILE", *path, "Database file")->required()->type_name("");
    command->add_option("--zoneinfo", *zoneinfo,
                        "Also compare the zones with time zone tables: a directory such as "
                        "/usr/share/zoneinfo, or the tzdata file of a device")
            ->check(NamesFile())
            ->type_name("PATH");
    command->add_flag("--json", *json, "Print one JSON object (default: text)");
    command->footer(
            "Checks every byte, entry, ring and tile, and looks up the vertices of all\n"
            "borders, or an even sample if all would take minutes. A finding says what is\n"
            "wrong, where it is, and what it does to lookups.\n"
            "\n"
            "Exit code: 0 the file is good; 1 some lookups would be wrong, or the file cannot\n"
            "be used; 2 the command line is not valid; 3 there are warnings only.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz verify new.bin\n"
            "  $ offlinetz verify --json new.bin\n"
            "  $ offlinetz verify --zoneinfo /usr/share/zoneinfo new.bin");
    command->callback(
            [path, zoneinfo, json, exitCode] { *exitCode = RunVerify(*path, *zoneinfo, *json); });
}
