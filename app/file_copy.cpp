#include "file_copy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

constexpr size_t kBufferSize = 1 << 20;

struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
};

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw std::runtime_error(path + ": " + reason);
}

// Bytes read, 0 at the end.
size_t Read(int fd, std::vector<uint8_t>* buffer, const std::string& path) {
    ssize_t got = -1;
    do {
        got = read(fd, buffer->data(), buffer->size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) Fail(path, std::strerror(errno));
    return static_cast<size_t>(got);
}

void WriteAll(int fd, const uint8_t* bytes, size_t size, const std::string& path) {
    while (size > 0) {
        const ssize_t wrote = write(fd, bytes, size);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) Fail(path, std::strerror(errno));
        bytes += wrote;
        size -= static_cast<size_t>(wrote);
    }
}

// Copies a file and returns its size.
size_t CopyInto(int to, const std::string& path) {
    const Descriptor from{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    struct stat status = {};
    if (from.fd < 0 || fstat(from.fd, &status) != 0) Fail(path, std::strerror(errno));
    // A device may go on for ever.
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
        Fail(path, "is a device, neither a file nor a pipe");
    }
    std::vector<uint8_t> buffer(kBufferSize);
    size_t size = 0;
    while (status.st_size <= INT32_MAX && size <= INT32_MAX) {
        const size_t got = Read(from.fd, &buffer, path);
        if (got == 0) return size;
        WriteAll(to, buffer.data(), got, path);
        size += got;
    }
    Fail(path, "has 2 GiB or more");
}

}  // namespace

FileCopy::FileCopy(const std::string& path)
    : mFd(memfd_create("offlinetz", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    Descriptor owned{mFd};
    if (mFd < 0) Fail(path, std::strerror(errno));
    mSize = CopyInto(mFd, path);
    if (fcntl(mFd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) != 0) {
        Fail(path, std::strerror(errno));
    }
    if (mSize > 0) {
        void* mapping = mmap(nullptr, mSize, PROT_READ, MAP_PRIVATE, mFd, 0);
        if (mapping == MAP_FAILED) Fail(path, std::strerror(errno));
        mBytes = static_cast<const uint8_t*>(mapping);
    }
    owned.fd = -1;
}

FileCopy::~FileCopy() {
    if (mBytes != nullptr) munmap(const_cast<uint8_t*>(mBytes), mSize);
    close(mFd);
}

std::string FileCopy::Path() const {
    return "/proc/self/fd/" + std::to_string(mFd);
}
