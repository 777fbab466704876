// Collects the service's log while it lives.
#pragma once

#include <host/log.h>

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
        host::SetLogReceiver([this](int priority, const char* tag, const std::string& message) {
            const std::lock_guard<std::mutex> lock(mMutex);
            mLines.push_back({priority, tag, message});
        });
    }
    ~LogCapture() { host::SetLogReceiver(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // What was logged since the last call.
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

  private:
    std::mutex mMutex;
    std::vector<LogLine> mLines;
};
