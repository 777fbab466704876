// Rows of a table as text (CSV, RFC 4180). Rows pass through byte for byte; columns are appended.
#pragma once

#include <cstddef>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Reads a row: one line, or several if a quoted field contains line ends. Adds the number of lines
// read to `*lines`. Returns false at the end of the input.
bool ReadRow(std::istream& input, std::string* row, size_t* lines);

// The fields of a row, without the quotes around them.
std::vector<std::string> SplitRow(std::string_view row, char separator);

// The field that stands for `text` in a row: quoted if it must be.
std::string CsvField(const std::string& text, char separator);

// The columns that a header names. `lat` and `lon` are indexes into `names`.
struct CsvColumns {
    char separator = ',';
    std::vector<std::string> names;
    std::optional<size_t> lat;
    std::optional<size_t> lon;
};

// Finds the latitude and longitude columns of a header by the names `lat` and `lon`, or by usual
// names (of any case) where these are empty. Fields are separated by commas, semicolons or tabs,
// whichever gives more of the two columns, then more columns. A UTF-8 byte order mark is ignored.
CsvColumns FindColumns(std::string_view header, const std::string& lat, const std::string& lon);
