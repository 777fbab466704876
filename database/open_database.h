// Opens databases for tools: reads the file into memory, checks the digest, and gives the reason if
// the file is refused. All functions may be called on any thread.
#pragma once

#include <reader/open_bytes.h>
#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "library/file_bytes.h"

namespace offlinetz {

// Releases a handle, and then the bytes that it borrows.
struct DatabaseCloser {
    std::shared_ptr<const FileBytes> bytes;  // Null if the handle owns its mapping.

    void operator()(ZDDatabase* database) const { ZDCloseDatabase(database); }
};
using DatabasePtr = std::unique_ptr<ZDDatabase, DatabaseCloser>;

// Reads a regular file, or a pipe up to its end. The copy in memory stays valid if another process
// replaces the file; a mapping would raise SIGBUS in this process if the file became shorter.
// Throws std::runtime_error with the path and the reason, also for a file of 2 GiB or more and for
// a device.
std::shared_ptr<const FileBytes> ReadFileBytes(const std::string& path);

// A database, opened, and what is wrong with its file.
struct CheckedDatabase {
    DatabasePtr database;  // Null if the reader refuses it.
    std::string fault;     // A phrase that may follow "is"; empty if the file is good.
};

// Opens a database, and keeps `bytes` alive as long as it is open. With `verify`, a database that
// the reader accepts has a fault if its digest does not match its content.
CheckedDatabase CheckFile(std::shared_ptr<const FileBytes> bytes, bool verify = true);

// The size of an open database's file in bytes: content and digest trailer.
size_t FileSize(const ZDDatabase& database);

// Reads and opens a database file. Throws std::runtime_error with the path and the reason if the
// file cannot be read, the reader refuses it, or, with `verify`, its digest does not match its
// content.
DatabasePtr OpenDatabase(const std::string& path, bool verify = true);

}  // namespace offlinetz
