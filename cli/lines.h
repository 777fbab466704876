// Lines of points on standard input, answered with a row each.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "points.h"

// How lines are read and rows written.
struct LineFormat {
    bool json = false;
    // The names of a table's columns of latitude and longitude. Where one is given, the first line
    // must be a header with it; else it may be one with usual names.
    std::string latColumn;
    std::string lonColumn;
    // The names of the columns that a table gets.
    std::vector<std::string> answerColumns;
};

// What there is to say of a point: as a text, as columns of a table, and as an object.
struct LineAnswer {
    std::string text;
    std::vector<std::string> columns;
    nlohmann::ordered_json object;
};

// Reads standard input to its end and prints a row for each line, so that the two keep step. Lines
// are points, and a row the point, a tab and the answer's text; or the
// input is a table with a header, whose rows get the answer's columns behind their own. With json a
// row is the answer's object, behind the columns of a table by their names.
//
// A blank line gives a blank row. A line that makes no sense gives the line and "error: " with the
// reason in the place of the answer, or an object with "input" and "error"; the reason also goes to
// standard error with the line's number. Returns whether all lines made sense; throws
// std::runtime_error when the input cannot be read, or lacks the header that it must have.
bool AnswerLines(const LineFormat& format,
                 const std::function<LineAnswer(const PointText& point)>& answer);
