// The process that hosts the service on a device. It installs the first database, then offers the
// library's service object to clients in other processes.
#include <android/log.h>
#include <fcntl.h>
#include <hidl/LegacySupport.h>
#include <unistd.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "../default/database_paths.h"

// The database in the device's image.
#ifndef OFFLINETZ_FIRST_DATABASE
#define OFFLINETZ_FIRST_DATABASE "/vendor/etc/offlinetz/world.bin"
#endif

namespace {

constexpr char kFirstDatabase[] = OFFLINETZ_FIRST_DATABASE;
constexpr char kUnfinishedPath[] = OFFLINETZ_DATABASE_DIR "/first.tmp";

// Copies from one descriptor to another until the end. Returns false with errno set on failure.
bool CopyAll(int from, int to) {
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(from, buffer, sizeof buffer);
        if (got <= 0) return got == 0;
        for (ssize_t done = 0; done < got;) {
            const ssize_t written = write(to, buffer + done, static_cast<size_t>(got - done));
            if (written < 0) return false;
            done += written;
        }
    }
}

// Returns true if every byte has reached the storage medium. Otherwise returns false with errno
// set; `to` may then be partly written.
bool CopyFile(const char* from, const char* to) {
    const int source = open(from, O_RDONLY | O_CLOEXEC);
    if (source < 0) return false;
    const int destination = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool isCopied =
            destination >= 0 && CopyAll(source, destination) && fsync(destination) == 0;
    const int error = errno;
    close(source);
    if (destination >= 0) close(destination);
    errno = error;
    return isCopied;
}

// If neither database file exists, installs the image's database as the backup, from which the
// service restores the active file. It is written to another file, synchronised and renamed: a
// power cut leaves no backup or a complete one. Logs a failure.
void PutFirstDatabase() {
    if (access(kActiveDatabasePath, F_OK) == 0 || access(kBackupDatabasePath, F_OK) == 0) return;
    if (!CopyFile(kFirstDatabase, kUnfinishedPath) ||
        rename(kUnfinishedPath, kBackupDatabasePath) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, "OfflinetimezoneService", "copy %s to %s failed %s",
                            kFirstDatabase, kBackupDatabasePath, std::strerror(errno));
        unlink(kUnfinishedPath);
        return;
    }
    const int directory = open(kDatabaseDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return;
    fsync(directory);
    close(directory);
}

}  // namespace

int main() {
    using ::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;
    PutFirstDatabase();
    // Returns only if the service cannot be offered. The system's init then restarts the process.
    const android::status_t status =
            android::hardware::defaultPassthroughServiceImplementation<IOfflinetimezone>();
    return status == android::OK ? 0 : 1;
}
