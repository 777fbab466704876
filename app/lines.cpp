#include "lines.h"

#include <fmt/format.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "answer.h"
#include "printable.h"
#include "progress.h"

namespace {

constexpr size_t kProgressInterval = 1024;

std::string ErrorRow(bool json, const std::string& line, const char* reason) {
    return json ? OneLine({{"input", line}, {"error", reason}})
                : fmt::format("{}\terror: {}", Printable(line), reason);
}

}  // namespace

bool AnswerLines(bool json, const std::function<std::string(const PointText& point)>& answer) {
    Progress progress;
    bool allMadeSense = true;
    std::string line;
    for (size_t number = 1; std::getline(std::cin, line); ++number) {
        std::string row;
        try {
            if (!IsBlank(line)) {
                const PointText point = ParsePoint(line);
                row = json ? answer(point)
                           : fmt::format("{} {}\t{}", point.latText, point.lonText, answer(point));
            }
        } catch (const std::invalid_argument& error) {
            progress.PrintLine(fmt::format("offlinetz: line {}: {}", number, error.what()));
            row = ErrorRow(json, line, error.what());
            allMadeSense = false;
        }
        std::printf("%s\n", row.c_str());
        if (number % kProgressInterval == 0) progress.Show("looking up", number, 0);
    }
    if (std::cin.bad() || std::ferror(stdin) != 0) {
        throw std::runtime_error("standard input is closed or cannot be read");
    }
    return allMadeSense;
}
