// An empty directory that is the working directory while the object lives, and is then removed.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryDirectory {
  public:
    TemporaryDirectory() : mPrevious(std::filesystem::current_path()) {
        const char* parent = std::getenv("TMPDIR");
        mPath = std::string(parent != nullptr ? parent : "/tmp") + "/offlinetz-test-XXXXXX";
        if (mkdtemp(mPath.data()) == nullptr) std::abort();
        std::filesystem::current_path(mPath);
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::current_path(mPrevious, ignored);
        std::filesystem::remove_all(mPath, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  private:
    std::string mPath;
    std::string mPrevious;
};

inline size_t CountEntries(const char* directory) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory),
                                             std::filesystem::directory_iterator()));
}
