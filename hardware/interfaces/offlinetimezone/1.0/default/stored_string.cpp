#include "stored_string.h"

#include <cstdlib>
#include <cstring>

namespace zonedetect {

namespace {

constexpr uint32_t kReferenceBase = 256;  // String lengths from here on are references.
static_assert(kReferenceBase <= StoredString::kMaxLength + 1, "no string is longer");
constexpr uint64_t kStringMask = 0x8080808080808080u;  // Eight characters at a time.

// Reads a string's leading number.
bool ReadLength(Cursor* cursor, ReadBudget* budget, uint32_t* length) {
    const uint8_t* const start = cursor->next;
    if (!ReadUnsigned(cursor, length)) {
        budget->Spend(cursor->end - start);  // All of it was looked at.
        return false;
    }
    budget->Spend(cursor->next - start);
    return true;
}

}  // namespace

void StoredString::CopyTo(char* text) const {
    std::memcpy(text, bytes, length);
    for (uint32_t i = 0; i < length; i += sizeof kStringMask) {
        uint64_t word;
        std::memcpy(&word, text + i, sizeof word);
        word ^= kStringMask;
        std::memcpy(text + i, &word, sizeof word);
    }
    text[length] = '\0';
}

bool FindString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget, StoredString* found) {
    if (budget->IsSpent()) return false;
    Cursor cursor = CursorAt(db, *position);
    uint32_t length;
    if (!ReadLength(&cursor, budget, &length)) return false;
    *position = PositionOf(db, cursor);
    const bool isReference = length >= kReferenceBase;
    if (isReference) {
        cursor = CursorAt(db, db.metadataOffset + (length - kReferenceBase));
        if (!ReadLength(&cursor, budget, &length) || length > StoredString::kMaxLength)
            return false;
    }
    // A text that runs past the content is as unreadable as any other number out of range.
    if (length > static_cast<size_t>(cursor.end - cursor.next)) return false;
    if (!isReference) *position += length;
    budget->Spend(length);
    *found = {cursor.next, length};
    return true;
}

char* ParseString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget) {
    StoredString found;
    if (!FindString(db, position, budget, &found)) return nullptr;
    char* text = static_cast<char*>(std::malloc(found.Room()));
    if (text != nullptr) found.CopyTo(text);
    return text;
}

}  // namespace zonedetect

char* ZDParseString(const ZDDatabase* db, uint32_t* position) {
    zonedetect::ReadBudget budget(db->length);
    return zonedetect::ParseString(*db, position, &budget);
}
