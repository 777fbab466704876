// The decoder for SSE4.1: one mask of sixteen bytes says where the next numbers end, a table turns
// its first twelve bits into a shuffle that puts each number into a lane of its own.
#include "deltas.h"

#if defined(__x86_64__) || defined(__i386__)

#include <smmintrin.h>

#include <array>

namespace zonedetect {

namespace {

// What twelve bits of "another byte follows" hold: six numbers of one or two bytes, or else four of
// one to three.
constexpr uint8_t kNeither = 0xFF;
constexpr size_t kPairs = 64;    // Shuffles for six numbers: 2^6 ...
constexpr size_t kTriples = 81;  // ... and for four: 3^4.

struct Pattern {
    uint8_t shuffle = kNeither;  // Below kPairs: six numbers.
    uint8_t bytes = 0;           // That they take.
};

struct Tables {
    std::array<Pattern, 4096> patterns{};
    std::array<std::array<uint8_t, 16>, kPairs + kTriples> shuffles{};
};

// Finds `numbers` numbers of at most `longest` bytes in `mask`; their lengths, or false.
constexpr bool Split(unsigned mask, size_t numbers, unsigned longest, unsigned* lengths) {
    unsigned at = 0;
    for (size_t i = 0; i < numbers; ++i) {
        unsigned length = 1;
        while (at + length <= 12 && (mask >> (at + length - 1) & 1u) != 0)
            ++length;
        if (length > longest || at + length > 12) return false;
        lengths[i] = length;
        at += length;
    }
    return true;
}

constexpr void Enter(Tables* tables, unsigned mask, size_t base, size_t numbers, unsigned longest,
                     const unsigned* lengths) {
    const size_t lane = numbers == 6 ? 2 : 4;  // Bytes.
    size_t index = 0;
    for (size_t i = 0; i < numbers; ++i)
        index = index * longest + (lengths[i] - 1);
    std::array<uint8_t, 16>& shuffle = tables->shuffles[base + index];
    for (uint8_t& byte : shuffle)
        byte = 0x80;  // Zero.
    unsigned at = 0;
    for (size_t i = 0; i < numbers; ++i) {
        for (unsigned b = 0; b < lengths[i]; ++b)
            shuffle[i * lane + b] = static_cast<uint8_t>(at++);
    }
    tables->patterns[mask] = {static_cast<uint8_t>(base + index), static_cast<uint8_t>(at)};
}

constexpr Tables MakeTables() {
    Tables tables;
    for (unsigned mask = 0; mask < 4096; ++mask) {
        unsigned lengths[6] = {};
        if (Split(mask, 6, 2, lengths)) {
            Enter(&tables, mask, 0, 6, 2, lengths);
        } else if (Split(mask, 4, 3, lengths)) {
            Enter(&tables, mask, kPairs, 4, 3, lengths);
        }
    }
    return tables;
}

alignas(16) constexpr Tables kTables = MakeTables();

// Sign and magnitude to two's complement: the sign stands in bit 0.
__attribute__((target("sse4.1"))) inline __m128i SignedLanes(__m128i raw) {
    const __m128i sign = _mm_sub_epi32(_mm_setzero_si128(), _mm_and_si128(raw, _mm_set1_epi32(1)));
    return _mm_sub_epi32(_mm_xor_si128(_mm_srli_epi32(raw, 1), sign), sign);
}

__attribute__((target("sse4.1"))) inline void Store(int32_t* values, __m128i lanes) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(values), lanes);
}

__attribute__((target("sse4.1"))) size_t DecodeDeltasX86(Cursor* cursor, int32_t* values,
                                                         size_t count) {
    const uint8_t* next = cursor->next;
    size_t done = 0;
    while (done < count && cursor->end - next >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(next));
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        if (mask == 0 && count - done >= 16) {
            Store(values + done, SignedLanes(_mm_cvtepu8_epi32(bytes)));
            Store(values + done + 4, SignedLanes(_mm_cvtepu8_epi32(_mm_srli_si128(bytes, 4))));
            Store(values + done + 8, SignedLanes(_mm_cvtepu8_epi32(_mm_srli_si128(bytes, 8))));
            Store(values + done + 12, SignedLanes(_mm_cvtepu8_epi32(_mm_srli_si128(bytes, 12))));
            next += 16;
            done += 16;
            continue;
        }
        const Pattern pattern = kTables.patterns[mask & 0xFFFu];
        if (pattern.shuffle == kNeither) {
            Cursor one = {next, cursor->end};
            if (!ReadSigned(&one, &values[done])) break;
            next = one.next;
            ++done;
            continue;
        }
        const __m128i lanes =
                _mm_shuffle_epi8(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(
                                                kTables.shuffles[pattern.shuffle].data())));
        const size_t numbers = pattern.shuffle < kPairs ? 6 : 4;
        if (pattern.shuffle < kPairs) {
            const __m128i raw =
                    _mm_or_si128(_mm_and_si128(lanes, _mm_set1_epi16(0x7F)),
                                 _mm_srli_epi16(_mm_and_si128(lanes, _mm_set1_epi16(0x7F00)), 1));
            Store(values + done, SignedLanes(_mm_cvtepu16_epi32(raw)));
            Store(values + done + 4, SignedLanes(_mm_cvtepu16_epi32(_mm_srli_si128(raw, 8))));
        } else {
            const __m128i low = _mm_and_si128(lanes, _mm_set1_epi32(0x7F));
            const __m128i middle = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x7F00)), 1);
            const __m128i high = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x7F0000)), 2);
            Store(values + done, SignedLanes(_mm_or_si128(low, _mm_or_si128(middle, high))));
        }
        if (count - done < numbers) {  // Takes those that are left only.
            unsigned ends = ~mask;
            for (; done + 1 < count; ++done)
                ends &= ends - 1;
            next += __builtin_ctz(ends) + 1;
            ++done;
            break;
        }
        next += pattern.bytes;
        done += numbers;
    }
    cursor->next = next;
    return done + DecodeDeltasPortable(cursor, values + done, count - done);
}

}  // namespace

DeltaDecoder X86DeltaDecoder() {
    return __builtin_cpu_supports("sse4.1") ? &DecodeDeltasX86 : nullptr;
}

}  // namespace zonedetect

#else

namespace zonedetect {

DeltaDecoder X86DeltaDecoder() {
    return nullptr;
}

}  // namespace zonedetect

#endif
