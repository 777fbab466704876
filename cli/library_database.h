// A database as the C library opens it, for the commands.
#pragma once

#include <offlinetz.h>
#include <zonedetect.h>

#include <memory>
#include <string>
#include <vector>

struct LibraryCloser {
    void operator()(offlinetz_database* database) const { offlinetz_close(database); }
};
using LibraryPtr = std::unique_ptr<offlinetz_database, LibraryCloser>;

// Opens the content of a database whose digest was checked. Borrows it. Throws std::runtime_error
// with `path` and the reason.
LibraryPtr OpenLibrary(const ZDDatabase& reader, const std::string& path);

// The names of all zones, by their ids.
std::vector<std::string> ZoneNames(const offlinetz_database& database);
