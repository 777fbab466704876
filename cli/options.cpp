#include "options.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <system_error>

CLI::Validator WholeNumber(uint64_t least, uint64_t greatest, bool orZero) {
    return CLI::Validator(
            [=](std::string& text) {
                uint64_t number = 0;
                const char* const end = text.data() + text.size();
                const auto [stop, error] = std::from_chars(text.data(), end, number);
                const bool isInRange =
                        (number >= least && number <= greatest) || (orZero && number == 0);
                if (error != std::errc() || stop != end || !isInRange) {
                    return fmt::format("{} is not a whole number from {} to {}{}", text, least,
                                       greatest, orZero ? ", or 0" : "");
                }
                text = std::to_string(number);  // Without leading zeros.
                return std::string();
            },
            "");
}

CLI::Validator Number(double least, double greatest) {
    return CLI::Validator(
            [=](const std::string& text) {
                double number = 0.0;
                const char* const end = text.data() + text.size();
                const auto [stop, error] = std::from_chars(text.data(), end, number);
                return error == std::errc() && stop == end && number >= least && number <= greatest
                               ? std::string()
                               : fmt::format("{} is not a number from {} to {}", text, least,
                                             greatest);
            },
            "");
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
