#include "csv.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

constexpr std::string_view kUsualLat[] = {"lat", "latitude", "y"};
constexpr std::string_view kUsualLon[] = {"lon", "lng", "long", "longitude", "x"};
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string Lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The first column named `wanted`, or with one of the usual names if `wanted` is empty.
template <typename Names>
std::optional<size_t> Find(const std::vector<std::string>& columns, const Names& usual,
                           const std::string& wanted) {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const std::string& column) {
        if (!wanted.empty()) return column == wanted;
        return std::find(std::begin(usual), std::end(usual), Lowered(column)) != std::end(usual);
    });
    if (found == columns.end()) return std::nullopt;
    return static_cast<size_t>(found - columns.begin());
}

}  // namespace

bool ReadRow(std::istream& input, std::string* row, size_t* lines) {
    if (!std::getline(input, *row)) return false;
    ++*lines;
    const auto hasOddQuotes = [](const std::string& text) {
        return std::count(text.begin(), text.end(), '"') % 2 != 0;
    };
    bool isOpen = hasOddQuotes(*row);
    for (std::string more; isOpen && std::getline(input, more);) {
        *row += '\n' + more;
        ++*lines;
        if (hasOddQuotes(more)) isOpen = false;
    }
    return true;
}

std::vector<std::string> SplitRow(std::string_view row, char separator) {
    std::vector<std::string> fields(1);
    bool isQuoted = false;
    for (size_t i = 0; i < row.size(); ++i) {
        const char c = row[i];
        if (c == '"' && isQuoted && row.substr(i + 1, 1) == "\"") {
            fields.back() += row[++i];
        } else if (c == '"' && (isQuoted || fields.back().empty())) {
            isQuoted = !isQuoted;
        } else if (c == separator && !isQuoted) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

std::string CsvField(const std::string& text, char separator) {
    if (text.find_first_of(std::string("\"\r\n") + separator) == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + '"';
}

CsvColumns FindColumns(std::string_view header, const std::string& lat, const std::string& lon) {
    if (header.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        header.remove_prefix(kByteOrderMark.size());
    const auto rank = [](const CsvColumns& columns) {
        const int found = (columns.lat.has_value() ? 1 : 0) + (columns.lon.has_value() ? 1 : 0);
        return std::make_pair(found, columns.names.size());
    };
    CsvColumns best;
    for (const char separator : {',', ';', '\t'}) {
        CsvColumns columns;
        columns.separator = separator;
        columns.names = SplitRow(header, separator);
        columns.lat = Find(columns.names, kUsualLat, lat);
        columns.lon = Find(columns.names, kUsualLon, lon);
        if (best.names.empty() || rank(columns) > rank(best)) best = std::move(columns);
    }
    return best;
}
