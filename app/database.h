// Databases as the host program opens them.
#pragma once

#include <zonedetect.h>

#include <memory>
#include <string>

struct DatabaseCloser {
    void operator()(ZDDatabase* database) const { ZDCloseDatabase(database); }
};
using DatabasePtr = std::unique_ptr<ZDDatabase, DatabaseCloser>;

// Opens a database file; throws std::runtime_error with the path and the reason. The line that
// the reader prints on opening is kept off standard output, which belongs to the answers.
DatabasePtr OpenDatabase(const std::string& path);
