#include "records.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "csv.h"

namespace {

constexpr size_t kReadBytes = size_t{1} << 17;
constexpr size_t kShownBytes = 80;  // Of a record that is too long.
// So many open quotes are each searched for their end before lines are taken as rows.
constexpr size_t kMostOpenQuotes = 8;

// The length of the line that `text` begins with; of the whole text if it has no line end.
size_t LineLength(std::string_view text) {
    return std::min(text.find('\n'), text.size());
}

}  // namespace

bool RecordReader::Fill() {
    if (mIsAtEnd) return false;
    const size_t size = mBytes.size();
    mBytes.resize(size + kReadBytes);
    ssize_t got;
    do {
        got = read(STDIN_FILENO, mBytes.data() + size, kReadBytes);
        if (got < 0 && errno == EAGAIN) {  // Another process made the input non-blocking.
            pollfd input = {STDIN_FILENO, POLLIN, 0};
            poll(&input, 1, -1);
            errno = EAGAIN;
        }
    } while (got < 0 && (errno == EINTR || errno == EAGAIN));
    mBytes.resize(size + static_cast<size_t>(std::max<ssize_t>(got, 0)));
    if (got < 0) throw std::runtime_error("standard input is closed or cannot be read");
    mIsAtEnd = got == 0;
    return !mIsAtEnd;
}

std::optional<std::string_view> RecordReader::FirstLine() {
    const auto hasLineEnd = [this](size_t from) {
        return std::find(mBytes.begin() + static_cast<std::ptrdiff_t>(from), mBytes.end(), '\n') !=
               mBytes.end();
    };
    for (size_t searched = 0; mBytes.size() <= mLimit && !hasLineEnd(searched);) {
        searched = mBytes.size();
        if (!Fill()) break;
    }
    if (mBytes.empty()) return std::nullopt;
    const std::string_view text(mBytes.data(), mBytes.size());
    return text.substr(0, std::min(LineLength(text), mLimit + 1));
}

void RecordReader::TakeFirstLine() {
    std::vector<Record> line;
    Divide(&line);
}

// Divides one record off the bytes. Returns false if more bytes are needed.
bool RecordReader::Divide(std::vector<Record>* list) {
    std::string_view text(mBytes.data() + mBegin, mBytes.size() - mBegin);
    if (mIsInRest) {
        const size_t rest = LineLength(text);
        mIsInRest = rest == text.size();
        mBegin += mIsInRest ? rest : rest + 1;
        mLine += mIsInRest ? 0 : 1;
        text.remove_prefix(mIsInRest ? rest : rest + 1);
    }
    if (text.empty()) return false;
    bool isOpen = false;
    std::optional<size_t> length;
    if (mSeparator.has_value()) {
        const bool isLineOnly = mBegin < mSearchedTo && mOpenQuotes >= kMostOpenQuotes;
        const size_t end = std::min(LineLength(text) + 1, text.size());
        length = RowLength(isLineOnly ? text.substr(0, end) : text, *mSeparator, &isOpen);
        if (isLineOnly && isOpen) length = LineLength(text);
    } else if (const size_t line = LineLength(text); line < text.size()) {
        length = line;
    }
    const bool isTooLong = length.value_or(text.size()) > mLimit;
    if (!length.has_value() && !isTooLong && !mIsAtEnd) return false;

    RecordFault fault = RecordFault::kNone;
    const size_t line = LineLength(text);
    if (isOpen || (isTooLong && line < length.value_or(text.size()))) {
        // Lines that follow may be rows of their own.
        fault = isTooLong ? RecordFault::kLongQuote : RecordFault::kOpenQuote;
        if (length.has_value() && !isTooLong) fault = mQuoteFault;
        NoteOpenQuote(fault, text.size());
        length = line;
    }
    size_t shown = length.value_or(text.size());
    if (shown > mLimit) {
        fault = RecordFault::kTooLong;
        shown = std::min({shown, mLimit, kShownBytes});
    }
    list->push_back({text.substr(0, shown), mLine, fault});
    const size_t taken = length.value_or(text.size());
    const bool hasEnd = taken < text.size();
    mIsInRest = !hasEnd && !mIsAtEnd;
    mLine += static_cast<size_t>(std::count(
                     text.begin(), text.begin() + static_cast<std::ptrdiff_t>(taken), '\n')) +
             (hasEnd ? 1 : 0);
    mBegin += taken + (hasEnd ? 1 : 0);
    return true;
}

// A quote is not closed in the next `searched` bytes.
void RecordReader::NoteOpenQuote(RecordFault fault, size_t searched) {
    if (mBegin >= mSearchedTo) {
        mSearchedTo = mBegin + searched;
        mOpenQuotes = 0;
        mQuoteFault = fault;
    }
    ++mOpenQuotes;
}

// Reads more of a record that has no end yet. The record is searched again afterwards: when it has
// doubled, so that a long record takes time in proportion to its length, or when it may be whole
// and no more input is there.
void RecordReader::FillMore() {
    const size_t wanted = mBytes.size() < kReadBytes ? mBytes.size() + 1 : 2 * mBytes.size();
    while (mBytes.size() < wanted) {
        const size_t size = mBytes.size();
        if (!Fill()) return;
        const auto added = mBytes.begin() + static_cast<std::ptrdiff_t>(size);
        if (std::find(added, mBytes.end(), '\n') != mBytes.end() && MayWait()) return;
    }
}

Records RecordReader::Read() {
    Records records;
    for (;;) {
        while (Divide(&records.list)) {
        }
        if (!records.list.empty()) break;
        mBytes.erase(mBytes.begin(), mBytes.begin() + static_cast<std::ptrdiff_t>(mBegin));
        mSearchedTo -= std::min(mSearchedTo, mBegin);
        mBegin = 0;
        FillMore();
        if (mIsAtEnd && mBytes.empty()) return records;
    }
    // The texts lie in these bytes. The rest is copied.
    records.bytes.assign(mBytes.begin() + static_cast<std::ptrdiff_t>(mBegin), mBytes.end());
    records.bytes.swap(mBytes);
    mSearchedTo -= std::min(mSearchedTo, mBegin);
    mBegin = 0;
    return records;
}

bool RecordReader::MayWait() const {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return !mIsAtEnd && poll(&input, 1, 0) == 0;
}
