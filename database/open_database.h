// Databases as tools open them: read into memory, checked against the digest, with a reason where
// one is refused.
#pragma once

#include <reader/open_bytes.h>
#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace offlinetz {

using FileBytes = std::vector<uint8_t>;

// Releases a handle, and afterwards the bytes that it borrows.
struct DatabaseCloser {
    std::shared_ptr<const FileBytes> bytes;  // Null: the handle owns its mapping.

    void operator()(ZDDatabase* database) const { ZDCloseDatabase(database); }
};
using DatabasePtr = std::unique_ptr<ZDDatabase, DatabaseCloser>;

// Reads a regular file, or a pipe to its end. A copy in memory is safe from whoever replaces the
// file meanwhile; a mapping of the file would end this process when the file became shorter. Throws
// std::runtime_error with the path and the reason: 2 GiB or more is one, a device another.
FileBytes ReadFileBytes(const std::string& path);

// Opens a database, which keeps `bytes`. Null where the reader refuses it; `failure` (which may be
// null) then has the reason.
DatabasePtr OpenBytes(std::shared_ptr<const FileBytes> bytes,
                      zonedetect::OpenFailure* failure = nullptr);

// What is wrong with a database file, as a phrase that follows "is"; empty for a good one.
// `failure` is what OpenBytes made of it. Reads the digest.
std::string FaultOf(const FileBytes& bytes, const zonedetect::OpenFailure& failure);

// The size in bytes of the file of an open database: its content and the digest trailer.
size_t FileSize(const ZDDatabase& database);

// Reads and opens a database file. Throws std::runtime_error with the path and the reason where it
// cannot be read or has a fault; without `verify`, only where the reader refuses it.
DatabasePtr OpenDatabase(const std::string& path, bool verify = true);

}  // namespace offlinetz
