// The time zone tables of a system or device, and whether they fit the zones of a database.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "check.h"

namespace offlinetz {

struct ZoneTables {
    // Each name, and the name whose table it has: its own, or that to which it is a link.
    std::map<std::string, std::string> tableOf;
    bool knowsLinks = false;  // Whether it is known which of the names with one table is the link.
};

// Reads the names of tables, not the tables themselves:
// - a directory of TZif files (RFC 8536), such as /usr/share/zoneinfo. Links are those of its
//   tzdata.zi, or else symbolic links;
// - a file that begins with "tzdata", as devices have it: an index of names, places and lengths.
//   Names with the same place share a table.
//
// Throws std::runtime_error with the path, the place and the reason.
ZoneTables ReadZoneTables(const std::string& path);

// Compares the names of a database, nautical ones included, with tables. Each name has a finding of
// its own: those that the tables lack (errors), those that are links there, and tables that no zone
// of the database has. Tables outside of the continents and oceans, such as Etc/UTC and CET, belong
// to no place: they are passed over.
std::vector<Finding> CheckZoneTables(const std::vector<std::string>& names,
                                     const ZoneTables& tables);

}  // namespace offlinetz
