// The decoder for SSE4.1: a mask of 64 bytes says where numbers end; twelve bits of it are turned
// by a table into a shuffle that puts four numbers into a lane each. Where the next four begin is
// known only then, so two places of the 64 bytes are decoded in turn: the processor need not wait.
#include "deltas.h"

#if defined(__x86_64__) || defined(__i386__)

#include <smmintrin.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace zonedetect {

namespace {

constexpr unsigned kLongest = 3;  // Bytes of a number in a lane.
constexpr size_t kShuffles = 81;  // kLongest to the power of four numbers.
constexpr size_t kMasks = 4096;   // What twelve bytes' "another byte follows" may be.

struct Pattern {
    uint8_t shuffle = 0;  // Where it stands, in units of kShuffleUnit, which an address may hold.
    uint8_t bytes = 0;    // Of the four numbers.
};
constexpr size_t kShuffleUnit = 8;

struct Tables {
    alignas(16) std::array<std::array<uint8_t, 16>, kShuffles> shuffles{};
    std::array<Pattern, kMasks> patterns{};
};

// Numbers that are too long are cut off: they, and those behind them, are not to be used.
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

// The top bits of 64 bytes.
OFFLINETZ_SSE41 inline uint64_t MoreBitsOf(const uint8_t* bytes) {
    uint64_t mask = 0;
    for (unsigned i = 0; i < 64; i += 16)
        mask |= uint64_t{static_cast<uint16_t>(_mm_movemask_epi8(LoadSixteen(bytes + i)))} << i;
    return mask;
}

// The place behind the n-th set bit, counted from 1, of a mask that has so many.
OFFLINETZ_SSE41 inline ptrdiff_t PlaceBehind(uint64_t mask, size_t n) {
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

// One of the two places.
struct Place {
    const uint8_t* next;
    uint64_t more;  // The mask from there on.
    int32_t* values;

    OFFLINETZ_SSE41 inline void DecodeFour() {
        const Pattern pattern = kTables.patterns[more % kMasks];
        const auto* const shuffle = reinterpret_cast<const uint8_t*>(kTables.shuffles.data()) +
                                    kShuffleUnit * pattern.shuffle;
        const __m128i lanes = _mm_shuffle_epi8(
                LoadSixteen(next), _mm_load_si128(reinterpret_cast<const __m128i*>(shuffle)));
        // Seven bits a byte: pairs of bytes, then pairs of pairs.
        const __m128i bits = _mm_and_si128(lanes, _mm_set1_epi8(0x7F));
        const __m128i pairs = _mm_maddubs_epi16(_mm_set1_epi16(static_cast<int16_t>(0x8001)), bits);
        const __m128i raw = _mm_madd_epi16(pairs, _mm_set1_epi32(0x40000001));
        // The sign stands in bit 0, the magnitude above it.
        const __m128i sign = _mm_or_si128(_mm_slli_epi32(raw, 31), _mm_set1_epi32(1));
        const __m128i value = _mm_sign_epi32(_mm_srli_epi32(raw, 1), sign);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(values), value);
        values += 4;
        next += pattern.bytes;
        more >>= pattern.bytes;
    }
};

OFFLINETZ_SSE41 size_t DecodeDeltasX86(Cursor* cursor, int32_t* values, size_t count) {
    // From the last place in 64 bytes numbers of three bytes lead on, and sixteen are loaded.
    constexpr ptrdiff_t kReadAhead = 128;
    size_t done = 0;
    while (done < count && cursor->end - cursor->next >= kReadAhead) {
        const uint64_t more = MoreBitsOf(cursor->next);
        // Where numbers end, up to the first that is too long.
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
        Place a = {cursor->next, more, values + done};
        if (wanted <= inFront) {
            for (size_t i = 0; i < wanted; i += 4)
                a.DecodeFour();
        } else {
            // What `a` decodes behind the front is the same as what `b` does.
            const int split = front == 0 ? 0 : 64 - __builtin_clzll(front);
            Place b = {cursor->next + split, more >> split, values + done + inFront};
            const size_t most = std::max(inFront, wanted - inFront);
            for (size_t i = 0; i < most; i += 4) {
                a.DecodeFour();
                b.DecodeFour();
            }
        }
        done += wanted;
        cursor->next += wanted == all ? 64 - __builtin_clzll(ends) : PlaceBehind(ends, wanted);
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
