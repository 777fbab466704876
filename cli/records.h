// Reads standard input in large parts, and divides it into records: lines, or the rows of a table.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Why a record is not a row.
enum class RecordFault {
    kNone,
    kTooLong,    // It is longer than the limit; only its first bytes are kept.
    kLongQuote,  // A quote is not closed within the limit; the record is the line that it is in.
    kOpenQuote,  // A quote is never closed; the record is the line that it is in.
};

struct Record {
    std::string_view text;  // Without the line end.
    size_t line;            // The number of its first line, from 1.
    RecordFault fault;
};

// Some records that follow each other. Moving it keeps the texts valid.
struct Records {
    std::vector<char> bytes;  // What the texts lie in.
    std::vector<Record> list;
};

// Not thread-safe. Memory is proportional to the limit.
class RecordReader {
  public:
    // `limit`: the length of the longest record that is kept, in bytes.
    explicit RecordReader(size_t limit) : mLimit(limit) {}

    // The first line, which is still to be read by Read; of a longer one the first `limit` + 1
    // bytes. Nothing at the end of the input. Throws std::runtime_error if the input cannot be
    // read.
    std::optional<std::string_view> FirstLine();

    // Remove the first line, or some of its bytes, from what Read reads.
    void TakeFirstLine();
    void SkipBytes(size_t count) { mBegin += count; }

    // From now on, records are the rows of a table. `separator`: see csv.h.
    void ReadRows(char separator) { mSeparator = separator; }

    // Reads the records that are there without waiting, some hundred kilobytes of them at most, but
    // waits for one at least. Returns no records at the end of the input. Throws std::runtime_error
    // if the input cannot be read.
    Records Read();

    // Whether Read may have to wait for input.
    bool MayWait() const;

  private:
    bool Fill();
    void FillMore();
    bool Divide(std::vector<Record>* list);
    void NoteOpenQuote(RecordFault fault, size_t searched);

    const size_t mLimit;
    std::optional<char> mSeparator;  // Of a table.
    std::vector<char> mBytes;        // Read, and not given out.
    size_t mBegin = 0;               // Of what is not divided yet.
    size_t mLine = 1;                // Of mBegin.
    bool mIsAtEnd = false;
    // mBegin is in a record that is too long, whose beginning is given out.
    bool mIsInRest = false;
    // After some quotes that are not closed up to here, lines are rows of their own: otherwise each
    // of them could be searched for a closing quote up to the limit.
    size_t mSearchedTo = 0;
    size_t mOpenQuotes = 0;  // Before mSearchedTo.
    RecordFault mQuoteFault = RecordFault::kOpenQuote;
};
