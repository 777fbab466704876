#include "zone_tables.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "compiler/zone_choice.h"
#include "findings.h"

namespace offlinetz {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Throw(const std::string& path, const std::string& what) {
    throw std::runtime_error(path + ": " + what);
}

// Throws std::runtime_error if the file cannot be read.
bool BeginsWith(const fs::path& file, std::string_view magic) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) Throw(file.string(), "cannot be read");
    std::string begin(magic.size(), '\0');
    return stream.read(begin.data(), static_cast<std::streamsize>(begin.size())) && begin == magic;
}

// Sets the links of tzdata.zi.
void SetLinks(const fs::path& file, ZoneTables* tables) {
    std::error_code ignored;
    if (!fs::is_regular_file(file, ignored)) return;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        const std::optional<ZoneLink> link = LinkOf(line);
        if (!link.has_value() || tables->tableOf.count(link->target) == 0) continue;
        const auto table = tables->tableOf.find(link->name);
        if (table != tables->tableOf.end()) table->second = link->target;
    }
    // Links to links, of which an honest text has a few in a row.
    constexpr int kMostInARow = 16;
    for (auto& [name, table] : tables->tableOf) {
        for (int i = 0; i < kMostInARow && tables->tableOf.at(table) != table; ++i)
            table = tables->tableOf.at(table);
    }
}

// Whether a path is a link to a folder that it is in.
bool LeadsUp(const fs::path& path) {
    std::error_code ignored;
    if (!fs::is_symlink(path, ignored)) return false;
    const fs::path folder = fs::canonical(path.parent_path(), ignored);
    const std::string way = folder.lexically_relative(fs::canonical(path, ignored)).string();
    return !way.empty() && way.substr(0, 2) != "..";
}

ZoneTables ReadDirectory(const std::string& path) {
    ZoneTables tables;
    tables.knowsLinks = true;
    const fs::path root(path);
    std::error_code error;
    fs::recursive_directory_iterator at(root, fs::directory_options::follow_directory_symlink,
                                        error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        const std::string name = at->path().lexically_relative(root).string();
        // posix and right are copies of all tables, without and with leap seconds.
        if (name == "posix" || name == "right" || LeadsUp(at->path()))
            at.disable_recursion_pending();
        std::error_code ignored;  // A link that leads nowhere is no table.
        if (!at->is_regular_file(ignored) || !BeginsWith(at->path(), "TZif")) continue;
        std::string table = name;
        if (at->is_symlink(ignored)) {
            const fs::path target = fs::canonical(at->path(), ignored);
            table = target.lexically_relative(fs::canonical(root, ignored)).string();
        }
        tables.tableOf.emplace(name, table);
    }
    if (error) Throw(path, error.message());
    for (auto& [name, table] : tables.tableOf) {
        if (tables.tableOf.count(table) == 0) table = name;  // A link to another directory.
    }
    if (tables.tableOf.empty()) Throw(path, "has no time zone table (TZif file)");
    SetLinks(root / "tzdata.zi", &tables);
    return tables;
}

// A number of four bytes, the highest first.
uint32_t NumberAt(const std::string& bytes, size_t at) {
    uint32_t number = 0;
    for (size_t i = at; i < at + 4; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

// The header is "tzdata", a version, a zero, and the places of index, tables and end. An entry of
// the index is a name of 40 bytes, padded with zeros, and three numbers: place, length, offset.
ZoneTables ReadFile(const std::string& path) {
    constexpr size_t kHeader = 24;
    constexpr size_t kName = 40;
    constexpr size_t kEntry = kName + 3 * 4;
    constexpr uintmax_t kMostBytes = uintmax_t{64} << 20;
    std::error_code error;
    if (!fs::is_regular_file(path, error)) Throw(path, "is neither a directory nor a file");
    if (fs::file_size(path, error) > kMostBytes) Throw(path, "is larger than 64 MiB");
    std::ifstream stream(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)),
                            std::istreambuf_iterator<char>());
    if (!stream.good() && !stream.eof()) Throw(path, "cannot be read");
    if (bytes.size() < kHeader || bytes.compare(0, 6, "tzdata") != 0)
        Throw(path, "is neither a directory of time zone tables nor a tzdata file");
    const size_t index = NumberAt(bytes, 12);
    const size_t data = NumberAt(bytes, 16);
    if (index < kHeader || data < index || data > bytes.size() || (data - index) % kEntry != 0)
        Throw(path, "its index is damaged: bytes 12 to 19 of the file");
    ZoneTables tables;
    std::map<std::pair<uint32_t, uint32_t>, std::string> firsts;  // By place and length.
    for (size_t at = index; at < data; at += kEntry) {
        const std::string name = bytes.substr(at, std::min(bytes.find('\0', at) - at, kName));
        const uint32_t place = NumberAt(bytes, at + kName);
        const uint32_t length = NumberAt(bytes, at + kName + 4);
        if (name.empty() || data + uint64_t{place} + length > bytes.size())
            Throw(path, fmt::format("its index is damaged: byte {} of the file", at));
        tables.tableOf.emplace(name, firsts.emplace(std::pair(place, length), name).first->second);
    }
    if (tables.tableOf.empty()) Throw(path, "its index is empty");
    return tables;
}

bool IsOfPlace(const std::string& name) {
    constexpr std::array<std::string_view, 10> kAreas = {
            "Africa",   "America",   "Antarctica", "Arctic", "Asia",
            "Atlantic", "Australia", "Europe",     "Indian", "Pacific"};
    const size_t slash = name.find('/');
    return slash != std::string::npos &&
           std::find(kAreas.begin(), kAreas.end(), name.substr(0, slash)) != kAreas.end();
}

}  // namespace

ZoneTables ReadZoneTables(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) Throw(path, "No such file or directory");
    return fs::is_directory(status) ? ReadDirectory(path) : ReadFile(path);
}

std::vector<Finding> CheckZoneTables(const std::vector<std::string>& names,
                                     const ZoneTables& tables) {
    std::vector<Finding> missing;
    std::vector<Finding> links;
    std::set<std::string> named;  // The tables of the database's zones.
    const auto add = [](const Kind& kind, const std::string& what, std::vector<Finding>* findings) {
        findings->push_back(
                {kind.severity, kind.name, std::nullopt, std::nullopt, what, kind.effect, 1});
    };
    for (const std::string& name : names) {
        const auto table = tables.tableOf.find(name);
        if (table == tables.tableOf.end()) {
            add(kNoClock, "the tables do not have " + name, &missing);
            continue;
        }
        named.insert(table->second);
        if (tables.knowsLinks && table->second != name)
            add(kLinkedName, fmt::format("the tables have {} as a link to {}", name, table->second),
                &links);
    }
    std::vector<Finding> findings = std::move(missing);
    findings.insert(findings.end(), links.begin(), links.end());
    for (const auto& [name, table] : tables.tableOf) {
        if (name == table && IsOfPlace(name) && named.count(name) == 0)
            add(kNoPolygon, "no zone has the table " + name, &findings);
    }
    return findings;
}

}  // namespace offlinetz
