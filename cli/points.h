// Parses points as users write them.
#pragma once

#include <string>
#include <string_view>

// A point in degrees, and its coordinates as decimal numbers in text, as the service takes them.
struct PointText {
    std::string latText;
    std::string lonText;
    double lat = 0.0;
    double lon = 0.0;
};

// The same with texts that lie in the text that was parsed.
struct PointView {
    std::string_view latText;
    std::string_view lonText;
    double lat = 0.0;
    double lon = 0.0;
};

// The text without blanks, tabs and carriage returns at its ends.
std::string_view Trim(std::string_view text);

// Whether a line contains nothing but blanks, tabs and carriage returns.
bool IsBlank(std::string_view line);

// Parses a latitude (-90 to 90) and a longitude (-180 to 180) in one text. They are either decimal
// numbers, latitude first, separated by blanks, tabs, a comma or a semicolon; or degrees with N, S,
// E or W before or after each, in any order (48.85N 2.35E; 2.35° E, 48.85° N). Throws
// std::invalid_argument with a message for the user; the message quotes the text as it is.
PointText ParsePoint(std::string_view text);

// Parses a latitude and a longitude, each in a text of its own.
PointText ParsePoint(std::string_view lat, std::string_view lon);

// Do what ParsePoint does for two decimal numbers without a plus, and many times as fast. Return
// false for any other text; ParsePoint decides then.
bool ParsePlainPoint(std::string_view text, PointView* point);
bool ParsePlainPoint(std::string_view lat, std::string_view lon, PointView* point);
