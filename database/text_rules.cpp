#include "text_rules.h"

#include <simdjson.h>

namespace offlinetz {

namespace {

// Whether a UTF-8 text holds a control character: U+0000 to U+001F, U+007F, or U+0080 to U+009F,
// which are the bytes C2 80 to C2 9F.
bool HoldsControlCharacter(std::string_view text) {
    unsigned char previous = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || (previous == 0xC2 && byte < 0xA0)) return true;
        previous = byte;
    }
    return false;
}

}  // namespace

const char* FaultOfIdentifier(std::string_view identifier) {
    if (identifier.empty()) return "is empty";
    if (!simdjson::validate_utf8(identifier)) return "is not UTF-8";
    if (HoldsControlCharacter(identifier) || identifier.find('"') != std::string_view::npos) {
        return "holds a double-quote or control character";
    }
    if (identifier.substr(0, kErrorPrefix.size()) == kErrorPrefix) {
        return "begins with \"error:\", which clients take for an error";
    }
    return nullptr;
}

const char* FaultOfNotice(std::string_view notice) {
    if (!simdjson::validate_utf8(notice)) return "is not UTF-8";
    if (HoldsControlCharacter(notice)) return "holds a control character";
    return nullptr;
}

}  // namespace offlinetz
