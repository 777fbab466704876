// The service's two database files, read directly: the service itself reports only a status and a
// version.
#pragma once

#include <cstdint>
#include <string>

// The directory that is built into the shipped library.
std::string DefaultDatabaseDirectory();

// Reads the files at each call. May be called on any thread.
class DatabaseDirectory {
  public:
    // Touches no file. The directory need not exist.
    explicit DatabaseDirectory(std::string path);

    // Two lines: the state of the active file and of the backup, or why each cannot be read.
    std::string Describe() const;

    // Whether the reader accepts the file and its digest matches its content.
    bool ActiveIsGood() const;
    bool BackupIsGood() const;

    // Whether this process has the active file open, as a service in this process does that uses
    // it.
    bool IsInUse() const;

    // Why the disk has no room for an update by a file of `size` bytes, or empty if it has. An
    // update overwrites first the backup and then the active file, so it needs more room only as
    // far as the new file is larger than the old ones.
    std::string LackOfRoom(uint64_t size) const;

  private:
    std::string mPath;
    std::string mActive;
    std::string mBackup;
};
