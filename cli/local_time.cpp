#include "local_time.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace {

// The characters of abbreviations, as POSIX allows them.
constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";

bool IsPlain(std::string_view text) {
    return text.find_first_not_of(kPlain) == text.npos;
}

// Names come from a database, which may be hostile: they must not lead to other files, nor be one
// of the library's own notations.
bool IsIdentifier(std::string name) {
    if (name.empty() || name.front() == '/' || name.compare(0, 6, "Fixed/") == 0) return false;
    std::replace(name.begin(), name.end(), '/', '-');
    std::replace(name.begin(), name.end(), '_', '-');
    return IsPlain(name);
}

// Appends a number of two digits.
void AppendTwo(int number, std::string* text) {
    text->push_back(static_cast<char>('0' + number / 10));
    text->push_back(static_cast<char>('0' + number % 10));
}

bool Take(char wanted, std::string_view* text) {
    if (text->empty() || text->front() != wanted) return false;
    text->remove_prefix(1);
    return true;
}

// Takes a number of exactly so many digits from the front of a text.
bool Take(size_t digits, std::string_view* text, int* number) {
    if (text->size() < digits) return false;
    *number = 0;
    for (const char c : text->substr(0, digits)) {
        if (c < '0' || c > '9') return false;
        *number = 10 * *number + (c - '0');
    }
    text->remove_prefix(digits);
    return true;
}

// Takes Z or an offset of up to 23:59 from the front of a text. `*offset`: in minutes.
bool TakeOffset(std::string_view* text, int* offset) {
    *offset = 0;
    if (Take('Z', text)) return true;
    const bool isWest = Take('-', text);
    int hours, minutes;
    if ((!isWest && !Take('+', text)) || !Take(2, text, &hours) || !Take(':', text) ||
        !Take(2, text, &minutes) || hours > 23 || minutes > 59) {
        return false;
    }
    *offset = (isWest ? -1 : 1) * (60 * hours + minutes);
    return true;
}

// Not by the library's parser: it also accepts second 60, 12:5 and years below 0, and takes twice
// the time for a column of instants.
bool Parse(std::string_view text, Instant* instant) {
    int year, month, day, hour, minute, offset;
    int second = 0;
    if (!Take(4, &text, &year) || !Take('-', &text) || !Take(2, &text, &month) ||
        !Take('-', &text) || !Take(2, &text, &day) || (!Take('T', &text) && !Take(' ', &text)) ||
        !Take(2, &text, &hour) || !Take(':', &text) || !Take(2, &text, &minute)) {
        return false;
    }
    if (Take(':', &text)) {
        if (!Take(2, &text, &second)) return false;
        int digit;
        if (Take('.', &text) && !Take(1, &text, &digit)) return false;
        while (Take(1, &text, &digit)) {
        }
    }
    if (!TakeOffset(&text, &offset) || !text.empty()) return false;
    if (hour > 23 || minute > 59 || second > 59) return false;
    const cctz::civil_second time(year, month, day, hour, minute, second);
    if (time.month() != month || time.day() != day) return false;  // There is no such day.
    *instant = Instant(cctz::seconds(time - cctz::civil_second(1970, 1, 1) - 60 * offset));
    return true;
}

}  // namespace

Instant Now() {
    return std::chrono::time_point_cast<cctz::seconds>(std::chrono::system_clock::now());
}

Instant ParseInstant(std::string_view text) {
    Instant instant;
    if (Parse(text, &instant)) return instant;
    std::string quoted(text.substr(0, 64));
    std::replace(quoted.begin(), quoted.end(), '\0', ' ');  // It would end the message.
    throw std::invalid_argument(fmt::format(
            "'{}' is not an instant with an offset, such as 2026-07-01T12:00:00Z", quoted));
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
    return LocalTime{clock.cs, clock.offset, IsPlain(clock.abbr) ? clock.abbr : "?"};
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
