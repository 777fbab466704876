#include "open_database.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <reader/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "sha1_digest.h"

namespace offlinetz {

namespace {

using zonedetect::Refusal;

constexpr size_t kReadBytes = size_t{1} << 20;

struct Descriptor {
    int fd;

    explicit Descriptor(int opened) : fd(opened) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
};

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw std::runtime_error(path + ": " + reason);
}

bool HasDigest(const FileBytes& bytes) {
    const size_t length = bytes.size() - zonedetect::kTrailerSize;
    const Digest digest = DigestOf(bytes.data(), length);
    return std::equal(digest.begin(), digest.end(), bytes.data() + length);
}

// Why the reader refuses a file. `failure` is the result of OpenBytes for its bytes.
std::string ReasonOf(const FileBytes& bytes, const zonedetect::OpenFailure& failure) {
    if (bytes.empty()) return "empty";
    switch (failure.reason) {
        case Refusal::kNone:
            return "";
        case Refusal::kNoMemory:
            return "too large for the free memory";
        case Refusal::kTooLong:
            return "too large: it has 2 GiB or more";
        case Refusal::kTooShort:
            if (bytes.size() >= sizeof zonedetect::kMagic &&
                std::equal(std::begin(zonedetect::kMagic), std::end(zonedetect::kMagic),
                           bytes.begin())) {
                return "cut short: it ends within its header";
            }
            [[fallthrough]];
        case Refusal::kNotADatabase:
            return "not a zone database: it does not begin with PLB";
        case Refusal::kHeader:
            return "damaged or cut short: its header cannot be read";
        case Refusal::kSize:
            break;
    }
    return fmt::format("{}: it has {} bytes where its header states {}",
                       bytes.size() < failure.statedSize ? "cut short" : "damaged", bytes.size(),
                       failure.statedSize);
}

}  // namespace

std::shared_ptr<const FileBytes> ReadFileBytes(const std::string& path) try {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (file.fd < 0 || fstat(file.fd, &status) != 0) Fail(path, std::strerror(errno));
    // Reading a device might never end.
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
        Fail(path, "is a device, neither a file nor a pipe");
    }
    FileBytes bytes;
    if (S_ISREG(status.st_mode) && status.st_size <= INT32_MAX) {
        bytes.reserve(static_cast<size_t>(status.st_size) + kReadBytes);  // Avoids a second copy.
    }
    size_t size = 0;
    while (status.st_size <= INT32_MAX && size <= INT32_MAX) {
        bytes.resize(size + kReadBytes);
        ssize_t got = -1;
        do {
            got = read(file.fd, bytes.data() + size, kReadBytes);
        } while (got < 0 && errno == EINTR);
        if (got < 0) Fail(path, std::strerror(errno));
        size += static_cast<size_t>(got);
        bytes.resize(size);
        if (got == 0) return std::make_shared<const FileBytes>(std::move(bytes));
    }
    Fail(path, "has 2 GiB or more");
} catch (const std::bad_alloc&) {
    Fail(path, "is too large for the free memory");
}

size_t FileSize(const ZDDatabase& database) {
    return static_cast<size_t>(ZDGetLength(&database)) + zonedetect::kTrailerSize;
}

CheckedDatabase CheckFile(std::shared_ptr<const FileBytes> bytes, bool verify) {
    zonedetect::OpenFailure failure;
    CheckedDatabase checked;
    checked.database =
            DatabasePtr(zonedetect::OpenBytes(bytes->data(), bytes->size(), &failure), {bytes});
    if (checked.database == nullptr) {
        checked.fault = ReasonOf(*bytes, failure);
    } else if (verify && !HasDigest(*bytes)) {
        checked.fault = "damaged: the digest at its end does not match its content";
    }
    return checked;
}

DatabasePtr OpenDatabase(const std::string& path, bool verify) {
    CheckedDatabase checked = CheckFile(ReadFileBytes(path), verify);
    if (!checked.fault.empty()) Fail(path, "is " + checked.fault);
    return std::move(checked.database);
}

}  // namespace offlinetz
