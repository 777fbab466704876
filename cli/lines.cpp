#include "lines.h"

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "commands.h"
#include "json_text.h"
#include "progress.h"
#include "records.h"
#include "rows.h"

namespace {

constexpr size_t kProgressFrom = 10000;  // Records.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

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
        // Not while a user types lines.
        if (mCount >= kProgressFrom) mProgress.Show("looking up", mCount, 0);
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

// Makes rows on threads of its own.
class Workers {
  public:
    // Without threads if `count` is 1 or none can start: rows are then made when they are asked
    // for.
    Workers(const RowMaker& maker, size_t count) : mMaker(maker) {
        try {
            while (count > 1 && mThreads.size() < count)
                mThreads.emplace_back([this] { Work(); });
        } catch (const std::system_error&) {  // Those that have started do the work.
        }
    }
    // Drops what is not begun.
    ~Workers() {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mQueue.clear();
            mIsClosed = true;
        }
        mChanged.notify_all();
        for (std::thread& thread : mThreads)
            thread.join();
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    size_t Count() const { return mThreads.size(); }

    std::future<Rows> Start(Records records) {
        const auto work = std::make_shared<Records>(std::move(records));
        const auto make = [this, work] { return mMaker.Make(*work); };
        if (mThreads.empty()) return std::async(std::launch::deferred, make);
        std::packaged_task<Rows()> task(make);
        std::future<Rows> rows = task.get_future();
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mQueue.push_back(std::move(task));
        }
        mChanged.notify_one();
        return rows;
    }

  private:
    void Work() {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mChanged.wait(lock, [this] { return mIsClosed || !mQueue.empty(); });
            if (mQueue.empty()) return;
            std::packaged_task<Rows()> task = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    const RowMaker& mMaker;
    std::mutex mMutex;  // Guards the two members that follow.
    std::deque<std::packaged_task<Rows()>> mQueue;
    bool mIsClosed = false;
    std::condition_variable mChanged;
    std::vector<std::thread> mThreads;
};

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
        if (reader.MayWait()) std::fflush(stdout);
        reader.TakeFirstLine();
        reader.ReadRows(*maker.Separator());
        if (!isWritten) return false;
    } else if (hasMark) {
        reader.SkipBytes(kByteOrderMark.size());
    }

    Workers workers(maker, format.jobs);
    const size_t most = 2 * workers.Count();  // Parts that may be in work, or wait for it.
    std::deque<std::future<Rows>> running;
    std::exception_ptr failure;
    bool isWritable = true;
    for (bool isAtEnd = false; isWritable && !(isAtEnd && running.empty());) {
        if (!isAtEnd) {
            try {
                Records records = reader.Read();
                isAtEnd = records.list.empty();
                if (!isAtEnd) running.push_back(workers.Start(std::move(records)));
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
        if (mayWait && std::fflush(stdout) != 0) isWritable = false;
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
    const PointColumns points = {
            {point->lat}, {point->lon}, {point->latText}, {point->lonText}, {}};
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
