#include "deltas.h"

namespace zonedetect {

namespace {

// The continuation bits of eight bytes.
constexpr uint64_t kMoreBits = 0x8080808080808080u;

// Decodes the varint in the lowest `bits` bits (8 to 64, a multiple of 8) of `bytes`. Bits from bit
// 32 of the result up are dropped.
uint32_t LowGroups(uint64_t bytes, unsigned bits) {
    bytes &= ~uint64_t{0} >> (64 - bits);
    return static_cast<uint32_t>((bytes & 0x7Fu) | ((bytes >> 1) & 0x3F80u) |
                                 ((bytes >> 2) & 0x1FC000u) | ((bytes >> 3) & 0xFE00000u) |
                                 ((bytes >> 4) & 0xF0000000u));
}

size_t ChooseAndDecode(Cursor* cursor, int32_t* values, size_t count) {
    const DeltaDecoder x86 = X86DeltaDecoder();
    const DeltaDecoder chosen = x86 != nullptr ? x86 : &DecodeDeltasPortable;
    // Threads that run this at the same time store the same pointer.
    deltaDecoder.store(chosen, std::memory_order_relaxed);
    return chosen(cursor, values, count);
}

}  // namespace

std::atomic<DeltaDecoder> deltaDecoder{&ChooseAndDecode};

size_t DecodeDeltasPortable(Cursor* cursor, int32_t* values, size_t count) {
    const uint8_t* next = cursor->next;
    size_t done = 0;
    while (done < count && cursor->end - next >= 8) {
        uint64_t word = LoadLittleEndian(next);
        uint64_t ends = ~word & kMoreBits;
        if (ends == kMoreBits && count - done >= 8) {
            for (size_t i = 0; i < 8; ++i)
                values[done + i] = SignedOf(next[i]);
            next += 8;
            done += 8;
            continue;
        }
        if (ends == 0) {  // A varint of more than eight bytes.
            Cursor one = {next, cursor->end};
            if (!ReadSigned(&one, &values[done])) break;
            next = one.next;
            ++done;
            continue;
        }
        // Decode the varints that end within the word.
        while (ends != 0 && done < count) {
            const auto bits = static_cast<unsigned>(__builtin_ctzll(ends)) + 1;  // Its length.
            values[done++] = SignedOf(LowGroups(word, bits));
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
