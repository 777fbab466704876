// Decoding of the strings in a database.
#pragma once

#include <cstddef>
#include <cstdint>

#include "format.h"
#include "read_budget.h"
#include "varint.h"
#include "zonedetect.h"

namespace zonedetect {

// A string in the content, not decoded yet. Borrows its bytes from the open database.
struct StoredString {
    const uint8_t* bytes;
    uint32_t length;

    static constexpr uint32_t kMaxLength = kReferenceBase;
    // Room for the longest string.
    static constexpr size_t kMaxRoom = kMaxLength + 8;

    // Size in bytes of the buffer for CopyTo, which writes whole words and a terminating zero.
    size_t Room() const { return size_t{length} + 8; }

    // Decodes the string into `text`, which has Room() bytes, with a terminating zero.
    void CopyTo(char* text) const;

    // Decodes the string into new memory, which the caller frees with free(). Returns null without
    // memory.
    char* Copy() const;
};

// Finds the string at content offset `*position`, follows a reference, and charges the bytes read
// to `budget`. Moves `*position` as ZDParseString does. Returns false if the string cannot be
// decoded. Returns false and leaves `*position` alone if the budget is spent.
bool FindString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget, StoredString* found);

// Same as FindString, and decodes the string into new memory, which the caller frees with free().
// Returns null if FindString fails or without memory.
char* ParseString(const ZDDatabase& db, uint32_t* position, ReadBudget* budget);

}  // namespace zonedetect
