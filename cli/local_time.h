// Local time in zones, by the system's time zone tables.
#pragma once

#include <cctz/time_zone.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Seconds since 1970-01-01 00:00:00 UTC, without leap seconds.
using Instant = cctz::time_point<cctz::seconds>;

Instant Now();

// Parses an instant as ISO 8601 writes it: a date, T or a blank, a time to the minute, second or a
// part of it, and Z or an offset (2026-07-01T12:00Z, 2026-07-01 14:00:00.5+02:00). Parts of a
// second are dropped; there are no leap seconds. Throws std::invalid_argument with a message for
// the user, which quotes the text.
Instant ParseInstant(std::string_view text);

// The clock of a zone.
struct LocalTime {
    cctz::civil_second time;
    int offset;  // From UTC in seconds, east positive.
    // Such as CEST: letters, digits, + and -, or "?" where a table has other characters. Valid
    // until the process ends.
    const char* abbreviation;

    // Append texts: 2026-07-01T14:00:00; +02:00, with seconds where there are any.
    void AppendTime(std::string* text) const;
    void AppendOffset(std::string* text) const;
};

// The clocks of zones. Any number of threads may ask it.
class Clocks {
  public:
    // `names`: the identifiers of the zones. The table of a zone is read when it is first asked
    // for, from the directory that the environment variable TZDIR names, or /usr/share/zoneinfo.
    explicit Clocks(std::vector<std::string> names);

    // The clock of zone `i` of the names at an instant; nothing if the system has no table for it.
    std::optional<LocalTime> At(size_t i, Instant instant) const;

  private:
    struct Zone {
        std::once_flag isLoaded;  // Guards the members that follow.
        cctz::time_zone table;
        bool hasTable = false;
    };
    const std::vector<std::string> mNames;
    const std::unique_ptr<Zone[]> mZones;
};
