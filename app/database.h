// Databases as the host program opens them.
#pragma once

#include <zonedetect.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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

// A whole file's bytes, or as many as prove that it has 2 GiB or more; throws std::runtime_error
// with the path and the reason.
std::vector<uint8_t> ReadFile(const std::string& path);

// What is wrong with a database file, of which `bytes` are the content: empty for a good one,
// else a phrase such as "damaged: ...".
std::string FaultOf(const std::string& path, const std::vector<uint8_t>& bytes);

// Opens a database file; throws std::runtime_error with the path and the reason. Standard output
// is silenced meanwhile, because it belongs to the answers.
DatabasePtr OpenDatabase(const std::string& path);
