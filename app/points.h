// Points as users write them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// A point in degrees, with the texts that it was read from.
struct PointText {
    std::string latText;
    std::string lonText;
    double lat = 0.0;
    double lon = 0.0;
};

// Reads a latitude (-90 to 90) and a longitude (-180 to 180), decimal numbers without more.
// Throws std::invalid_argument with the reason.
PointText ParsePoint(std::string_view lat, std::string_view lon);

// Reads a line that holds a latitude and a longitude with blanks, tabs, a comma or a semicolon
// between them. Throws std::invalid_argument with the reason.
PointText ParsePointLine(std::string_view line);

// Calls `visit` with the number, from 1, and the point of each line of standard input; blank lines
// are passed over. A line that makes no sense goes to `complain` as a whole message instead.
// Returns whether all made sense; throws std::runtime_error when the input cannot be read.
bool VisitPointLines(const std::function<void(size_t number, const PointText& point)>& visit,
                     const std::function<void(const std::string& message)>& complain);
