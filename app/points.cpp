#include "points.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace {

double ParseDegrees(std::string_view text, const char* name, double limit) {
    double degrees = 0.0;
    std::string_view number = text;
    // The conversion takes a minus only.
    if (number.substr(0, 1) == "+" && number.substr(0, 2) != "+-") number.remove_prefix(1);
    const auto [end, error] =
            std::from_chars(number.data(), number.data() + number.size(), degrees);
    if (error != std::errc() || end != number.data() + number.size()) {
        throw std::invalid_argument(fmt::format("{} '{}' is not a decimal number", name, text));
    }
    if (!(std::fabs(degrees) <= limit)) {
        throw std::invalid_argument(
                fmt::format("{} {} lies outside -{} to {}", name, text, limit, limit));
    }
    return degrees;
}

}  // namespace

PointText ParsePoint(std::string_view lat, std::string_view lon) {
    return {std::string(lat), std::string(lon), ParseDegrees(lat, "latitude", 90.0),
            ParseDegrees(lon, "longitude", 180.0)};
}

PointText ParsePointLine(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\r";
    constexpr std::string_view kSeparators = " \t\r,;";
    const auto trim = [&](std::string_view text) {
        const size_t first = text.find_first_not_of(kBlanks);
        if (first == std::string_view::npos) return std::string_view();
        return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
    };
    line = trim(line);
    const size_t latEnd = line.find_first_of(kSeparators);
    if (latEnd == std::string_view::npos) {
        throw std::invalid_argument("expected a latitude and a longitude");
    }
    std::string_view rest = trim(line.substr(latEnd));
    if (!rest.empty() && (rest.front() == ',' || rest.front() == ';')) {
        rest = trim(rest.substr(1));
    }
    return ParsePoint(line.substr(0, latEnd), rest);
}

bool VisitPointLines(const std::function<void(size_t number, const PointText& point)>& visit,
                     const std::function<void(const std::string& message)>& complain) {
    bool allMadeSense = true;
    std::string line;
    for (size_t number = 1; std::getline(std::cin, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        try {
            visit(number, ParsePointLine(line));
        } catch (const std::invalid_argument& error) {
            complain(fmt::format("offlinetz: line {}: {}", number, error.what()));
            allMadeSense = false;
        }
    }
    if (std::cin.bad() || std::ferror(stdin) != 0) {
        throw std::runtime_error("standard input cannot be read");
    }
    return allMadeSense;
}
