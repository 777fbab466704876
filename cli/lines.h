// Answers points from standard input, one output row for each input record.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "local_time.h"
#include "points.h"

// Points to look up, an element of each vector for each point.
struct PointColumns {
    std::vector<double> lats;  // Degrees.
    std::vector<double> lons;
    // As decimal numbers in text. Empty unless LineFormat::needsTexts is set.
    std::vector<std::string_view> latTexts;
    std::vector<std::string_view> lonTexts;
    // Of LineFormat::instantColumn; empty without one.
    std::vector<Instant> instants;
};

// The names of an answer's values in a JSON object.
struct AnswerKeys {
    std::string zones = "zones";
    std::string error = "error";
    std::string raw = "raw";
    std::string radius = "radius_km";
    std::string border = "border";
    std::string within = "zones_within";
    std::string localTime = "local_time";
    std::string offset = "utc_offset";
    std::string abbreviation = "abbreviation";
};

// The answers for some points, in each form of output. `i` is the number of a point.
class Answers {
  public:
    virtual ~Answers() = default;
    virtual bool IsError(size_t i) const = 0;
    // Append to a row: the text for a line; a field for each answer column of a table, each with a
    // separator before it; the members of a JSON object, each with a comma before it.
    virtual void AppendText(size_t i, std::string* row) const = 0;
    virtual void AppendFields(size_t i, char separator, std::string* row) const = 0;
    virtual void AppendMembers(size_t i, const AnswerKeys& keys, std::string* row) const = 0;
};

// How lines are read and rows are written.
struct LineFormat {
    bool json = false;
    // The names of a table's latitude and longitude columns. If one is given, the first line must
    // be a header with that column. If none is, the first line may be a header with usual names.
    std::string latColumn;
    std::string lonColumn;
    // The name of a table's column of instants, which the header must have; none if it is empty.
    std::string instantColumn;
    std::vector<std::string> answerColumns;  // The names of the columns that are appended.
    bool hasColumnOptions = false;           // Whether messages may refer to --lat and --lon.
    size_t maxRow = size_t{1} << 20;         // The length of the longest record in bytes.
    size_t jobs = 1;
    bool needsTexts = false;  // Whether `answer` needs the coordinates as texts.
    // Answers points. With several jobs, several threads call it at the same time. The answers may
    // borrow the points.
    std::function<std::unique_ptr<Answers>(const PointColumns& points)> answer;
};

// Reads standard input to its end and prints one row for each record, in order.
//
// - A line is a point (points.h). Its row is the point, a tab and the answer's text.
// - If the first line is a header, without line ends within it, the input is a table (csv.h). Its
// rows get the answer's columns
//   behind those of the header. A column whose name the header has already gets another name.
// - With `json`, a row is an object: the point and the answer, after the fields of a table's row by
//   their names.
// - A blank record gives a blank row.
// - A record without a point gives its text and "error: " with the reason instead of the answer.
//   With `json` it gives an object with "input" or the fields, and "error". The reason and the
//   line's number also go to standard error.
//
// `jobs` threads work; the rows do not depend on their number. Memory is proportional to `jobs` and
// `maxRow`. Rows are printed as soon as no more input is there.
//
// Returns whether every record has an answer. Throws std::runtime_error if the input cannot be read
// or its header lacks a column; rows printed so far stay.
bool AnswerLines(const LineFormat& format);

// The point of a command line's arguments; none if `isGiven` is false, for lines of points instead.
// Throws UsageError (commands.h) if they are not a point.
std::optional<PointText> PointOfArguments(bool isGiven, const std::string& lat,
                                          const std::string& lon);

// Prints the answer for `point`, or, without one, does what AnswerLines does. Returns whether every
// point has an answer.
bool AnswerPointOrLines(const std::optional<PointText>& point, const LineFormat& format);
