#include "local_time.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace {

// Names come from a database, which may be hostile: they must not lead to other files, nor be one
// of the library's own notations.
bool IsIdentifier(std::string_view name) {
    const auto isPlain = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '/' || c == '_' || c == '-' || c == '+';
    };
    return !name.empty() && name.front() != '/' && name.substr(0, 6) != "Fixed/" &&
           std::all_of(name.begin(), name.end(), isPlain);
}

// Appends a number of two digits.
void AppendTwo(int number, std::string* text) {
    text->push_back(static_cast<char>('0' + number / 10));
    text->push_back(static_cast<char>('0' + number % 10));
}

// Takes a number of some digits, and then a character unless it is 0, from the front of a text.
bool Take(size_t digits, char behind, std::string_view* text, int* number) {
    if (text->size() < digits + (behind != 0 ? 1 : 0)) return false;
    *number = 0;
    for (size_t i = 0; i < digits; ++i) {
        const char c = (*text)[i];
        if (c < '0' || c > '9') return false;
        *number = 10 * *number + (c - '0');
    }
    if (behind != 0 && (*text)[digits] != behind) return false;
    text->remove_prefix(digits + (behind != 0 ? 1 : 0));
    return true;
}

// Parses 2026-07-01T12:00:00Z and no other form: many times as fast as the library.
bool ParsePlain(std::string_view text, Instant* instant) {
    int year, month, day, hour, minute, second;
    if (!Take(4, '-', &text, &year) || !Take(2, '-', &text, &month) || !Take(2, 'T', &text, &day) ||
        !Take(2, ':', &text, &hour) || !Take(2, ':', &text, &minute) ||
        !Take(2, 'Z', &text, &second) || !text.empty()) {
        return false;
    }
    const cctz::civil_second time(year, month, day, hour, minute, second);
    // Days that do not exist and second 60 become other ones.
    if (time.month() != month || time.day() != day || time.minute() != minute || hour > 23)
        return false;
    *instant = Instant(cctz::seconds(time - cctz::civil_second(1970, 1, 1)));
    return true;
}

}  // namespace

Instant Now() {
    return std::chrono::time_point_cast<cctz::seconds>(std::chrono::system_clock::now());
}

Instant ParseInstant(std::string_view text) {
    Instant plain;
    if (ParsePlain(text, &plain)) return plain;
    std::string iso(text);
    constexpr size_t kDateLength = 10;  // 2026-07-01
    if (iso.size() > kDateLength && iso[4] == '-' && iso[7] == '-') {
        if (iso[kDateLength] == ' ') iso[kDateLength] = 'T';
        for (const char* format : {"%Y-%m-%dT%H:%M:%E*S%Ez", "%Y-%m-%dT%H:%M%Ez"}) {
            cctz::time_point<cctz::seconds> instant;
            if (cctz::parse(format, iso, cctz::utc_time_zone(), &instant)) return instant;
        }
    }
    throw std::invalid_argument(fmt::format(
            "'{}' is not an instant with an offset, such as 2026-07-01T12:00:00Z", text));
}

Clocks::Clocks(std::vector<std::string> names)
    : mNames(std::move(names)), mZones(std::make_unique<Zone[]>(mNames.size())) {}

std::optional<LocalTime> Clocks::At(size_t i, Instant instant) const {
    Zone& zone = mZones[i];
    std::call_once(zone.isLoaded, [&] {
        zone.hasTable = IsIdentifier(mNames[i]) && cctz::load_time_zone(mNames[i], &zone.table);
    });
    if (!zone.hasTable) return std::nullopt;
    const cctz::time_zone::absolute_lookup clock = zone.table.lookup(instant);
    return LocalTime{clock.cs, clock.offset, clock.abbr};
}

void LocalTime::AppendTime(std::string* text) const {
    if (time.year() < 0 || time.year() > 9999) {
        text->append(std::to_string(time.year()));
    } else {
        AppendTwo(static_cast<int>(time.year() / 100), text);
        AppendTwo(static_cast<int>(time.year() % 100), text);
    }
    const std::pair<char, int> parts[] = {{'-', time.month()},
                                          {'-', time.day()},
                                          {'T', time.hour()},
                                          {':', time.minute()},
                                          {':', time.second()}};
    for (const auto& [before, number] : parts) {
        text->push_back(before);
        AppendTwo(number, text);
    }
}

void LocalTime::AppendOffset(std::string* text) const {
    const int size = std::abs(offset);
    text->push_back(offset < 0 ? '-' : '+');
    AppendTwo(size / 3600, text);
    text->push_back(':');
    AppendTwo(size / 60 % 60, text);
    if (size % 60 == 0) return;
    text->push_back(':');
    AppendTwo(size % 60, text);
}
