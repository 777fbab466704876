// A file's bytes as they were when it was read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Holds the bytes in memory that no other process reaches and that nothing changes: a database
// that is judged, opened and read here may meanwhile be replaced where it came from, and mapping
// that file itself would end this process when it becomes shorter.
class FileCopy {
  public:
    // Reads a regular file, or a pipe to its end. Throws std::runtime_error with the path and the
    // reason, among them 2 GiB or more, which no reader of databases takes.
    explicit FileCopy(const std::string& path);
    ~FileCopy();
    FileCopy(const FileCopy&) = delete;
    FileCopy& operator=(const FileCopy&) = delete;

    const uint8_t* Bytes() const { return mBytes; }
    size_t Size() const { return mSize; }

    // Where this process can open the copy by a path while this object lives.
    std::string Path() const;

  private:
    int mFd;
    size_t mSize = 0;
    const uint8_t* mBytes = nullptr;
};
