#include "file_bytes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace offlinetz {

namespace {

constexpr size_t kReadBytes = size_t{1} << 20;

struct OpenFile {
    int fd;
    struct stat status = {};
    ReadFault fault;

    // Opens a file. `canWait`: for the writer of a pipe.
    OpenFile(const char* path, bool canWait)
        : fd(open(path, O_RDONLY | O_CLOEXEC | (canWait ? 0 : O_NONBLOCK))) {
        if (fd < 0 || fstat(fd, &status) != 0) {
            fault = OfSystem();
        } else if (status.st_size > INT32_MAX) {
            fault = TooLarge();
        }
    }
    ~OpenFile() {
        if (fd >= 0) close(fd);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    static ReadFault OfSystem() {
        const int number = errno;
        return {number, std::generic_category().message(number)};
    }
    static ReadFault TooLarge() { return {0, "has 2 GiB or more"}; }
};

}  // namespace

ReadFault ReadFile(const char* path, FileBytes* bytes) {
    const OpenFile file(path, true);
    if (!file.fault.reason.empty()) return file.fault;
    // Reading a device might never end.
    if (S_ISCHR(file.status.st_mode) || S_ISBLK(file.status.st_mode))
        return {0, "is a device, neither a file nor a pipe"};
    // With a byte more than the file has, the last read is the one that sees its end.
    bytes->resize(S_ISREG(file.status.st_mode) ? static_cast<size_t>(file.status.st_size) + 1
                                               : kReadBytes);
    size_t size = 0;
    for (;;) {
        if (size == bytes->size()) bytes->resize(size + std::max(kReadBytes, size / 2));
        const ssize_t got = read(file.fd, bytes->data() + size, bytes->size() - size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return OpenFile::OfSystem();
        if (got == 0) break;
        size += static_cast<size_t>(got);
        if (size > INT32_MAX) return OpenFile::TooLarge();
    }
    bytes->resize(size);
    return {};
}

FileMapping::~FileMapping() {
    if (mBytes != nullptr) munmap(mBytes, mSize);
}

ReadFault FileMapping::Map(const char* path) {
    const OpenFile file(path, false);
    if (!file.fault.reason.empty()) return file.fault;
    if (!S_ISREG(file.status.st_mode)) return {0, "is not a regular file, so it cannot be mapped"};
    if (file.status.st_size == 0) return {};
    const auto size = static_cast<size_t>(file.status.st_size);
    void* const mapping = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.fd, 0);
    if (mapping == MAP_FAILED) return OpenFile::OfSystem();
    mBytes = static_cast<uint8_t*>(mapping);
    mSize = size;
    return {};
}

}  // namespace offlinetz
