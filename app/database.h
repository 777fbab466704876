// Databases as the host program judges and opens them.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <memory>
#include <string>

#include "file_copy.h"

struct DatabaseCloser {
    void operator()(ZDDatabase* database) const { ZDCloseDatabase(database); }
};
using DatabasePtr = std::unique_ptr<ZDDatabase, DatabaseCloser>;

// Sends standard output to nowhere while it lives: the reader prints a line there whenever it
// opens a file.
class SilencedOutput {
  public:
    SilencedOutput();
    ~SilencedOutput();
    SilencedOutput(const SilencedOutput&) = delete;
    SilencedOutput& operator=(const SilencedOutput&) = delete;

  private:
    int mSaved;
};

// Opens a database, which does not need the copy any more then; null where the reader refuses it.
// Standard output is silenced meanwhile, because it belongs to the answers.
DatabasePtr OpenCopy(const FileCopy& file);

// What is wrong with a database file, of which `opened` is what the reader made: empty for a good
// one, else what it is, such as "damaged: ...".
std::string FaultOf(const FileCopy& file, const ZDDatabase* opened);

// The bytes of the file of an open database: its content and the digest behind it.
size_t FileSize(const ZDDatabase& database);

// Reads a database file and opens the copy. Throws std::runtime_error with the path and the reason
// where it cannot be read or has a fault; without `verify`, only where the reader refuses it.
DatabasePtr OpenDatabase(const std::string& path, bool verify = true);
