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

    // Whether this process has the active file open. A service in this process that uses the file
    // keeps it open.
    bool IsInUse() const;

    // Returns why the disk has no room for an update by a file of `size` bytes; empty if it has
    // room. An update overwrites the backup and then the active file, so it needs only the bytes by
    // which the new file exceeds them.
    std::string LackOfRoom(uint64_t size) const;

  private:
    std::string mPath;
    std::string mActive;
    std::string mBackup;
};
