// Positions in a database's content and the varints read there, within bounds.
#pragma once

#include <cstdint>
#include <cstring>

#include "zonedetect.h"

namespace zonedetect {

// A position in the content and the end that no read may pass.
struct Cursor {
    const uint8_t* next;
    const uint8_t* end;
};

inline Cursor CursorAt(const ZDDatabase& db, uint32_t position) {
    const auto length = static_cast<uint32_t>(db.length);
    return {db.mapping + (position < length ? position : length), db.mapping + length};
}

inline uint32_t PositionOf(const ZDDatabase& db, const Cursor& cursor) {
    return static_cast<uint32_t>(cursor.next - db.mapping);
}

// Asks the processor for what will soon be read at a position.
inline void Prefetch(const ZDDatabase& db, uint32_t position) {
    if (position < static_cast<uint32_t>(db.length)) __builtin_prefetch(db.mapping + position);
}

// Eight bytes as a number, the first one lowest.
inline uint64_t LoadLittleEndian(const uint8_t* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

// Reads an unsigned varint; groups at bit 32 or above are dropped. False, with the cursor where it
// was, when it starts at or runs past the end.
inline bool ReadUnsigned(Cursor* cursor, uint32_t* value) {
    const uint8_t* next = cursor->next;
    const uint8_t* const end = cursor->end;
    if (next < end && *next < 0x80u) {
        *value = *next;
        cursor->next = next + 1;
        return true;
    }
    uint32_t result = 0;
    for (unsigned shift = 0; next < end; shift += 7) {
        const uint8_t byte = *next++;
        if (shift < 32) result |= uint32_t{byte & 0x7Fu} << shift;
        if ((byte & 0x80u) == 0) {
            cursor->next = next;
            *value = result;
            return true;
        }
        if (shift > 32) shift -= 7;  // Stays beyond 32 however long the number is.
    }
    return false;
}

// The number that a varint stands for where it is signed: sign in bit 0, magnitude above it.
inline int32_t SignedOf(uint32_t raw) {
    const auto magnitude = static_cast<int32_t>(raw >> 1);
    return (raw & 1u) != 0 ? -magnitude : magnitude;
}

// Reads a signed varint, as ReadUnsigned does.
inline bool ReadSigned(Cursor* cursor, int32_t* value) {
    uint32_t raw;
    if (!ReadUnsigned(cursor, &raw)) return false;
    *value = SignedOf(raw);
    return true;
}

}  // namespace zonedetect
