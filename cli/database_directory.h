// The service's two database files, looked at from outside: the service itself tells no more than
// a status and a version.
#pragma once

#include <cstdint>
#include <string>

// The directory that the shipped library was built for.
std::string DefaultDatabaseDirectory();

class DatabaseDirectory {
  public:
    // Touches nothing yet; the directory need not be there.
    explicit DatabaseDirectory(std::string path);

    // Two lines: what the active file and the backup are, or why they cannot be read.
    std::string Describe() const;

    bool ActiveIsGood() const;
    bool BackupIsGood() const;

    // Whether this process has the active file open, as a service in it has that uses the file.
    bool IsInUse() const;

    // Why an update by a file of `size` bytes finds no room: it writes the backup over first and
    // then the active file, so each takes the place of one that may be smaller. Empty where there
    // is room.
    std::string LackOfRoom(uint64_t size) const;

  private:
    std::string mPath;
    std::string mActive;
    std::string mBackup;
};
