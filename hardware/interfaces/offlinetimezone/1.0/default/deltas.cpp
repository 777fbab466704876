#include "deltas.h"

namespace zonedetect {

namespace {

constexpr uint64_t kMoreBits = 0x8080808080808080u;

inline uint64_t LoadLittleEndian(const uint8_t* bytes) {
    uint64_t word = 0;
    for (unsigned i = 0; i < 8; ++i)
        word |= uint64_t{bytes[i]} << (8 * i);
    return word;
}

// The 32 bits that up to eight bytes of a varint stand for, the first one lowest.
inline uint32_t Compress(uint64_t bytes) {
    return static_cast<uint32_t>((bytes & 0x7Fu) | ((bytes >> 1) & 0x3F80u) |
                                 ((bytes >> 2) & 0x1FC000u) | ((bytes >> 3) & 0xFE00000u) |
                                 ((bytes >> 4) & 0xF0000000u));
}

size_t ChooseAndDecode(Cursor* cursor, int32_t* values, size_t count) {
    const DeltaDecoder x86 = X86DeltaDecoder();
    const DeltaDecoder chosen = x86 != nullptr ? x86 : &DecodeDeltasPortable;
    // Threads that meet here store the same.
    deltaDecoder.store(chosen, std::memory_order_relaxed);
    return chosen(cursor, values, count);
}

}  // namespace

std::atomic<DeltaDecoder> deltaDecoder{&ChooseAndDecode};

size_t DecodeDeltasPortable(Cursor* cursor, int32_t* values, size_t count) {
    const uint8_t* next = cursor->next;
    size_t done = 0;
    while (count - done >= 8 && cursor->end - next >= 8) {
        uint64_t word = LoadLittleEndian(next);
        uint64_t ends = ~word & kMoreBits;
        if (ends == kMoreBits) {
            for (size_t i = 0; i < 8; ++i)
                values[done + i] = SignedOf(next[i]);
            next += 8;
            done += 8;
            continue;
        }
        if (ends == 0) break;  // Longer than eight bytes.
        // Whatever ends within the word.
        while (ends != 0) {
            const auto bits = static_cast<unsigned>(__builtin_ctzll(ends)) + 1;  // 8 a byte.
            values[done++] = SignedOf(Compress(word & (~uint64_t{0} >> (64 - bits))));
            next += bits / 8;
            if (bits == 64) break;
            word >>= bits;
            ends >>= bits;
        }
    }
    cursor->next = next;
    while (done < count && ReadSigned(cursor, &values[done]))
        ++done;
    return done;
}

}  // namespace zonedetect
