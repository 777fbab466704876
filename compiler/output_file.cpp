#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <utility>

namespace offlinetz {

namespace {

[[noreturn]] void Fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

void WriteAll(int fd, const std::vector<uint8_t>& bytes, const std::string& path) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t wrote = write(fd, bytes.data() + done, bytes.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) Fail(path);
        done += static_cast<size_t>(wrote);
    }
}

// The rename itself must reach the medium too.
void SynchroniseDirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string directory =
            slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) Fail(directory);
    const int result = fsync(fd);
    close(fd);
    if (result != 0) Fail(directory);
}

// The file that `path` stands for: the target of a link, and never anything but a regular file,
// because the rename would put one in the place of a device or a pipe.
std::string TargetOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        struct stat link = {};
        if (errno != ENOENT || lstat(path.c_str(), &link) == 0) Fail(path);  // A link to nothing.
        return path;
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::system_error(std::make_error_code(std::errc::invalid_argument),
                                path + " is not a regular file");
    }
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           &std::free);
    if (real == nullptr) Fail(path);
    return real.get();
}

}  // namespace

OutputFile::OutputFile(const std::string& path, const std::vector<uint8_t>& bytes)
    : mPath(TargetOf(path)) {
    std::string name = mPath + ".XXXXXX";
    const int fd = mkstemp(name.data());
    if (fd < 0) Fail(mPath);
    try {
        WriteAll(fd, bytes, mPath);
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(fd, 0666 & ~mask) != 0 || fsync(fd) != 0) Fail(mPath);
    } catch (...) {
        close(fd);
        unlink(name.c_str());
        throw;
    }
    close(fd);
    mTemporaryPath = std::move(name);
}

OutputFile::~OutputFile() {
    if (!mTemporaryPath.empty()) unlink(mTemporaryPath.c_str());
}

void OutputFile::Commit() {
    if (std::rename(mTemporaryPath.c_str(), mPath.c_str()) != 0) Fail(mPath);
    mTemporaryPath.clear();
    SynchroniseDirectoryOf(mPath);
}

}  // namespace offlinetz
