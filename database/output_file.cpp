#include "output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace offlinetz {

namespace {

constexpr char kStandardInput[] = "-";
constexpr char kStandardOutput[] = "-";

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

std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
}

// Makes a rename in the directory durable.
void SynchroniseDirectoryOf(const std::string& path) {
    const std::string directory = DirectoryOf(path);
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) Fail(directory);
    const int result = fsync(fd);
    close(fd);
    if (result != 0) Fail(directory);
}

// The path of the temporary file, which a signal handler removes before the process ends. Null if
// there is no such file.
std::atomic<const char*> gTemporaryPath{nullptr};
static_assert(std::atomic<const char*>::is_always_lock_free,
              "a signal handler may read lock-free atomics only");

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXFSZ};

extern "C" void RemoveAndEnd(int signal) {
    const char* path = gTemporaryPath.load();
    if (path != nullptr) unlink(path);
    raise(signal);  // SA_RESETHAND has restored the default action, which ends the process.
}

// Installs RemoveAndEnd for the ending signals that have their default action.
void CatchEndingSignals() {
    for (const int signal : kEndingSignals) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) continue;
        action.sa_handler = RemoveAndEnd;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(signal, &action, nullptr);
    }
}

void ReleaseEndingSignals() {
    for (const int signal : kEndingSignals) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != RemoveAndEnd) continue;
        action.sa_handler = SIG_DFL;
        sigaction(signal, &action, nullptr);
    }
}

// Undoes CatchEndingSignals, once the temporary file is gone.
void Forget() {
    ReleaseEndingSignals();
    gTemporaryPath = nullptr;
}

// Blocks the ending signals while a temporary file exists that gTemporaryPath does not name yet.
class SignalHold {
  public:
    SignalHold() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : kEndingSignals)
            sigaddset(&held, signal);
        pthread_sigmask(SIG_BLOCK, &held, &mBefore);
    }
    ~SignalHold() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;

  private:
    sigset_t mBefore = {};
};

// Gives the file `fd` the mode of the file at `path`, and its owner if that is permitted. If there
// is no file at `path`, the mode is that of a file newly created by this process.
void TakePermissions(int fd, const std::string& path) {
    struct stat old = {};
    if (stat(path.c_str(), &old) != 0) {
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(fd, 0666 & ~mask) != 0) Fail(path);
        return;
    }
    const bool isOwned = fchown(fd, old.st_uid, old.st_gid) == 0;
    // Without the same owner, set-user-ID and set-group-ID bits would grant another user's rights.
    if (fchmod(fd, old.st_mode & (isOwned ? 07777u : 0777u)) != 0) Fail(path);
}

// Writes, synchronises and closes the temporary file `fd` that is to replace `path`.
void WriteTemporary(int fd, const std::vector<uint8_t>& bytes, const std::string& path) {
    try {
        WriteAll(fd, bytes, path);
        TakePermissions(fd, path);
        if (fsync(fd) != 0) Fail(path);
    } catch (...) {
        close(fd);
        throw;
    }
    close(fd);
}

// The file that `path` refers to, with symbolic links resolved. Throws if that is not a regular
// file, because the rename would replace a device or a pipe by one.
std::string TargetOf(const std::string& path) {
    if (path.empty()) throw std::invalid_argument("the output's name is empty");
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        struct stat link = {};
        if (errno != ENOENT || lstat(path.c_str(), &link) == 0) Fail(path);  // A dangling link.
        return path;
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::invalid_argument(path +
                                    ": is not a regular file, so it is not replaced by one (- is "
                                    "standard output)");
    }
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           &std::free);
    if (real == nullptr) Fail(path);
    return real.get();
}

}  // namespace

void CheckOutputPath(const std::string& path, const std::vector<std::string>& inputs) {
    if (path == kStandardOutput) return;
    const std::string target = TargetOf(path);
    if (access(DirectoryOf(target).c_str(), W_OK | X_OK) != 0) Fail(target);
    struct stat output = {};
    if (stat(target.c_str(), &output) != 0) return;
    for (const std::string& name : inputs) {
        struct stat input = {};
        const int result =
                name == kStandardInput ? fstat(STDIN_FILENO, &input) : stat(name.c_str(), &input);
        if (result == 0 && input.st_dev == output.st_dev && input.st_ino == output.st_ino)
            throw std::runtime_error(path + ": is an input; it would be overwritten");
    }
}

void WriteOutput(const std::string& path, const std::vector<uint8_t>& bytes) {
    if (path == kStandardOutput) {
        WriteAll(STDOUT_FILENO, bytes, "standard output");
        return;
    }
    const std::string target = TargetOf(path);
    std::string temporary = target + ".XXXXXX";
    int fd;
    {
        const SignalHold hold;
        fd = mkstemp(temporary.data());
        if (fd < 0) Fail(target);
        gTemporaryPath = temporary.c_str();
        CatchEndingSignals();
    }
    try {
        WriteTemporary(fd, bytes, target);
        if (std::rename(temporary.c_str(), target.c_str()) != 0) Fail(target);
    } catch (...) {
        unlink(temporary.c_str());
        Forget();
        throw;
    }
    Forget();
    SynchroniseDirectoryOf(target);
}

}  // namespace offlinetz
