#include "csv.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <utility>

#include "points.h"

namespace {

constexpr std::string_view kUsualLat[] = {"lat", "latitude", "y"};
constexpr std::string_view kUsualLon[] = {"lon", "lng", "long", "longitude", "x"};
constexpr size_t kOpen = std::string_view::npos;

bool HasQuotes(char separator) {
    return separator != '\t';
}

size_t Find(std::string_view text, size_t from, char c) {
    const void* const found =
            from < text.size() ? std::memchr(text.data() + from, c, text.size() - from) : nullptr;
    return found != nullptr ? static_cast<size_t>(static_cast<const char*>(found) - text.data())
                            : text.size();
}

// The end of the quoted part of a field, behind its closing quote. kOpen if it has none.
size_t QuoteEnd(std::string_view text, size_t openingQuote) {
    for (size_t at = openingQuote + 1;;) {
        at = Find(text, at, '"');
        if (at == text.size()) return kOpen;
        if (text.substr(at + 1, 1) != "\"") return at + 1;
        at += 2;
    }
}

std::string Lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

constexpr std::array<std::string_view, 0> kNoNames = {};

// The first column named `wanted`, or with one of the usual names if `wanted` is empty.
template <typename Names>
std::optional<size_t> FindColumn(const std::vector<std::string>& columns, const Names& usual,
                                 const std::string& wanted) {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const std::string& column) {
        if (!wanted.empty()) return column == wanted;
        return std::find(std::begin(usual), std::end(usual), Lowered(column)) != std::end(usual);
    });
    if (found == columns.end()) return std::nullopt;
    return static_cast<size_t>(found - columns.begin());
}

}  // namespace

std::optional<size_t> RowLength(std::string_view text, char separator, bool* isOpen) {
    *isOpen = false;
    const size_t lineEnd = Find(text, 0, '\n');
    if (!HasQuotes(separator) || Find(text.substr(0, lineEnd), 0, '"') == lineEnd)
        return lineEnd < text.size() ? std::optional(lineEnd) : std::nullopt;
    for (size_t field = 0;;) {
        size_t end = field;
        if (text.substr(field, 1) == "\"") {
            end = QuoteEnd(text, field);
            *isOpen = end == kOpen;
            if (*isOpen) return std::nullopt;
        }
        while (end < text.size() && text[end] != separator && text[end] != '\n')
            ++end;
        if (end == text.size()) return std::nullopt;
        if (text[end] == '\n') return end;
        field = end + 1;
    }
}

std::string_view CsvField::Value(char separator, std::string* room) const {
    if (!HasQuotes(separator) || text.empty() || text.front() != '"') return text;
    room->clear();
    const size_t end = std::min(QuoteEnd(text, 0), text.size());
    const bool isClosed = end > 1 && text[end - 1] == '"';
    for (size_t i = 1; i < end - (isClosed ? 1 : 0); ++i) {
        room->push_back(text[i]);
        if (text[i] == '"') ++i;
    }
    return room->append(text, end);
}

void SplitRow(std::string_view row, char separator, std::vector<CsvField>* fields) {
    fields->clear();
    for (size_t begin = 0;;) {
        const bool isQuoted = HasQuotes(separator) && row.substr(begin, 1) == "\"";
        const size_t from = isQuoted ? std::min(QuoteEnd(row, begin), row.size()) : begin;
        const size_t end = Find(row, from, separator);
        fields->push_back({row.substr(begin, end - begin)});
        if (end == row.size()) return;
        begin = end + 1;
    }
}

void AppendField(std::string_view value, char separator, std::string* row) {
    const bool mustQuote =
            HasQuotes(separator) && std::any_of(value.begin(), value.end(), [&](char c) {
                return c == '"' || c == '\r' || c == '\n' || c == separator;
            });
    if (!mustQuote) {
        row->append(value);
        return;
    }
    row->push_back('"');
    for (const char c : value)
        row->append(c == '"' ? 2 : 1, c);
    row->push_back('"');
}

CsvColumns FindColumns(std::string_view header, const std::string& lat, const std::string& lon,
                       const std::string& instant) {
    const auto rank = [](const CsvColumns& columns) {
        const int found = (columns.lat.has_value() ? 1 : 0) + (columns.lon.has_value() ? 1 : 0);
        return std::make_pair(found, columns.names.size());
    };
    CsvColumns best;
    std::vector<CsvField> fields;
    for (const char separator : {',', ';', '\t'}) {
        CsvColumns columns;
        columns.separator = separator;
        SplitRow(header, separator, &fields);
        for (const CsvField& field : fields) {
            std::string room;
            columns.names.emplace_back(Trim(field.Value(separator, &room)));
        }
        columns.lat = FindColumn(columns.names, kUsualLat, lat);
        columns.lon = FindColumn(columns.names, kUsualLon, lon);
        columns.instant = FindColumn(columns.names, kNoNames, instant);
        if (best.names.empty() || rank(columns) > rank(best)) best = std::move(columns);
    }
    return best;
}
