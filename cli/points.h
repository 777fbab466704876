// Points as users write them.
#pragma once

#include <string>
#include <string_view>

// A point in degrees, with the texts that it was read from, decimal numbers.
struct PointText {
    std::string latText;
    std::string lonText;
    double lat = 0.0;
    double lon = 0.0;
};

// Whether a line holds white space only.
bool IsBlank(std::string_view line);

// Reads a text that holds a latitude (-90 to 90) and a longitude (-180 to 180), decimal numbers
// with blanks, tabs, a comma or a semicolon between them, or degrees with N, S, E or W before or
// behind them (48.85N 2.35E; 2.35° E, 48.85° N), in either order then. Throws std::invalid_argument
// with the reason, fit for a terminal.
PointText ParsePoint(std::string_view text);

// The same of two texts, a latitude and a longitude.
PointText ParsePoint(std::string_view lat, std::string_view lon);
