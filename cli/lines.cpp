#include "lines.h"

#include <fmt/format.h>

#include <cstdio>
#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

#include "commands.h"
#include "csv.h"
#include "database/answer.h"
#include "message.h"
#include "progress.h"

namespace {

constexpr size_t kProgressInterval = 1024;

// Makes the output row for an input line: a point, or a row of a table.
class RowMaker {
  public:
    RowMaker(const LineFormat& format,
             const std::function<LineAnswer(const PointText& point)>& answer)
        : mFormat(format), mAnswer(answer) {}

    // Returns whether the first line is a table's header, which gets no answer. Throws
    // std::runtime_error for a header that lacks a column.
    bool TakeHeader(const std::string& line) {
        CsvColumns columns = FindColumns(WithoutReturn(line), mFormat.latColumn, mFormat.lonColumn);
        if (!columns.lat.has_value() || !columns.lon.has_value()) {
            const bool isWanted = !mFormat.latColumn.empty() || !mFormat.lonColumn.empty();
            const bool hasOne = columns.lat.has_value() || columns.lon.has_value();
            if (!isWanted && (!hasOne || columns.names.size() < 2)) return false;
            throw std::runtime_error(FaultOfHeader(columns));
        }
        mTable = std::move(columns);
        return true;
    }

    std::string Header(const std::string& line) const {
        return mFormat.json ? "" : Extended(line, mFormat.answerColumns);
    }

    // Throws std::invalid_argument with the reason if the line holds no point.
    std::string Row(const std::string& line) const {
        const PointText point = mTable.has_value() ? PointOf(line) : ParsePoint(line);
        const LineAnswer found = mAnswer(point);
        if (mFormat.json) return offlinetz::OneLine(WithColumns(line, found.object));
        if (mTable.has_value()) return Extended(line, found.columns);
        return fmt::format("{} {}\t{}", point.latText, point.lonText, found.text);
    }

    std::string ErrorRow(const std::string& line, const char* reason) const {
        if (mFormat.json) return offlinetz::OneLine({{"input", line}, {"error", reason}});
        if (mTable.has_value()) {
            std::vector<std::string> columns(mFormat.answerColumns.size());
            columns[0] = "error: " + Printable(reason);
            return Extended(line, columns);
        }
        return fmt::format("{}\terror: {}", Printable(line), Printable(reason));
    }

  private:
    // What is wrong with a header that lacks a column.
    std::string FaultOfHeader(const CsvColumns& columns) const {
        for (const auto& [wanted, found] : {std::pair(mFormat.latColumn, columns.lat),
                                            std::pair(mFormat.lonColumn, columns.lon)}) {
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
        if (mFormat.hasColumnOptions)
            fault += hasLat ? "; name it with --lon" : "; name it with --lat";
        return fault;
    }

    static std::string WithoutReturn(const std::string& line) {
        return !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line;
    }

    PointText PointOf(const std::string& row) const {
        const std::vector<std::string> fields = SplitRow(WithoutReturn(row), mTable->separator);
        for (const size_t column : {*mTable->lat, *mTable->lon}) {
            if (column >= fields.size()) {
                throw std::invalid_argument(fmt::format(
                        "the row has {} field{}, but '{}' is column {}", fields.size(),
                        fields.size() == 1 ? "" : "s", mTable->names[column], column + 1));
            }
        }
        return ParsePoint(fields[*mTable->lat], fields[*mTable->lon]);
    }

    // A row with columns appended, before its carriage return if it has one.
    std::string Extended(const std::string& row, const std::vector<std::string>& columns) const {
        std::string extended = WithoutReturn(row);
        const bool hasReturn = extended.size() < row.size();
        for (const std::string& column : columns)
            extended += mTable->separator + CsvField(column, mTable->separator);
        return hasReturn ? extended + '\r' : extended;
    }

    nlohmann::ordered_json WithColumns(const std::string& row,
                                       const nlohmann::ordered_json& object) const {
        if (!mTable.has_value()) return object;
        nlohmann::ordered_json all;
        const std::vector<std::string> fields = SplitRow(WithoutReturn(row), mTable->separator);
        for (size_t i = 0; i < fields.size() && i < mTable->names.size(); ++i)
            all[mTable->names[i]] = fields[i];
        all.update(object);
        return all;
    }

    const LineFormat& mFormat;
    const std::function<LineAnswer(const PointText& point)>& mAnswer;
    std::optional<CsvColumns> mTable;
};

// Reads a line, or a table's row, which may have several lines, and adds their number to `*lines`.
// Returns false at the end. Throws std::runtime_error if there is not enough memory for it.
bool ReadOne(bool isTable, std::string* line, size_t* lines) {
    try {
        if (isTable) return ReadRow(std::cin, line, lines);
        if (!std::getline(std::cin, *line)) return false;
        ++*lines;
        return true;
    } catch (const std::bad_alloc&) {
        throw std::runtime_error(fmt::format("line {}: too long for the memory", *lines + 1));
    }
}

}  // namespace

bool AnswerLines(const LineFormat& format,
                 const std::function<LineAnswer(const PointText& point)>& answer) {
    Progress progress;
    RowMaker maker(format, answer);
    bool isAllGood = true;
    bool isTable = false;
    std::string line;
    size_t lines = 0;
    std::cin.exceptions(std::ios_base::badbit);  // Otherwise the stream swallows std::bad_alloc.
    for (size_t number = 1; ReadOne(isTable, &line, &lines); ++number) {
        std::string row;
        try {
            if (number == 1 && maker.TakeHeader(line)) {
                isTable = true;
                if (format.json) continue;
                row = maker.Header(line);
            } else if (!IsBlank(line)) {
                row = maker.Row(line);
            }
        } catch (const std::invalid_argument& error) {
            progress.PrintMessage(fmt::format("line {}: {}", lines, error.what()));
            row = maker.ErrorRow(line, error.what());
            isAllGood = false;
        }
        if (std::printf("%s\n", row.c_str()) < 0) break;
        if (number % kProgressInterval == 0) progress.Show("looking up", number, 0);
    }
    if (std::cin.bad() || std::ferror(stdin) != 0) {
        throw std::runtime_error("standard input is closed or cannot be read");
    }
    return isAllGood;
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

bool AnswerPointOrLines(const std::optional<PointText>& point, const LineFormat& format,
                        const std::function<LineAnswer(const PointText& point)>& answer) {
    if (!point.has_value()) return AnswerLines(format, answer);
    const LineAnswer found = answer(*point);
    std::printf("%s\n",
                format.json ? offlinetz::OneLine(found.object).c_str() : found.text.c_str());
    return true;
}
