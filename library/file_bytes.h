// The bytes of a file: read into memory, or mapped. All functions may be called on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace offlinetz {

using FileBytes = std::vector<uint8_t>;

// Why a file cannot be read.
struct ReadFault {
    int number = 0;  // The system's error number; 0 if the file is not of a kind that is read.
    // In words, which may follow the path and a colon. Empty if the file can be read.
    std::string reason;
};

// Reads a regular file, or a pipe up to its end. The copy in memory stays valid if another process
// replaces the file. Refuses a device, and 2 GiB or more. Throws std::bad_alloc.
ReadFault ReadFile(const char* path, FileBytes* bytes);

// A file mapped into memory, read-only. Keeps no descriptor.
class FileMapping {
  public:
    FileMapping() = default;
    ~FileMapping();
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;

    // Maps a regular file of less than 2 GiB. Call it once. Throws std::bad_alloc.
    ReadFault Map(const char* path);

    const uint8_t* Bytes() const { return mBytes; }
    size_t Size() const { return mSize; }

  private:
    uint8_t* mBytes = nullptr;  // Null if the file is empty.
    size_t mSize = 0;
};

}  // namespace offlinetz
