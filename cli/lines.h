// Answers points from standard input, one output row for each input line.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "points.h"

// How lines are read and rows are written.
struct LineFormat {
    bool json = false;
    // The names of a table's latitude and longitude columns. If one is given, the first line must
    // be a header with that column. If none is, the first line may be a header with usual names.
    std::string latColumn;
    std::string lonColumn;
    std::vector<std::string> answerColumns;  // The names of the columns that are appended.
    bool hasColumnOptions = false;           // Whether messages may refer to --lat and --lon.
};

// The answer for one point, in each form of output.
struct LineAnswer {
    std::string text;
    std::vector<std::string> columns;  // As many as LineFormat::answerColumns.
    nlohmann::ordered_json object;     // Set if LineFormat::json is.
};

// Reads standard input to its end and prints one row for each line, in order.
//
// - A line is a point (points.h). Its row is the point, a tab and the answer's text.
// - If the first line is a header, the input is a table. Its rows get the answer's columns.
// - With `json`, a row is the answer's object, after the fields of a table's row by their names.
// - A blank line gives a blank row.
// - A line without a point gives the line and "error: " with the reason instead of the answer. With
//   `json` it gives an object with "input" and "error". The reason and the line's number also go to
//   standard error.
//
// Returns whether every line was valid. Throws std::runtime_error if the input cannot be read or
// its header lacks a column; rows printed so far stay.
bool AnswerLines(const LineFormat& format,
                 const std::function<LineAnswer(const PointText& point)>& answer);

// The point of a command line's arguments; none if `isGiven` is false, for lines of points instead.
// Throws UsageError (commands.h) if they are not a point.
std::optional<PointText> PointOfArguments(bool isGiven, const std::string& lat,
                                          const std::string& lon);

// Prints the answer for `point`, or, without one, does what AnswerLines does.
bool AnswerPointOrLines(const std::optional<PointText>& point, const LineFormat& format,
                        const std::function<LineAnswer(const PointText& point)>& answer);
