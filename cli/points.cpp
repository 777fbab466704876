#include "points.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr double kMaxLatitude = 90.0;
constexpr double kMaxLongitude = 180.0;
constexpr std::string_view kDegreeSign = "\xC2\xB0";
constexpr std::string_view kSeparators = " \t\r,;";

// Removes the letter N, S, E or W after or before the degrees, and returns it as a capital. Returns
// 0 if there is none.
char TakeHemisphere(std::string_view* text) {
    constexpr std::string_view kLetters = "NSEWnsew";
    for (const bool isBehind : {true, false}) {
        if (text->empty()) break;
        const char c = isBehind ? text->back() : text->front();
        if (kLetters.find(c) == std::string_view::npos) continue;
        text->remove_suffix(isBehind ? 1 : 0);
        text->remove_prefix(isBehind ? 0 : 1);
        return static_cast<char>(c & ~0x20);  // ASCII upper case.
    }
    return '\0';
}

// Parses degrees from -limit to limit. A text with a letter is replaced by one with a sign.
double ParseDegrees(std::string* text, const char* name, double limit) {
    double degrees = 0.0;
    std::string_view number = *text;
    const char hemisphere = TakeHemisphere(&number);
    if (hemisphere != '\0' && number.size() >= kDegreeSign.size() &&
        number.substr(number.size() - kDegreeSign.size()) == kDegreeSign) {
        number.remove_suffix(kDegreeSign.size());
    }
    const std::string_view unsignedNumber = number;
    // std::from_chars accepts a minus but no plus.
    if (number.substr(0, 1) == "+" && number.substr(0, 2) != "+-") number.remove_prefix(1);
    const auto [end, error] =
            std::from_chars(number.data(), number.data() + number.size(), degrees);
    const std::string_view letters = limit == kMaxLatitude ? "NS" : "EW";
    if (error != std::errc() || end != number.data() + number.size() ||
        (hemisphere != '\0' &&
         (letters.find(hemisphere) == std::string_view::npos || unsignedNumber[0] < '0'))) {
        throw std::invalid_argument(fmt::format("{} '{}' is not a decimal number", name, *text));
    }
    if (!(std::fabs(degrees) <= limit)) {
        throw std::invalid_argument(
                fmt::format("{} {} lies outside -{} to {}", name, *text, limit, limit));
    }
    const bool isNegative = hemisphere == 'S' || hemisphere == 'W';
    if (hemisphere != '\0') *text = (isNegative ? "-" : "") + std::string(number);
    return isNegative ? -degrees : degrees;
}

bool IsLetter(std::string_view text) {
    const std::string_view before = text;
    return TakeHemisphere(&text) != '\0' && before.size() == 1;
}

// Splits the text at separators. Joins letters that stand alone with their degrees, if both stand
// before or both after them.
std::vector<std::string> Words(std::string_view text) {
    std::vector<std::string> words;
    for (size_t at = text.find_first_not_of(kSeparators); at != std::string_view::npos;) {
        const size_t end = std::min(text.find_first_of(kSeparators, at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = text.find_first_not_of(kSeparators, end);
    }
    if (words.size() != 4) return words;
    const size_t letter = IsLetter(words[0]) ? 0 : 1;
    if (!IsLetter(words[letter]) || !IsLetter(words[letter + 2])) return words;
    return {words[0] + words[1], words[2] + words[3]};
}

}  // namespace

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsBlank(std::string_view line) {
    return Trim(line).empty();
}

PointText ParsePoint(std::string_view lat, std::string_view lon) {
    PointText point = {std::string(Trim(lat)), std::string(Trim(lon))};
    point.lat = ParseDegrees(&point.latText, "latitude", kMaxLatitude);
    point.lon = ParseDegrees(&point.lonText, "longitude", kMaxLongitude);
    return point;
}

PointText ParsePoint(std::string_view text) {
    text = Trim(text);
    if (text.find_first_of("NSEWnsew") != std::string_view::npos) {
        const std::vector<std::string> words = Words(text);
        if (words.size() == 2) {
            std::string_view first = words[0];
            const char letter = TakeHemisphere(&first);
            const bool isSwapped = letter == 'E' || letter == 'W';
            return ParsePoint(words[isSwapped ? 1 : 0], words[isSwapped ? 0 : 1]);
        }
    }
    const size_t latEnd = text.find_first_of(kSeparators);
    if (latEnd == std::string_view::npos) {
        throw std::invalid_argument("expected a latitude and a longitude");
    }
    std::string_view lon = Trim(text.substr(latEnd));
    if (!lon.empty() && (lon.front() == ',' || lon.front() == ';')) lon = Trim(lon.substr(1));
    return ParsePoint(text.substr(0, latEnd), lon);
}

namespace {

// Removes a number at the beginning, and stores its value and its text.
bool TakeNumber(std::string_view* text, double limit, double* value, std::string_view* digits) {
    const char* const begin = text->data();
    const auto [end, error] = std::from_chars(begin, begin + text->size(), *value);
    if (error != std::errc() || !(std::fabs(*value) <= limit)) return false;
    const auto length = static_cast<size_t>(end - begin);
    *digits = text->substr(0, length);
    text->remove_prefix(length);
    return true;
}

void SkipBlanks(std::string_view* text) {
    text->remove_prefix(std::min(text->find_first_not_of(kBlanks), text->size()));
}

}  // namespace

bool ParsePlainPoint(std::string_view text, PointView* point) {
    SkipBlanks(&text);
    if (!TakeNumber(&text, kMaxLatitude, &point->lat, &point->latText) || text.empty() ||
        kSeparators.find(text.front()) == std::string_view::npos) {
        return false;
    }
    SkipBlanks(&text);
    if (!text.empty() && (text.front() == ',' || text.front() == ';')) text.remove_prefix(1);
    SkipBlanks(&text);
    if (!TakeNumber(&text, kMaxLongitude, &point->lon, &point->lonText)) return false;
    SkipBlanks(&text);
    return text.empty();
}

bool ParsePlainPoint(std::string_view lat, std::string_view lon, PointView* point) {
    lat = Trim(lat);
    lon = Trim(lon);
    return TakeNumber(&lat, kMaxLatitude, &point->lat, &point->latText) && lat.empty() &&
           TakeNumber(&lon, kMaxLongitude, &point->lon, &point->lonText) && lon.empty();
}
