#include "options.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <system_error>

CLI::Validator WholeNumber(uint64_t least, uint64_t greatest) {
    const std::string range = fmt::format("{} to {}", least, greatest);
    return CLI::Validator(
            [least, greatest, range](std::string& text) {
                uint64_t number = 0;
                const char* const end = text.data() + text.size();
                const auto [stop, error] = std::from_chars(text.data(), end, number);
                if (error != std::errc() || stop != end || number < least || number > greatest) {
                    return fmt::format("{} is not a whole number from {}", text, range);
                }
                text = std::to_string(number);  // Without leading zeros.
                return std::string();
            },
            range);
}

CLI::Validator NamesFile() {
    return CLI::Validator(
            [](const std::string& path) {
                return path.empty() ? std::string("an empty path names no file") : std::string();
            },
            "");
}

std::string BesideProgram(const std::string& relative) {
    std::error_code ignored;  // Without /proc the path is relative to the working directory.
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    return (program.parent_path() / relative).lexically_normal().string();
}
