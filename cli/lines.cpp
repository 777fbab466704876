#include "lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <exception>
#include <future>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "commands.h"
#include "csv.h"
#include "json_text.h"
#include "message.h"
#include "progress.h"
#include "records.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsIn(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// `name`, or, if it is taken, the first of name_2, name_3, ... that is not.
std::string FreeName(const std::string& name, const std::vector<std::string>& taken) {
    std::string free = name;
    for (int i = 2; IsIn(taken, free); ++i)
        free = fmt::format("{}_{}", name, i);
    return free;
}

// What is wrong with a header that lacks a column.
std::string FaultOfHeader(const CsvColumns& columns, const LineFormat& format) {
    for (const auto& [wanted, found] :
         {std::pair(format.latColumn, columns.lat), std::pair(format.lonColumn, columns.lon)}) {
        if (!wanted.empty() && !found.has_value()) {
            const std::string names = fmt::format("{}", fmt::join(columns.names, ", "));
            return names.empty() ? "the first line is blank; it must name the columns"
                                 : fmt::format("no column '{}'; there are: {}", wanted, names);
        }
    }
    const bool hasLat = columns.lat.has_value();
    std::string fault = fmt::format("the first line has '{}' but no {} column",
                                    columns.names[hasLat ? *columns.lat : *columns.lon],
                                    hasLat ? "longitude" : "latitude");
    if (format.hasColumnOptions) fault += hasLat ? "; name it with --lon" : "; name it with --lat";
    return fault;
}

// Whether the first line is a table's header. Throws std::runtime_error for a header that lacks a
// column.
std::optional<CsvColumns> FindHeader(std::string_view line, const LineFormat& format) {
    CsvColumns columns = FindColumns(line, format.latColumn, format.lonColumn);
    if (!columns.lat.has_value() || !columns.lon.has_value()) {
        const bool isWanted = !format.latColumn.empty() || !format.lonColumn.empty();
        const bool hasOne = columns.lat.has_value() || columns.lon.has_value();
        if (!isWanted && (!hasOne || columns.names.size() < 2)) return std::nullopt;
        throw std::runtime_error(FaultOfHeader(columns, format));
    }
    return columns;
}

// Some rows of output, and what they have to say on standard error.
struct Rows {
    std::string text;
    std::vector<std::string> messages;
    size_t count = 0;
    bool isGood = true;
};

// Makes the output rows of records.
class RowMaker {
  public:
    RowMaker(const LineFormat& format, std::optional<CsvColumns> table)
        : mFormat(format), mTable(std::move(table)) {
        if (!mTable.has_value()) return;
        std::vector<std::string> taken;
        const auto key = [&](std::string* name) {
            *name = FreeName(*name, taken);
            taken.push_back(*name);
        };
        // A coordinate's own column gives its place to the number.
        const CsvColumns& columns = *mTable;
        for (size_t i = 0; i < columns.names.size(); ++i) {
            std::string name = columns.names[i];
            key(&name);
            mColumnKeys.push_back(KeyText(name));
            mHidesLat = mHidesLat || (i == *columns.lat && name == mLatKey);
            mHidesLon = mHidesLon || (i == *columns.lon && name == mLonKey);
        }
        if (!mHidesLat) key(&mLatKey);
        if (!mHidesLon) key(&mLonKey);
        for (std::string* name : {&mKeys.zones, &mKeys.error, &mKeys.raw, &mKeys.radius})
            key(name);
    }

    // Of a table.
    std::optional<char> Separator() const {
        return mTable.has_value() ? std::optional(mTable->separator) : std::nullopt;
    }

    // The row of a table's header.
    std::string Header(std::string_view line) const {
        std::vector<std::string> taken = mTable->names;
        std::string row(WithoutReturn(line));
        for (const std::string& column : mFormat.answerColumns) {
            taken.push_back(FreeName(column, taken));
            row += mTable->separator;
            AppendField(taken.back(), mTable->separator, &row);
        }
        return row + (HasReturn(line) ? "\r\n" : "\n");
    }

    // May be called on any thread.
    Rows Make(const Records& records) const {
        std::vector<Parsed> all;
        all.reserve(records.list.size());
        PointColumns points;
        for (const Record& record : records.list) {
            all.push_back(Parse(record));
            if (all.back().kind != Parsed::kPoint) continue;
            points.lats.push_back(all.back().point.lat);
            points.lons.push_back(all.back().point.lon);
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
            rows.text += '\n';
        }
        return rows;
    }

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
        std::unique_ptr<Slow> slow;

        std::string_view LatText() const { return slow ? slow->point.latText : point.latText; }
        std::string_view LonText() const { return slow ? slow->point.lonText : point.lonText; }
    };

    static bool HasReturn(std::string_view line) { return !line.empty() && line.back() == '\r'; }
    static std::string_view WithoutReturn(std::string_view line) {
        return line.substr(0, line.size() - (HasReturn(line) ? 1 : 0));
    }
    static std::string KeyText(const std::string& name) {
        std::string text;
        AppendJsonString(name, &text);
        return text + ':';
    }

    Parsed Parse(const Record& record) const {
        Parsed parsed;
        const std::string_view row = WithoutReturn(record.text);
        try {
            RequireWhole(record.fault);
            if (IsBlank(row)) return parsed;
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

    // Throws std::invalid_argument if a record is not a row.
    void RequireWhole(RecordFault fault) const {
        if (fault == RecordFault::kNone) return;
        if (fault == RecordFault::kOpenQuote)
            throw std::invalid_argument("a quote is never closed");
        throw std::invalid_argument(fmt::format(
                "{} {} bytes{}",
                fault == RecordFault::kTooLong ? "the row is longer than"
                                               : "a quote is not closed within",
                mFormat.maxRow, mFormat.hasColumnOptions ? "; --max-row raises the limit" : ""));
    }

    static void SetSlow(PointText point, Parsed* parsed) {
        parsed->slow = std::make_unique<Slow>();
        parsed->point.lat = point.lat;
        parsed->point.lon = point.lon;
        parsed->slow->point = std::move(point);
    }

    void ParseRow(std::string_view row, Parsed* parsed) const {
        thread_local std::vector<CsvField> fields;
        SplitRow(row, mTable->separator, &fields);
        const size_t wanted = mTable->names.size();
        // Fields behind those of the header have no column, so they must be empty.
        for (size_t i = wanted; i < fields.size(); ++i) {
            if (!fields[i].text.empty()) {
                throw std::invalid_argument(fmt::format(
                        "the row has {} fields, but the header has {}", fields.size(), wanted));
            }
        }
        for (const size_t column : {*mTable->lat, *mTable->lon}) {
            if (column >= fields.size()) {
                throw std::invalid_argument(fmt::format(
                        "the row has {} field{}, but '{}' is column {}", fields.size(),
                        fields.size() == 1 ? "" : "s", mTable->names[column], column + 1));
            }
        }
        parsed->fields = static_cast<uint32_t>(fields.size());
        const CsvField& lat = fields[*mTable->lat];
        const CsvField& lon = fields[*mTable->lon];
        if (ParsePlainPoint(lat.text, lon.text, &parsed->point)) return;
        std::string latRoom;
        std::string lonRoom;
        SetSlow(ParsePoint(lat.Value(mTable->separator, &latRoom),
                           lon.Value(mTable->separator, &lonRoom)),
                parsed);
    }

    void AppendRow(const Record& record, const Parsed& parsed, const Answers& answers, size_t point,
                   std::string* text) const {
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

    // Appends a row's fields, as many as the header has: the zone must not slide into the column of
    // another value.
    void AppendFields(std::string_view row, size_t fields, std::string* text) const {
        row = WithoutReturn(row);
        for (; fields > mTable->names.size(); --fields)
            row.remove_suffix(1);  // The separator before an empty field.
        text->append(row);
        text->append(mTable->names.size() - fields, mTable->separator);
    }

    void AppendErrorRow(const Record& record, const std::string& reason, std::string* text) const {
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
            text->append(KeyText(mKeys.error));
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

    // Appends the fields of a table's row as members of an object. `parsed`: null if it has no
    // point.
    void AppendMembers(std::string_view row, const Parsed* parsed, std::string* text) const {
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

    static void AppendCoordinate(const std::string& key, bool isHidden, std::string_view digits,
                                 double value, std::string* text) {
        if (isHidden) return;
        if (text->back() != '{') text->push_back(',');
        text->append(1, '"').append(key).append("\":");
        AppendJsonNumber(digits, value, text);
    }

    const LineFormat& mFormat;
    const std::optional<CsvColumns> mTable;
    std::vector<std::string> mColumnKeys;  // Of a table in JSON: `"name":`.
    AnswerKeys mKeys;
    std::string mLatKey = "lat";
    std::string mLonKey = "lon";
    bool mHidesLat = false;  // The latitude's column has this key and stands for it.
    bool mHidesLon = false;
};

// Prints rows, and their messages.
class RowPrinter {
  public:
    // Returns false if standard output cannot be written.
    bool Print(const Rows& rows) {
        for (const std::string& message : rows.messages)
            mProgress.PrintMessage(message);
        mIsGood = mIsGood && rows.isGood;
        mCount += rows.count;
        if (!Write(rows.text)) return false;
        mProgress.Show("looking up", mCount, 0);
        return true;
    }

    bool Write(const std::string& text) {
        return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    }

    bool IsGood() const { return mIsGood; }

  private:
    Progress mProgress;
    size_t mCount = 0;
    bool mIsGood = true;
};

// Makes rows on a thread of its own if `isParallel`, and if a thread can start; otherwise when the
// result is asked for.
std::future<Rows> StartMaking(const RowMaker& maker, Records records, bool isParallel) {
    const auto work = std::make_shared<Records>(std::move(records));
    const auto make = [&maker, work] { return maker.Make(*work); };
    if (isParallel) {
        try {
            return std::async(std::launch::async, make);
        } catch (const std::system_error&) {
        }
    }
    return std::async(std::launch::deferred, make);
}

}  // namespace

bool AnswerLines(const LineFormat& format) {
    RecordReader reader(format.maxRow);
    const std::optional<std::string_view> line = reader.FirstLine();
    if (!line.has_value()) return true;
    const bool hasMark = line->substr(0, kByteOrderMark.size()) == kByteOrderMark;
    const std::string_view header = line->substr(hasMark ? kByteOrderMark.size() : 0);
    const RowMaker maker(format, FindHeader(header, format));
    RowPrinter printer;
    if (maker.Separator().has_value()) {
        const bool isWritten = format.json || printer.Write(maker.Header(*line));
        reader.TakeFirstLine();
        reader.ReadRows(*maker.Separator());
        if (!isWritten) return false;
    } else if (hasMark) {
        reader.SkipBytes(kByteOrderMark.size());
    }

    const size_t most = format.jobs > 1 ? format.jobs : 0;  // Parts that may be in work.
    std::deque<std::future<Rows>> running;
    std::exception_ptr failure;
    bool isWritable = true;
    for (bool isAtEnd = false; isWritable && !(isAtEnd && running.empty());) {
        if (!isAtEnd) {
            try {
                Records records = reader.Read();
                isAtEnd = records.list.empty();
                if (!isAtEnd)
                    running.push_back(StartMaking(maker, std::move(records), format.jobs > 1));
            } catch (const std::runtime_error&) {
                isAtEnd = true;
                failure = std::current_exception();
            }
        }
        const bool mayWait = isAtEnd || reader.MayWait();
        while (isWritable && !running.empty() && (mayWait || running.size() > most)) {
            isWritable = printer.Print(running.front().get());
            running.pop_front();
        }
        if (mayWait) std::fflush(stdout);
    }
    if (failure != nullptr) std::rethrow_exception(failure);
    return printer.IsGood();
}

std::optional<PointText> PointOfArguments(bool isGiven, const std::string& lat,
                                          const std::string& lon) {
    if (!isGiven) return std::nullopt;
    try {
        return ParsePoint(lat + " " + lon);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

bool AnswerPointOrLines(const std::optional<PointText>& point, const LineFormat& format) {
    if (!point.has_value()) return AnswerLines(format);
    const PointColumns points = {{point->lat}, {point->lon}, {point->latText}, {point->lonText}};
    const std::unique_ptr<Answers> answers = format.answer(points);
    std::string row;
    if (format.json) {
        row = "{\"lat\":";
        AppendJsonNumber(point->latText, point->lat, &row);
        row += ",\"lon\":";
        AppendJsonNumber(point->lonText, point->lon, &row);
        answers->AppendMembers(0, AnswerKeys(), &row);
        row += '}';
    } else {
        answers->AppendText(0, &row);
    }
    std::printf("%s\n", row.c_str());
    return !answers->IsError(0);
}
