#include "zone_choice.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "database/text_rules.h"
#include "input_error.h"

namespace offlinetz {

std::optional<ZoneLink> LinkOf(const std::string& line) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string kind, more;
    ZoneLink link;
    words >> kind;
    if (kind != "Link" && kind != "L") return std::nullopt;
    if (!(words >> link.target >> link.name) || words >> more) return ZoneLink();
    return link;
}

ZoneLinks ReadLinks(const std::string& path) {
    std::ifstream stream(path);
    if (!stream) ThrowInputError(path, std::generic_category().message(errno));
    constexpr size_t kMostBytes = size_t{16} << 20;
    constexpr size_t kMostNameBytes = 253;  // With its quotes, a text of a database.
    ZoneLinks links;
    std::vector<std::string> faults;
    size_t number = 0;
    size_t bytes = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        bytes += line.size() + 1;
        if (bytes > kMostBytes) ThrowInputError(path, "is larger than 16 MiB");
        const std::optional<ZoneLink> link = LinkOf(line);
        if (!link.has_value()) continue;
        const std::string& name = link->name;
        const auto add = [&](const std::string& fault) {
            faults.push_back(fmt::format("{}: line {}: {}", path, number, fault));
        };
        if (name.empty()) {
            add("is not 'Link TARGET NAME'");
        } else if (const char* fault = FaultOfIdentifier(name)) {
            add(fmt::format("the name {}", fault));
        } else if (name.size() > kMostNameBytes) {
            add(fmt::format("the name has {} bytes; the database holds up to {}", name.size(),
                            kMostNameBytes));
        } else {
            std::vector<std::string>& names = links[link->target];
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        }
    }
    if (stream.bad()) ThrowInputError(path, "cannot be read");
    if (!faults.empty()) throw InputError(faults);
    if (links.empty()) ThrowInputError(path, "has no line 'Link TARGET NAME'");
    return links;
}

const std::string& ZoneChoice::NameOf(const std::string& tzid) const {
    const auto found = names.find(tzid);
    if (found == names.end()) return tzid;
    if (found->second.size() > 1) {
        throw std::invalid_argument(fmt::format("{} has several new names: {}; give one", tzid,
                                                fmt::join(found->second, ", ")));
    }
    return found->second.front();
}

bool ZoneChoice::Keeps(const std::string& name) const {
    return (only.empty() || only.count(name) > 0) && without.count(name) == 0;
}

}  // namespace offlinetz
