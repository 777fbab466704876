// Collects the service's log while it lives.
#pragma once

#include <platform/log.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

class LogCapture {
  public:
    LogCapture() {
        platform::SetLogReceiver([this](int priority, const char* tag, const std::string& message) {
            const std::lock_guard<std::mutex> lock(mMutex);
            mLines.push_back({priority, tag, message});
            mChanged.notify_all();
        });
    }
    ~LogCapture() { platform::SetLogReceiver(nullptr); }

    // The lines logged since the last call.
    std::vector<LogLine> Take() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::move(mLines);
    }

    std::vector<std::string> TakeMessages() {
        std::vector<std::string> messages;
        for (LogLine& line : Take())
            messages.push_back(std::move(line.message));
        return messages;
    }

    // Waits until `message` is among the lines that were not taken. False after a minute.
    bool WaitFor(const std::string& message) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::minutes(1), [&] {
            return std::any_of(mLines.begin(), mLines.end(),
                               [&](const LogLine& line) { return line.message == message; });
        });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<LogLine> mLines;
};
