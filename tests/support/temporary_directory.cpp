#include "temporary_directory.h"

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() : mPrevious(fs::current_path()) {
    const char* parent = std::getenv("TMPDIR");
    mPath = std::string(parent != nullptr ? parent : "/tmp") + "/offlinetz-test-XXXXXX";
    if (mkdtemp(mPath.data()) == nullptr) std::abort();
    fs::current_path(mPath);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::current_path(mPrevious, ignored);
    fs::remove_all(mPath, ignored);
}
