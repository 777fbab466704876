// Rows of a table as text: CSV (RFC 4180), with commas or semicolons, or values separated by tabs.
// Rows pass through byte for byte; columns are appended.
//
// A quoted field begins with a double quote and ends with the next one that is not doubled. A quote
// within a field that does not begin with one is an ordinary character. Tables separated by tabs
// have no quoted fields. Written here because Debian's CSV libraries give the values of fields, but
// not their place in the row, so rows could not pass through.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The length of the row that `text` begins with, without its line end (LF); quoted fields may
// contain line ends. Returns nothing if the text ends before the row. `*isOpen` receives whether it
// then ends within a quoted field.
std::optional<size_t> RowLength(std::string_view text, char separator, bool* isOpen);

// A field of a row, as it stands there.
struct CsvField {
    std::string_view text;

    // Without the quotes around it. `*room` holds the value if it differs from the text.
    std::string_view Value(char separator, std::string* room) const;
};

// Replaces `*fields` by the fields of a row.
void SplitRow(std::string_view row, char separator, std::vector<CsvField>* fields);

// Appends a field that stands for `value`: quoted if it must be. In a table separated by tabs, the
// value must not contain tabs and line ends.
void AppendField(std::string_view value, char separator, std::string* row);

// The columns that a header names, without blanks around the names. The others are indexes into
// `names`.
struct CsvColumns {
    char separator = ',';
    std::vector<std::string> names;
    std::optional<size_t> lat;
    std::optional<size_t> lon;
    std::optional<size_t> instant;
};

// Finds the latitude and longitude columns of a header by the names `lat` and `lon`, or by usual
// names (of any case) where these are empty; and that of instants by its name, if it has one.
// Fields are separated by commas, semicolons or tabs, whichever gives more of the two columns, then
// more columns.
CsvColumns FindColumns(std::string_view header, const std::string& lat, const std::string& lon,
                       const std::string& instant);
