// Makes output rows of records: parses their points, asks for the answers and formats them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "csv.h"
#include "lines.h"
#include "points.h"
#include "records.h"

// The columns of the table whose header is `line`; nothing if the line is not a header. Throws
// std::runtime_error for a header that lacks a column, is too long or does not close a quote.
std::optional<CsvColumns> FindHeader(std::string_view line, const LineFormat& format);

// Some rows of output.
struct Rows {
    std::string text;
    std::vector<std::string> messages;  // For standard error, without line ends.
    size_t count = 0;
    bool isGood = true;  // Whether each record has an answer.
};

// Immutable, so any number of threads may use it. `format` must outlive it.
class RowMaker {
  public:
    // `table`: the columns, if the input is a table.
    RowMaker(const LineFormat& format, std::optional<CsvColumns> table);

    // The separator of a table; nothing for lines.
    std::optional<char> Separator() const;

    // The output row for a table's header `line`, with its line end: the answer's columns follow
    // those of the header, under names that are free.
    std::string Header(std::string_view line) const;

    // A row with a line end for each record, as AnswerLines (lines.h) says.
    Rows Make(const Records& records) const;

  private:
    // What few records need.
    struct Slow {
        PointText point;    // What ParsePoint made.
        std::string fault;  // What is wrong with the record.
    };

    struct Parsed {
        enum : uint32_t { kBlank, kPoint, kFault } kind = kBlank;
        uint32_t fields = 0;  // Of a table's row.
        PointView point;
        Instant instant;  // Of a table with a column of instants.
        std::unique_ptr<Slow> slow;

        std::string_view LatText() const { return slow ? slow->point.latText : point.latText; }
        std::string_view LonText() const { return slow ? slow->point.lonText : point.lonText; }
    };

    static bool HasReturn(std::string_view line) { return !line.empty() && line.back() == '\r'; }
    static std::string_view WithoutReturn(std::string_view line);

    Parsed Parse(const Record& record) const;

    // Throws std::invalid_argument if a record is not a row.
    void RequireWhole(RecordFault fault) const;

    static void SetSlow(PointText point, Parsed* parsed);

    void ParseRow(std::string_view row, Parsed* parsed) const;

    void AppendRow(const Record& record, const Parsed& parsed, const Answers& answers, size_t point,
                   std::string* text) const;

    // Appends a row's fields, as many as the header has: the zone must not slide into the column of
    // another value.
    void AppendFields(std::string_view row, size_t fields, std::string* text) const;

    void AppendErrorRow(const Record& record, const std::string& reason, std::string* text) const;

    // Appends the fields of a table's row as members of an object. `parsed`: null if it has no
    // point.
    void AppendMembers(std::string_view row, const Parsed* parsed, std::string* text) const;

    static void AppendCoordinate(const std::string& key, bool isHidden, std::string_view digits,
                                 double value, std::string* text);

    const LineFormat& mFormat;
    const std::optional<CsvColumns> mTable;
    std::vector<std::string> mColumnKeys;  // Of a table in JSON: `"name":`.
    AnswerKeys mKeys;
    std::string mLatKey = "lat";
    std::string mLonKey = "lon";
    bool mHidesLat = false;  // The latitude's column has this key and stands for it.
    bool mHidesLon = false;
};
