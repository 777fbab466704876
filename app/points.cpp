#include "points.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <stdexcept>

#include "printable.h"

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kSeparators = " \t\r,;";

double ParseDegrees(std::string_view text, const char* name, double limit) {
    double degrees = 0.0;
    std::string_view number = text;
    // The conversion takes a minus only.
    if (number.substr(0, 1) == "+" && number.substr(0, 2) != "+-") number.remove_prefix(1);
    const auto [end, error] =
            std::from_chars(number.data(), number.data() + number.size(), degrees);
    if (error != std::errc() || end != number.data() + number.size()) {
        throw std::invalid_argument(
                fmt::format("{} '{}' is not a decimal number", name, Printable(text)));
    }
    if (!(std::fabs(degrees) <= limit)) {
        throw std::invalid_argument(
                fmt::format("{} {} lies outside -{} to {}", name, text, limit, limit));
    }
    return degrees;
}

// `text` without white space at its ends.
std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

bool IsBlank(std::string_view line) {
    return Trim(line).empty();
}

PointText ParsePoint(std::string_view text) {
    text = Trim(text);
    const size_t latEnd = text.find_first_of(kSeparators);
    if (latEnd == std::string_view::npos) {
        throw std::invalid_argument("expected a latitude and a longitude");
    }
    const std::string_view lat = text.substr(0, latEnd);
    std::string_view lon = Trim(text.substr(latEnd));
    if (!lon.empty() && (lon.front() == ',' || lon.front() == ';')) lon = Trim(lon.substr(1));
    return {std::string(lat), std::string(lon), ParseDegrees(lat, "latitude", 90.0),
            ParseDegrees(lon, "longitude", 180.0)};
}
