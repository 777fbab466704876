#include "coordinate_text.h"

#include <locale.h>
#include <stdlib.h>

#include <atomic>
#include <cerrno>
#include <cmath>

namespace {

// Returns the "C" locale, in which numbers have a decimal point. The first use makes it. Returns
// null without memory; a later use then tries again.
locale_t CLocale() {
    static std::atomic<locale_t> made{nullptr};
    locale_t locale = made.load();
    if (locale != nullptr) return locale;
    locale = newlocale(LC_ALL_MASK, "C", nullptr);
    locale_t first = nullptr;
    if (locale == nullptr || made.compare_exchange_strong(first, locale)) return locale;
    freelocale(locale);  // Another thread stored one first.
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
