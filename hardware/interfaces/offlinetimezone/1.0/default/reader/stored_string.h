// Texts as a database stores them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "format.h"
#include "read_budget.h"
#include "varint.h"
#include "zonedetect.h"

namespace zonedetect {

// A text within the content, not decoded yet.
struct StoredString {
    const uint8_t* bytes;
    uint32_t length;

    static constexpr uint32_t kMaxLength = kReferenceBase;
    // What the longest one needs.
    static constexpr size_t kMaxRoom = kMaxLength + 8;

    // The room that CopyTo needs: a zero at the end, and whole words on the way there.
    size_t Room() const { return size_t{length} + 8; }

    // Decodes it to `text`, zero-terminated.
    void CopyTo(char* text) const;

    // Decodes it into new memory that the caller frees; null without memory.
    char* Copy() const;
};

// Finds the string at content position `*position`, which moves as ZDParseString says. False when
// it cannot be decoded, or when the budget, on which its bytes go, is spent; `*position` then
// stays.
bool FindString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget, StoredString* found);

// FindString, with the text decoded into memory of its own, which the caller frees; null when it
// cannot be, or where there is no memory.
char* ParseString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget);

}  // namespace zonedetect
