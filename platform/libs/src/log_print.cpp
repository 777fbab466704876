#include <android/log.h>
#include <locale.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "../../src/log_delivery.h"

namespace platform {
namespace {

// Sets the "C" locale for the calling thread while it exists. As on the platform, numbers in the
// log do not depend on the locale of the process: programs read them.
class ScopedCLocale {
  public:
    ScopedCLocale() {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
        mPrevious = uselocale(locale);
    }
    ~ScopedCLocale() { uselocale(mPrevious); }
    ScopedCLocale(const ScopedCLocale&) = delete;
    ScopedCLocale& operator=(const ScopedCLocale&) = delete;

  private:
    locale_t mPrevious;
};

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, va_list arguments) {
    const ScopedCLocale locale;
    char usual[256];  // A longer text is formatted a second time.
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

}  // namespace
}  // namespace platform

// Without memory the line is lost: the service does not expect its log to fail.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    if (platform::IsLogDropped()) return 1;
    va_list arguments;
    va_start(arguments, format);
    int result = 1;
    try {
        platform::DeliverLog(priority, tag, platform::Format(format, arguments));
    } catch (...) {
        result = -1;
    }
    va_end(arguments);
    return result;
}
