// 32-bit systems refuse to open a file of 2 GiB or more without this. Such a file in the place of a
// database must be replaced there too.
#if !defined(__LP64__)
#define _FILE_OFFSET_BITS 64
#endif

#include "database_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

// O_NONBLOCK: opening a pipe must not wait for its other end.
constexpr int kFlags = O_NONBLOCK | O_CLOEXEC;

FILE* CloseAndFail(int fd, int error) {
    close(fd);
    errno = error;
    return nullptr;
}

FILE* MakeStream(int fd, const char* mode) {
    FILE* file = fdopen(fd, mode);
    return file != nullptr ? file : CloseAndFail(fd, errno);
}

}  // namespace

FILE* OpenForReading(const char* path) {
    const int fd = open(path, O_RDONLY | kFlags);
    if (fd < 0) return nullptr;
    struct stat status = {};
    if (fstat(fd, &status) != 0) return CloseAndFail(fd, errno);
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return CloseAndFail(fd, ENODEV);
    return MakeStream(fd, "rb");
}

FILE* OpenForWriting(const char* path, const char* kept) {
    // No O_TRUNC: making the stream may fail without memory, and the file may hold the only copy of
    // a database.
    const int fd = open(path, O_WRONLY | O_CREAT | kFlags, 0666);
    if (fd < 0) return nullptr;
    struct stat status = {};
    struct stat keptStatus = {};
    if (fstat(fd, &status) != 0) return CloseAndFail(fd, errno);
    if (!S_ISREG(status.st_mode)) return CloseAndFail(fd, ENODEV);
    if (stat(kept, &keptStatus) == 0 && status.st_dev == keptStatus.st_dev &&
        status.st_ino == keptStatus.st_ino) {
        return CloseAndFail(fd, EINVAL);
    }
    return MakeStream(fd, "wb");
}

bool Truncate(FILE* file) {
    return ftruncate(fileno(file), 0) == 0;
}

void Synchronise(const char* path) {
    const int fd = open(path, O_RDONLY | kFlags);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}
