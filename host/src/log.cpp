#include "host/log.h"

#include <android/log.h>
#include <locale.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace host {
namespace {

struct LogState {
    std::mutex mutex;
    LogReceiver receiver;  // Guarded by mutex.
    std::atomic<bool> isDropped{false};
};

// Never destroyed: threads of the service may log while the process ends.
LogState& State() {
    static auto* state = new LogState;
    return *state;
}

char PriorityLetter(int priority) {
    static constexpr char kLetters[] = "??VDIWEF";
    return priority >= 0 && priority < 8 ? kLetters[priority] : '?';
}

// Numbers look the same whatever locale the process has set, as on the platform; the texts are read
// by programs.
class PlainNumbers {
  public:
    PlainNumbers() {
        static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
        mPrevious = uselocale(plain);
    }
    ~PlainNumbers() { uselocale(mPrevious); }
    PlainNumbers(const PlainNumbers&) = delete;
    PlainNumbers& operator=(const PlainNumbers&) = delete;

  private:
    locale_t mPrevious;
};

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, va_list arguments) {
    const PlainNumbers plain;
    char usual[256];  // Longer ones are formatted once more.
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(usual, sizeof usual, format, arguments);
    std::string text;
    if (length >= static_cast<int>(sizeof usual)) {
        text.resize(static_cast<size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    } else if (length > 0) {
        text.assign(usual, static_cast<size_t>(length));
    }
    va_end(again);
    return text;
}

// Without the line break that some messages end in, and with those inside shown as "\\n".
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

void DropLog() {
    State().isDropped = true;
}

}  // namespace host

// A line that there is no memory for is lost: the service does not expect its log to fail.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    host::LogState& state = host::State();
    if (state.isDropped) return 1;
    va_list arguments;
    va_start(arguments, format);
    int result = 1;
    try {
        const std::string message = host::Format(format, arguments);
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (state.receiver) {
            state.receiver(priority, tag, message);
        } else {
            std::fprintf(stderr, "%c %s: %s\n", host::PriorityLetter(priority), tag,
                         host::OnOneLine(message).c_str());
        }
    } catch (...) {
        result = -1;
    }
    va_end(arguments);
    return result;
}
