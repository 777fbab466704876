#include "coordinate_text.h"

#include <locale.h>
#include <stdlib.h>

#include <atomic>
#include <cerrno>
#include <cmath>

namespace {

// The locale of numbers with a decimal point, made by the first use; null where there is no memory.
locale_t CLocale() {
    static std::atomic<locale_t> made{nullptr};
    locale_t locale = made.load();
    if (locale != nullptr) return locale;
    locale = newlocale(LC_ALL_MASK, "C", nullptr);
    locale_t first = nullptr;
    if (locale == nullptr || made.compare_exchange_strong(first, locale)) return locale;
    freelocale(locale);  // Another thread was first.
    return first;
}

}  // namespace

bool ParseCoordinate(const char* text, float* degrees) {
    const locale_t locale = CLocale();
    if (locale == nullptr) return false;
    errno = 0;
    char* end = nullptr;
    const float value = strtof_l(text, &end, locale);
    if (end == text || (errno == ERANGE && std::fabs(value) == HUGE_VALF)) return false;
    *degrees = value;
    return true;
}
