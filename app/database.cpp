#include "database.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

// Sends standard output to nowhere while it lives.
class SilencedOutput {
  public:
    SilencedOutput() {
        std::fflush(stdout);
        mSaved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere >= 0) {
            dup2(nowhere, STDOUT_FILENO);
            close(nowhere);
        }
    }
    ~SilencedOutput() {
        std::fflush(stdout);
        if (mSaved >= 0) {
            dup2(mSaved, STDOUT_FILENO);
            close(mSaved);
        }
    }
    SilencedOutput(const SilencedOutput&) = delete;
    SilencedOutput& operator=(const SilencedOutput&) = delete;

  private:
    int mSaved;
};

}  // namespace

DatabasePtr OpenDatabase(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    const SilencedOutput silenced;
    DatabasePtr database(ZDOpenDatabase(path.c_str()));
    if (database == nullptr) throw std::runtime_error(path + ": is not a zone database");
    return database;
}
