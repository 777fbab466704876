#include <platform/log.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>

#include "log_delivery.h"

namespace platform {
namespace {

struct LogState {
    std::mutex mutex;      // Held while the receiver runs.
    LogReceiver receiver;  // Guarded by mutex.
    std::atomic<bool> isDropped{false};
};

// Never destroyed: threads of the service may log while the process ends.
LogState& State() {
    static auto* state = new LogState;
    return *state;
}

// Returns the message without a line break at its end and with those inside written as "\\n".
std::string OnOneLine(const std::string& message) {
    std::string line;
    for (size_t i = 0; i < message.size(); ++i) {
        if (message[i] != '\n') {
            line += message[i];
        } else if (i + 1 < message.size()) {
            line += "\\n";
        }
    }
    return line;
}

}  // namespace

void SetLogReceiver(LogReceiver receiver) {
    LogState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.receiver = std::move(receiver);
    state.isDropped = false;
}

char PriorityLetter(int priority) {
    static constexpr char kLetters[] = "??VDIWEF";
    return priority >= 0 && priority < 8 ? kLetters[priority] : '?';
}

void DropLog() {
    State().isDropped = true;
}

bool IsLogDropped() {
    return State().isDropped;
}

void DeliverLog(int priority, const char* tag, const std::string& message) {
    LogState& state = State();
    if (state.isDropped) return;
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (state.receiver) {
        state.receiver(priority, tag, message);
    } else {
        std::fprintf(stderr, "%c %s: %s\n", PriorityLetter(priority), tag,
                     OnOneLine(message).c_str());
    }
}

}  // namespace platform
