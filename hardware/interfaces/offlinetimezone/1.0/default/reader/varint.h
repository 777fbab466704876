// Bounds-checked decoding of the varints in a database's content: seven bits per byte, the lowest
// group first, bit 7 set if another byte follows.
#pragma once

#include <cstdint>
#include <cstring>

#include "zonedetect.h"

namespace zonedetect {

// A position in the content, and the end that no read may pass. Requires next <= end.
struct Cursor {
    const uint8_t* next;
    const uint8_t* end;
};

// Returns a cursor at a position of the content. A position behind the end becomes the end.
inline Cursor CursorAt(const ZDDatabase& db, uint32_t position) {
    const auto length = static_cast<uint32_t>(db.length);
    return {db.mapping + (position < length ? position : length), db.mapping + length};
}

// Returns the position of a cursor in the content.
inline uint32_t PositionOf(const ZDDatabase& db, const Cursor& cursor) {
    return static_cast<uint32_t>(cursor.next - db.mapping);
}

// Prefetches the cache line at a position; does nothing behind the end.
inline void Prefetch(const ZDDatabase& db, uint32_t position) {
    if (position < static_cast<uint32_t>(db.length)) __builtin_prefetch(db.mapping + position);
}

// Unaligned little-endian load of eight bytes.
inline uint64_t LoadLittleEndian(const uint8_t* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

// Reads an unsigned varint. Bits from bit 32 up are dropped, however long the varint is. Returns
// false if the varint begins at the end or runs past it; the cursor and `*value` are then
// unchanged.
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
        if (shift > 32) shift -= 7;  // Must not wrap in a long varint.
    }
    return false;
}

// Decodes a sign-magnitude number: the sign in bit 0, the magnitude above it. This is not ZigZag.
inline int32_t SignedOf(uint32_t raw) {
    const auto magnitude = static_cast<int32_t>(raw >> 1);
    return (raw & 1u) != 0 ? -magnitude : magnitude;
}

// Reads a sign-magnitude varint. Fails as ReadUnsigned does.
inline bool ReadSigned(Cursor* cursor, int32_t* value) {
    uint32_t raw;
    if (!ReadUnsigned(cursor, &raw)) return false;
    *value = SignedOf(raw);
    return true;
}

}  // namespace zonedetect
