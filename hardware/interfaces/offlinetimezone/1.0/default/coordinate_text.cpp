#include "coordinate_text.h"

#include <locale.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

bool ParseCoordinate(const char* text, float* degrees) {
    const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    if (plain == nullptr) return false;
    // Of this thread alone, and only while the text is read.
    const locale_t previous = uselocale(plain);
    errno = 0;
    char* end = nullptr;
    const float value = std::strtof(text, &end);
    const bool tooLarge = errno == ERANGE && std::fabs(value) == HUGE_VALF;
    uselocale(previous);
    freelocale(plain);
    if (end == text || tooLarge) return false;
    *degrees = value;
    return true;
}
