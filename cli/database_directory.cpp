#include "database_directory.h"

#include <database_paths.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "database/open_database.h"
#include "message.h"

namespace fs = std::filesystem;

namespace {

// Describes the state of a database file in `*verdict`. Returns whether the file is good.
bool Judge(const std::string& path, std::string* verdict) {
    std::error_code ignored;
    if (fs::is_fifo(path, ignored)) {  // Opening it would wait for a writer.
        *verdict = path + ": is a pipe";
        return false;
    }
    try {
        const auto [database, fault] = offlinetz::CheckFile(offlinetz::ReadFileBytes(path));
        *verdict = fmt::format(
                "{}: {}", path,
                fault.empty() ? fmt::format("good, version {}", ZDgetDBVersion(database.get()))
                              : fault);
        return fault.empty();
    } catch (const std::runtime_error& error) {
        *verdict = error.what();
        return false;
    }
}

// The bytes that a file occupies on its disk. Overwriting the file releases them.
int64_t BytesTaken(const std::string& path) {
    constexpr int64_t kBlockOfStat = 512;
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_blocks * kBlockOfStat : 0;
}

}  // namespace

std::string DefaultDatabaseDirectory() {
    return fs::path(kActiveDatabasePath).parent_path().string();
}

DatabaseDirectory::DatabaseDirectory(std::string path)
    : mPath(std::move(path)),
      mActive(fs::path(mPath) / fs::path(kActiveDatabasePath).filename()),
      mBackup(fs::path(mPath) / fs::path(kBackupDatabasePath).filename()) {}

std::string DatabaseDirectory::Describe() const {
    std::string active;
    std::string backup;
    Judge(mActive, &active);
    Judge(mBackup, &backup);
    return fmt::format("active  {}\nbackup  {}\n", Printable(active), Printable(backup));
}

bool DatabaseDirectory::ActiveIsGood() const {
    std::string ignored;
    return Judge(mActive, &ignored);
}

bool DatabaseDirectory::IsInUse() const {
    std::error_code ignored;
    for (const fs::directory_entry& open : fs::directory_iterator("/proc/self/fd", ignored)) {
        if (fs::equivalent(open.path(), mActive, ignored)) return true;
    }
    return false;
}

bool DatabaseDirectory::BackupIsGood() const {
    std::string ignored;
    return Judge(mBackup, &ignored);
}

std::string DatabaseDirectory::LackOfRoom(uint64_t size) const {
    struct statvfs medium = {};
    if (statvfs(mPath.c_str(), &medium) != 0) {
        return fmt::format("{}: {}", mPath, std::strerror(errno));
    }
    const auto block = static_cast<int64_t>(medium.f_frsize);
    const auto free = static_cast<int64_t>(medium.f_bavail) * block;
    const int64_t file = (static_cast<int64_t>(size) + block - 1) / block * block;
    const int64_t forBackup = file - BytesTaken(mBackup);
    const int64_t forBoth = forBackup + file - BytesTaken(mActive);
    const int64_t needed = std::max(forBackup, forBoth);
    if (needed <= free) return "";
    return fmt::format("{} has {} bytes free, but the update needs {}", mPath, free, needed);
}
