#include "stored_string.h"

#include <cstdlib>
#include <cstring>

namespace zonedetect {

namespace {

constexpr uint64_t kWordMask =
        kStringMask * uint64_t{0x0101010101010101u};  // For eight characters.

// Reads the leading number of a string and charges it to the budget.
bool ReadLeadingNumber(Cursor* cursor, ReadBudget* budget, uint32_t* length) {
    const uint8_t* const start = cursor->next;
    if (!ReadUnsigned(cursor, length)) {
        budget->Spend(cursor->end - start);  // All of these bytes were read.
        return false;
    }
    budget->Spend(cursor->next - start);
    return true;
}

}  // namespace

void StoredString::CopyTo(char* text) const {
    std::memcpy(text, bytes, length);
    for (uint32_t i = 0; i < length; i += sizeof kWordMask) {
        uint64_t word;
        std::memcpy(&word, text + i, sizeof word);
        word ^= kWordMask;
        std::memcpy(text + i, &word, sizeof word);
    }
    text[length] = '\0';
}

char* StoredString::Copy() const {
    char* text = static_cast<char*>(std::malloc(Room()));
    if (text != nullptr) CopyTo(text);
    return text;
}

bool FindString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget, StoredString* found) {
    if (budget->IsSpent()) return false;
    Cursor cursor = CursorAt(db, *position);
    uint32_t length;
    if (!ReadLeadingNumber(&cursor, budget, &length)) return false;
    *position = PositionOf(db, cursor);
    const bool isReference = length >= kReferenceBase;
    if (isReference) {
        cursor = CursorAt(db, db.metadataOffset + (length - kReferenceBase));
        if (!ReadLeadingNumber(&cursor, budget, &length) || length > StoredString::kMaxLength)
            return false;
    }
    // A text that runs past the content cannot be decoded.
    if (length > static_cast<size_t>(cursor.end - cursor.next)) return false;
    if (!isReference) *position += length;
    budget->Spend(length);
    *found = {cursor.next, length};
    return true;
}

char* ParseString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget) {
    StoredString found;
    return FindString(db, position, budget, &found) ? found.Copy() : nullptr;
}

}  // namespace zonedetect

char* ZDParseString(const ZDDatabase* db, uint32_t* position) {
    zonedetect::ReadBudget budget(db->length);
    return zonedetect::ParseString(*db, position, &budget);
}
