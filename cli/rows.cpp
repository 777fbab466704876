#include "rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "json_text.h"
#include "message.h"

namespace {

// Names that are in use.
class Names {
  public:
    // Returns `name`, or, if it is taken, the first of name_2, name_3, ... that is not. Takes it.
    std::string Take(const std::string& name) {
        std::string free = name;
        for (size_t& last = mLast[name]; !mTaken.insert(free).second;)
            free = fmt::format("{}_{}", name, last = std::max<size_t>(last, 1) + 1);
        return free;
    }

  private:
    std::unordered_set<std::string> mTaken;
    std::unordered_map<std::string, size_t> mLast;  // The last number tried for each name.
};

// The text of a name in JSON, without quotes.
std::string JsonText(const std::string& name) {
    std::string text;
    AppendJsonString(name, &text);
    return text.substr(1, text.size() - 2);
}

// What is wrong with a header that lacks a column.
std::string FaultOfHeader(const CsvColumns& columns, const LineFormat& format) {
    for (const auto& [wanted, found] :
         {std::pair(format.latColumn, columns.lat), std::pair(format.lonColumn, columns.lon),
          std::pair(format.instantColumn, columns.instant)}) {
        if (!wanted.empty() && !found.has_value()) {
            const std::string names = fmt::format("{}", fmt::join(columns.names, ", "));
            return names.empty() ? "the first line is blank; it must name the columns"
                                 : fmt::format("no column '{}'; there are: {}", wanted, names);
        }
    }
    const bool hasLat = columns.lat.has_value();
    if (!hasLat && !columns.lon.has_value())
        return "the first line names no latitude and no longitude column";
    std::string fault = fmt::format("the first line has '{}' but no {} column",
                                    columns.names[hasLat ? *columns.lat : *columns.lon],
                                    hasLat ? "longitude" : "latitude");
    if (format.hasColumnOptions) fault += hasLat ? "; name it with --lon" : "; name it with --lat";
    return fault;
}

// What a user may do about the length of a row.
const char* AdviceOn(const LineFormat& format) {
    return format.hasColumnOptions ? "; --max-row raises the limit" : "";
}

}  // namespace

std::optional<CsvColumns> FindHeader(std::string_view line, const LineFormat& format) {
    CsvColumns columns =
            FindColumns(line, format.latColumn, format.lonColumn, format.instantColumn);
    const bool hasLat = columns.lat.has_value();
    const bool hasLon = columns.lon.has_value();
    const bool isWanted =
            !format.latColumn.empty() || !format.lonColumn.empty() || !format.instantColumn.empty();
    const bool lacksInstant = !format.instantColumn.empty() && !columns.instant.has_value();
    const bool isHeader =
            (hasLat && hasLon) || isWanted || ((hasLat || hasLon) && columns.names.size() >= 2);
    if (!isHeader) return std::nullopt;
    if (line.size() > format.maxRow) {
        throw std::runtime_error(fmt::format("the first line is longer than {} bytes{}",
                                             format.maxRow, AdviceOn(format)));
    }
    if (!hasLat || !hasLon || lacksInstant)
        throw std::runtime_error(FaultOfHeader(columns, format));
    bool isOpen;
    RowLength(line, columns.separator, &isOpen);
    if (isOpen) throw std::runtime_error("the first line has a quote that it does not close");
    return columns;
}

RowMaker::RowMaker(const LineFormat& format, std::optional<CsvColumns> table)
    : mFormat(format), mTable(std::move(table)) {
    if (!mTable.has_value()) return;
    // Names are compared as they are written: bytes that are not UTF-8 become the same character.
    Names names;
    const CsvColumns& columns = *mTable;
    for (size_t i = 0; i < columns.names.size(); ++i) {
        const std::string name = names.Take(JsonText(columns.names[i]));
        mColumnKeys.push_back('"' + name + "\":");
        // A coordinate's own column gives its place to the number.
        mHidesLat = mHidesLat || (i == *columns.lat && name == mLatKey);
        mHidesLon = mHidesLon || (i == *columns.lon && name == mLonKey);
    }
    if (!mHidesLat) mLatKey = names.Take(mLatKey);
    if (!mHidesLon) mLonKey = names.Take(mLonKey);
    for (std::string* name : {&mKeys.zones, &mKeys.error, &mKeys.raw, &mKeys.radius, &mKeys.border,
                              &mKeys.within, &mKeys.localTime, &mKeys.offset, &mKeys.abbreviation})
        *name = names.Take(*name);
}

std::optional<char> RowMaker::Separator() const {
    return mTable.has_value() ? std::optional(mTable->separator) : std::nullopt;
}

std::string RowMaker::Header(std::string_view line) const {
    Names names;
    for (const std::string& name : mTable->names)
        names.Take(name);
    std::string row(WithoutReturn(line));
    for (const std::string& column : mFormat.answerColumns) {
        row += mTable->separator;
        AppendField(names.Take(column), mTable->separator, &row);
    }
    return row + (HasReturn(line) ? "\r\n" : "\n");
}

Rows RowMaker::Make(const Records& records) const {
    std::vector<Parsed> all;
    all.reserve(records.list.size());
    PointColumns points;
    for (const Record& record : records.list) {
        all.push_back(Parse(record));
        if (all.back().kind != Parsed::kPoint) continue;
        points.lats.push_back(all.back().point.lat);
        points.lons.push_back(all.back().point.lon);
        if (mTable.has_value() && mTable->instant.has_value())
            points.instants.push_back(all.back().instant);
    }
    for (const Parsed& parsed : all) {
        if (!mFormat.needsTexts || parsed.kind != Parsed::kPoint) continue;
        points.latTexts.push_back(parsed.LatText());
        points.lonTexts.push_back(parsed.LonText());
    }
    const std::unique_ptr<Answers> answers = mFormat.answer(points);
    Rows rows;
    rows.count = records.list.size();
    rows.text.reserve(2 * records.bytes.size());
    size_t point = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        const Record& record = records.list[i];
        if (all[i].kind == Parsed::kPoint) {
            rows.isGood = rows.isGood && !answers->IsError(point);
            AppendRow(record, all[i], *answers, point++, &rows.text);
        } else if (all[i].kind == Parsed::kFault) {
            rows.isGood = false;
            const std::string& fault = all[i].slow->fault;
            rows.messages.push_back(fmt::format("line {}: {}", record.line, fault));
            AppendErrorRow(record, fault, &rows.text);
        }
        if (all[i].kind == Parsed::kBlank && mTable.has_value() && HasReturn(record.text))
            rows.text += '\r';
        rows.text += '\n';
    }
    return rows;
}

std::string_view RowMaker::WithoutReturn(std::string_view line) {
    return line.substr(0, line.size() - (HasReturn(line) ? 1 : 0));
}

RowMaker::Parsed RowMaker::Parse(const Record& record) const {
    Parsed parsed;
    const std::string_view row = WithoutReturn(record.text);
    try {
        RequireWhole(record.fault);
        // A row of tabs is a row of empty fields.
        if (IsBlank(row) && (!mTable.has_value() || row.find(mTable->separator) == row.npos))
            return parsed;
        parsed.kind = Parsed::kPoint;
        if (mTable.has_value()) {
            ParseRow(row, &parsed);
        } else if (!ParsePlainPoint(row, &parsed.point)) {
            SetSlow(ParsePoint(row), &parsed);
        }
    } catch (const std::invalid_argument& error) {
        parsed.kind = Parsed::kFault;
        parsed.slow = std::make_unique<Slow>();
        parsed.slow->fault = error.what();
    }
    return parsed;
}

void RowMaker::RequireWhole(RecordFault fault) const {
    if (fault == RecordFault::kNone) return;
    if (fault == RecordFault::kOpenQuote) throw std::invalid_argument("a quote is never closed");
    throw std::invalid_argument(fmt::format("{} {} bytes{}",
                                            fault == RecordFault::kTooLong
                                                    ? "the row is longer than"
                                                    : "a quote is not closed within",
                                            mFormat.maxRow, AdviceOn(mFormat)));
}

void RowMaker::SetSlow(PointText point, Parsed* parsed) {
    parsed->slow = std::make_unique<Slow>();
    parsed->point.lat = point.lat;
    parsed->point.lon = point.lon;
    parsed->slow->point = std::move(point);
}

void RowMaker::ParseRow(std::string_view row, Parsed* parsed) const {
    thread_local std::vector<CsvField> fields;
    SplitRow(row, mTable->separator, &fields);
    const size_t wanted = mTable->names.size();
    // Fields behind those of the header have no column, so they must be empty.
    for (size_t i = wanted; i < fields.size(); ++i) {
        if (!fields[i].text.empty()) {
            throw std::invalid_argument(fmt::format("the row has {} fields, but the header has {}",
                                                    fields.size(), wanted));
        }
    }
    for (const size_t column : {*mTable->lat, *mTable->lon, mTable->instant.value_or(0)}) {
        if (column >= fields.size()) {
            throw std::invalid_argument(fmt::format("the row has {} field{}, but '{}' is column {}",
                                                    fields.size(), fields.size() == 1 ? "" : "s",
                                                    mTable->names[column], column + 1));
        }
    }
    parsed->fields = static_cast<uint32_t>(fields.size());
    const CsvField& lat = fields[*mTable->lat];
    const CsvField& lon = fields[*mTable->lon];
    if (mTable->instant.has_value()) {
        std::string room;
        parsed->instant = ParseInstant(fields[*mTable->instant].Value(mTable->separator, &room));
    }
    if (ParsePlainPoint(lat.text, lon.text, &parsed->point)) return;
    std::string latRoom;
    std::string lonRoom;
    SetSlow(ParsePoint(lat.Value(mTable->separator, &latRoom),
                       lon.Value(mTable->separator, &lonRoom)),
            parsed);
}

void RowMaker::AppendRow(const Record& record, const Parsed& parsed, const Answers& answers,
                         size_t point, std::string* text) const {
    if (mFormat.json) {
        text->push_back('{');
        if (mTable.has_value()) AppendMembers(record.text, &parsed, text);
        AppendCoordinate(mLatKey, mHidesLat, parsed.LatText(), parsed.point.lat, text);
        AppendCoordinate(mLonKey, mHidesLon, parsed.LonText(), parsed.point.lon, text);
        answers.AppendMembers(point, mKeys, text);
        text->push_back('}');
    } else if (mTable.has_value()) {
        AppendFields(record.text, parsed.fields, text);
        answers.AppendFields(point, mTable->separator, text);
        if (HasReturn(record.text)) text->push_back('\r');
    } else {
        text->append(parsed.LatText());
        text->push_back(' ');
        text->append(parsed.LonText());
        text->push_back('\t');
        answers.AppendText(point, text);
    }
}

void RowMaker::AppendFields(std::string_view row, size_t fields, std::string* text) const {
    row = WithoutReturn(row);
    for (; fields > mTable->names.size(); --fields)
        row.remove_suffix(1);  // The separator before an empty field.
    text->append(row);
    text->append(mTable->names.size() - fields, mTable->separator);
}

void RowMaker::AppendErrorRow(const Record& record, const std::string& reason,
                              std::string* text) const {
    const std::string_view row = WithoutReturn(record.text);
    if (mFormat.json) {
        text->push_back('{');
        if (mTable.has_value() && record.fault == RecordFault::kNone) {
            AppendMembers(row, nullptr, text);
        } else {
            text->append("\"input\":");
            AppendJsonString(row, text);
        }
        if (text->back() != '{') text->push_back(',');
        text->append(1, '"').append(mKeys.error).append("\":");
        AppendJsonString(reason, text);
        text->push_back('}');
        return;
    }
    if (!mTable.has_value()) {
        text->append(fmt::format("{}\terror: {}", Printable(row), Printable(reason)));
        return;
    }
    const char separator = mTable->separator;
    std::vector<CsvField> fields;
    SplitRow(row, separator, &fields);
    if (record.fault != RecordFault::kNone || fields.size() > mTable->names.size()) {
        // It would break the columns: it becomes one field.
        AppendField(separator == '\t' ? Printable(row) : std::string(row), separator, text);
        fields.resize(1);
    } else {
        text->append(row);
    }
    text->append(mTable->names.size() - fields.size() + 1, separator);
    AppendField("error: " + Printable(reason), separator, text);
    text->append(mFormat.answerColumns.size() - 1, separator);
    if (HasReturn(record.text)) text->push_back('\r');
}

void RowMaker::AppendMembers(std::string_view row, const Parsed* parsed, std::string* text) const {
    thread_local std::vector<CsvField> fields;
    thread_local std::string room;
    SplitRow(WithoutReturn(row), mTable->separator, &fields);
    for (size_t i = 0; i < std::min(fields.size(), mColumnKeys.size()); ++i) {
        if (text->back() != '{') text->push_back(',');
        text->append(mColumnKeys[i]);
        if (parsed != nullptr && mHidesLat && i == *mTable->lat) {
            AppendJsonNumber(parsed->LatText(), parsed->point.lat, text);
        } else if (parsed != nullptr && mHidesLon && i == *mTable->lon) {
            AppendJsonNumber(parsed->LonText(), parsed->point.lon, text);
        } else {
            AppendJsonString(fields[i].Value(mTable->separator, &room), text);
        }
    }
}

void RowMaker::AppendCoordinate(const std::string& key, bool isHidden, std::string_view digits,
                                double value, std::string* text) {
    if (isHidden) return;
    if (text->back() != '{') text->push_back(',');
    text->append(1, '"').append(key).append("\":");
    AppendJsonNumber(digits, value, text);
}
