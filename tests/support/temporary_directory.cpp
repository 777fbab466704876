#include "temporary_directory.h"

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() : mPrevious(fs::current_path()) {
    char path[] = "/tmp/offlinetz-test-XXXXXX";
    if (mkdtemp(path) == nullptr) std::abort();
    mPath = path;
    fs::current_path(mPath);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::current_path(mPrevious, ignored);
    fs::remove_all(mPath, ignored);
}
