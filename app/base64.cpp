#include "base64.h"

std::string Base64(const uint8_t* bytes, size_t length) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((length + 2) / 3 * 4);
    for (size_t i = 0; i < length; i += 3) {
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k)
            group = (group << 8) | (i + k < length ? bytes[i + k] : 0u);
        for (size_t k = 0; k < 4; ++k)
            text += i + k > length ? '=' : kDigits[(group >> (18 - 6 * k)) & 63];
    }
    return text;
}
