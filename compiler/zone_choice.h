// Which zones of an input become zones of a database, and under which names.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace offlinetz {

struct ZoneLink {
    std::string target;
    std::string name;
};
// The link of a line "Link TARGET NAME" or "L TARGET NAME"; nothing for other lines. Texts behind #
// do not count. Empty if there are more or fewer words.
std::optional<ZoneLink> LinkOf(const std::string& line);

// The names that links give to each target.
using ZoneLinks = std::map<std::string, std::vector<std::string>>;

// Reads links as the file `backward` of tzdata has them: lines "Link TARGET NAME", or "L TARGET
// NAME" in tzdata.zi. Other lines are passed over. Throws InputError with all faults: lines without
// a target and a name, and names that no database can hold; a file without links, or that cannot be
// read.
ZoneLinks ReadLinks(const std::string& path);

struct ZoneChoice {
    // The names that a zone may get instead of its own. It must be one; several are an error if the
    // input has the zone.
    ZoneLinks names;
    // The names of the zones to keep, and of those to leave out, after renaming. If `only` is
    // empty, all are kept. Names that the input lacks are errors.
    std::set<std::string> only;
    std::set<std::string> without;

    // The name of a zone of the input in the database. Throws std::invalid_argument with the reason
    // if it has several.
    const std::string& NameOf(const std::string& tzid) const;
    bool Keeps(const std::string& name) const;
};

}  // namespace offlinetz
