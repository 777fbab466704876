// The decoder of delta-encoded coordinates for SSE4.1.
//
// It loads the continuation bits of 64 bytes into a mask. A table maps the next 12 bits of the mask
// to a byte shuffle that moves the next four varints, of up to three bytes each, into one lane
// each. Where the following four begin is known only after that. To hide this latency two streams
// decode in turn: one from the start of the 64 bytes, one from the middle. Longer varints take the
// scalar path.
#include "deltas.h"

#if defined(__x86_64__) || defined(__i386__)

#include <smmintrin.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace zonedetect {

namespace {

constexpr unsigned kLongest = 3;  // Bytes of the longest varint that a shuffle handles.
constexpr size_t kShuffles = 81;  // kLongest to the power of 4: the lengths of four varints.
constexpr size_t kMasks = 4096;   // Values of the continuation bits of 12 bytes.

struct Pattern {
    uint8_t shuffle = 0;  // Offset of the shuffle in Tables::shuffles, in units of kShuffleUnit.
    uint8_t bytes = 0;    // Length of the four varints.
};
constexpr size_t kShuffleUnit = 8;  // The largest scale factor of an x86 address.

struct Tables {
    alignas(16) std::array<std::array<uint8_t, 16>, kShuffles> shuffles{};
    std::array<Pattern, kMasks> patterns{};
};

// Patterns with a varint of more than kLongest bytes cut it off there: its lane and the lanes after
// it are meaningless.
constexpr Tables MakeTables() {
    Tables tables;
    for (unsigned mask = 0; mask < kMasks; ++mask) {
        size_t index = 0;
        unsigned at = 0;
        std::array<uint8_t, 16> shuffle{};
        for (size_t number = 0; number < 4; ++number) {
            unsigned length = 1;
            while (length < kLongest && (mask >> (at + length - 1) & 1u) != 0)
                ++length;
            index = index * kLongest + (length - 1);
            for (unsigned b = 0; b < 4; ++b)
                shuffle[number * 4 + b] = static_cast<uint8_t>(b < length ? at + b : 0x80u);
            at += length;
        }
        tables.shuffles[index] = shuffle;
        tables.patterns[mask] = {static_cast<uint8_t>(16 / kShuffleUnit * index),
                                 static_cast<uint8_t>(at)};
    }
    return tables;
}

constexpr Tables kTables = MakeTables();

#define OFFLINETZ_SSE41 __attribute__((target("sse4.1,popcnt")))

OFFLINETZ_SSE41 inline __m128i LoadSixteen(const uint8_t* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

// Returns the continuation bits (bit 7) of 64 bytes.
OFFLINETZ_SSE41 inline uint64_t MoreBitsOf(const uint8_t* bytes) {
    uint64_t mask = 0;
    for (unsigned i = 0; i < 64; i += 16)
        mask |= uint64_t{static_cast<uint16_t>(_mm_movemask_epi8(LoadSixteen(bytes + i)))} << i;
    return mask;
}

// Returns the index of the n-th set bit of `mask`, counted from 1, plus 1. The mask must have n
// bits set.
OFFLINETZ_SSE41 inline ptrdiff_t PositionAfterSetBit(uint64_t mask, size_t n) {
    ptrdiff_t place = 1;
    for (unsigned width = 32; width > 0; width /= 2) {
        const uint64_t low = mask & ((uint64_t{1} << width) - 1);
        const auto below = static_cast<size_t>(__builtin_popcountll(low));
        if (n > below) {
            n -= below;
            mask >>= width;
            place += width;
        }
    }
    return place;
}

// One of the two streams.
struct Stream {
    const uint8_t* next;
    uint64_t more;  // Continuation bits from `next` on; 0 behind the 64 bytes.
    int32_t* values;

    OFFLINETZ_SSE41 inline void DecodeFour() {
        const Pattern pattern = kTables.patterns[more % kMasks];
        const auto* const shuffle = reinterpret_cast<const uint8_t*>(kTables.shuffles.data()) +
                                    kShuffleUnit * pattern.shuffle;
        const __m128i lanes = _mm_shuffle_epi8(
                LoadSixteen(next), _mm_load_si128(reinterpret_cast<const __m128i*>(shuffle)));
        // Join the 7-bit groups: two bytes to 14 bits, then two of those to 28 bits.
        const __m128i bits = _mm_and_si128(lanes, _mm_set1_epi8(0x7F));
        const __m128i pairs = _mm_maddubs_epi16(_mm_set1_epi16(static_cast<int16_t>(0x8001)), bits);
        const __m128i raw = _mm_madd_epi16(pairs, _mm_set1_epi32(0x40000001));
        // Sign-magnitude: the sign is bit 0, the magnitude is above it.
        const __m128i sign = _mm_or_si128(_mm_slli_epi32(raw, 31), _mm_set1_epi32(1));
        const __m128i value = _mm_sign_epi32(_mm_srli_epi32(raw, 1), sign);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(values), value);
        values += 4;
        next += pattern.bytes;
        more >>= pattern.bytes;
    }
};

OFFLINETZ_SSE41 size_t DecodeDeltasX86(Cursor* cursor, int32_t* values, size_t count) {
    // Bytes that a round may load. A stream starts in the first 33 bytes and decodes at most 32
    // varints. Behind the 64 bytes the mask is 0, so each varint counts one byte there. Hence
    // every load of 16 bytes ends within the first 98 bytes.
    constexpr ptrdiff_t kReadAhead = 128;
    size_t done = 0;
    while (done < count && cursor->end - cursor->next >= kReadAhead) {
        const uint64_t more = MoreBitsOf(cursor->next);
        // The last bytes of varints, up to the first varint that is too long.
        uint64_t ends = ~more;
        const uint64_t tooLong = more & more >> 1 & more >> 2;
        if (tooLong != 0) ends &= (tooLong & (0 - tooLong)) - 1;
        if (ends == 0) {
            if (!ReadSigned(cursor, values + done)) return done;
            ++done;
            continue;
        }
        const uint64_t front = ends & 0xFFFFFFFFu;
        const auto inFront = static_cast<size_t>(__builtin_popcountll(front));
        const auto all = static_cast<size_t>(__builtin_popcountll(ends));
        const size_t wanted = std::min(all, count - done);
        Stream a = {cursor->next, more, values + done};
        if (wanted <= inFront) {
            for (size_t i = 0; i < wanted; i += 4)
                a.DecodeFour();
        } else {
            // Where `a` runs past the front, it decodes the same values as `b`.
            const int split = front == 0 ? 0 : 64 - __builtin_clzll(front);
            Stream b = {cursor->next + split, more >> split, values + done + inFront};
            const size_t most = std::max(inFront, wanted - inFront);
            for (size_t i = 0; i < most; i += 4) {
                a.DecodeFour();
                b.DecodeFour();
            }
        }
        done += wanted;
        cursor->next +=
                wanted == all ? 64 - __builtin_clzll(ends) : PositionAfterSetBit(ends, wanted);
    }
    return done + DecodeDeltasPortable(cursor, values + done, count - done);
}

}  // namespace

DeltaDecoder X86DeltaDecoder() {
    return __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("popcnt") ? &DecodeDeltasX86
                                                                                : nullptr;
}

}  // namespace zonedetect

#else

namespace zonedetect {

DeltaDecoder X86DeltaDecoder() {
    return nullptr;
}

}  // namespace zonedetect

#endif
