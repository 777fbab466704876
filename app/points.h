// Points as users write them.
#pragma once

#include <string>
#include <string_view>

// A point in degrees, with the texts that it was read from.
struct PointText {
    std::string latText;
    std::string lonText;
    double lat = 0.0;
    double lon = 0.0;
};

// Whether a line holds white space only.
bool IsBlank(std::string_view line);

// Reads a text that holds a latitude (-90 to 90) and a longitude (-180 to 180), decimal numbers
// with blanks, tabs, a comma or a semicolon between them. Throws std::invalid_argument with the
// reason, fit for a terminal.
PointText ParsePoint(std::string_view text);
