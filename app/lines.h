// Lines of points on standard input, answered with a row each.
#pragma once

#include <functional>
#include <string>

#include "points.h"

// Reads standard input to its end and prints a row for each line, so that the two keep step.
// The row is what `answer` makes of the point: with `json` an object and all of the row, else a
// text behind the point and a tab. A blank line gives a blank row. A line that makes no sense
// gives the line, a tab and "error: " with the reason, or an object with "input" and "error"; the
// reason also goes to standard error with the line's number. Returns whether all lines made sense;
// throws std::runtime_error when the input cannot be read.
bool AnswerLines(bool json, const std::function<std::string(const PointText& point)>& answer);
