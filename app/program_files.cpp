#include "program_files.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

std::string BesideProgram(const std::string& relative) {
    std::error_code ignored;  // Without /proc the path is relative to the working directory.
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    return (program.parent_path() / relative).lexically_normal().string();
}
