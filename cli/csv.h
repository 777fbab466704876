// Rows of a table as text (RFC 4180), passed on byte for byte with a column more.
#pragma once

#include <istream>
#include <string>
#include <string_view>
#include <vector>

// Reads a row: a line, or several where a quoted field goes on over line ends. False at the end.
// Adds up the lines read in `*lines`.
bool ReadRow(std::istream& input, std::string* row, size_t* lines);

// The fields of a row, without the quotes around them.
std::vector<std::string> SplitRow(std::string_view row, char separator);

// A field as it must stand in a row.
std::string CsvField(const std::string& text, char separator);

// A table's columns, found by its header.
struct CsvColumns {
    char separator = ',';
    std::vector<std::string> names;
    size_t lat = 0;
    size_t lon = 0;
};

// Finds the columns of latitude and longitude, named `lat` and `lon`, or by a usual name where that
// is empty. False where a header does not have them, whatever the separator.
bool FindColumns(std::string_view header, const std::string& lat, const std::string& lon,
                 CsvColumns* columns);
