#include "sha1_block.h"

#include <atomic>
#include <cstring>
#include <utility>

namespace {

constexpr size_t kBlockSize = 64;
constexpr int kSteps = 80;
constexpr int kGroups = kSteps / 4;
constexpr uint32_t kConstants[] = {0x5A827999u, 0x6ED9EBA1u, 0x8F1BBCDCu, 0xCA62C1D6u};

// Four words of the schedule that follow one another, the first in lane 0. Compilers put them
// into a vector register where the processor has such, and into four plain words elsewhere.
using Words = uint32_t __attribute__((vector_size(16)));
using Halves = uint16_t __attribute__((vector_size(16)));  // The same bytes in halves of words.
using Groups = std::make_integer_sequence<int, kGroups>;

inline uint32_t RotateLeft(uint32_t word, unsigned bits) {
    return (word << bits) | (word >> (32 - bits));
}

// Makes the words 4 * kGroup and up of the schedule of `block`, and writes them with the constants
// of their steps already added to `keyed`. `recent` holds the words of the last eight groups.
template <int kGroup>
inline void Schedule(const uint8_t* block, Words (&recent)[8], uint32_t* keyed) {
    Words& words = recent[kGroup % 8];
    if constexpr (kGroup < 4) {
        Halves halves;
        std::memcpy(&halves, block + 16 * kGroup, sizeof halves);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        halves = (halves << 8) | (halves >> 8);
        halves = __builtin_shufflevector(halves, halves, 1, 0, 3, 2, 5, 4, 7, 6);
#endif
        std::memcpy(&words, &halves, sizeof words);
    } else {
        const Words& ago1 = recent[(kGroup - 1) % 8];
        const Words& ago2 = recent[(kGroup - 2) % 8];
        const Words& ago4 = recent[(kGroup - 4) % 8];
        if constexpr (kGroup < 8) {
            // W[t] = rol1(W[t-3] ^ W[t-8] ^ W[t-14] ^ W[t-16]). The last of the four words needs
            // the first, which is still to be made: it starts with 0 in that place, and what the
            // first adds to it, rotated once more, comes after.
            const Words& ago3 = recent[(kGroup - 3) % 8];
            const Words sum = ago4 ^ ago2 ^ __builtin_shufflevector(ago4, ago3, 2, 3, 4, 5) ^
                              __builtin_shufflevector(ago1, Words{}, 1, 2, 3, 4);
            const Words first = __builtin_shufflevector(Words{}, sum, 0, 0, 0, 4);
            words = ((sum << 1) | (sum >> 31)) ^ ((first << 2) | (first >> 30));
        } else {
            // The same rule put into itself: W[t] = rol2(W[t-6] ^ W[t-16] ^ W[t-28] ^ W[t-32]),
            // which needs none of the four words that are being made.
            const Words sum = words ^ recent[(kGroup - 7) % 8] ^ ago4 ^
                              __builtin_shufflevector(ago2, ago1, 2, 3, 4, 5);
            words = (sum << 2) | (sum >> 30);
        }
    }
    const Words sums = words + kConstants[kGroup / 5];
    std::memcpy(keyed + 4 * kGroup, &sums, sizeof sums);
}

// Adds `term` where it is written: without the empty statement compilers regroup a step's sum, and
// its end waits for the step before it longer than it must.
inline void AddInTurn(uint32_t& sum, uint32_t term) {
    sum += term;
    __asm__("" : "+r"(sum));
}

// One step. The five working variables stay where they are; each step finds them one place
// further on instead of moving them.
template <int kStep>
inline void Step(uint32_t (&v)[5], const uint32_t* keyed) {
    const uint32_t a = v[(kSteps - kStep) % 5];
    uint32_t& b = v[(kSteps - kStep + 1) % 5];
    const uint32_t c = v[(kSteps - kStep + 2) % 5];
    const uint32_t d = v[(kSteps - kStep + 3) % 5];
    uint32_t& e = v[(kSteps - kStep + 4) % 5];
    AddInTurn(e, keyed[kStep]);
    if constexpr (kStep < 20) {
        AddInTurn(e, d ^ (b & (c ^ d)));  // b chooses between c and d.
    } else if constexpr (kStep >= 40 && kStep < 60) {
        AddInTurn(e, c & d);  // With the next, the majority of b, c and d.
        AddInTurn(e, b & (c ^ d));
    } else {
        AddInTurn(e, b ^ c ^ d);
    }
    e += RotateLeft(a, 5);
    b = RotateLeft(b, 30);
}

template <int kGroup>
inline void FourSteps(uint32_t (&v)[5], const uint32_t* keyed) {
    Step<4 * kGroup>(v, keyed);
    Step<4 * kGroup + 1>(v, keyed);
    Step<4 * kGroup + 2>(v, keyed);
    Step<4 * kGroup + 3>(v, keyed);
}

template <int... kGroup>
inline void MakeSchedule(const uint8_t* block, uint32_t* keyed,
                         std::integer_sequence<int, kGroup...>) {
    Words recent[8];
    (Schedule<kGroup>(block, recent, keyed), ...);
}

// The 80 steps of one block, and between them the schedule of the next one: each step waits for
// the one before it, and the processor makes the schedule meanwhile.
template <int... kGroup>
inline void Compress(uint32_t (&v)[5], const uint32_t* keyed, const uint8_t* nextBlock,
                     uint32_t* nextKeyed, std::integer_sequence<int, kGroup...>) {
    Words recent[8];
    ((Schedule<kGroup>(nextBlock, recent, nextKeyed), FourSteps<kGroup>(v, keyed)), ...);
}

}  // namespace

void Sha1BlockPlain(uint32_t* hash, const uint8_t* blocks, size_t count) {
    if (count == 0) return;
    // Two that take turns: a single one compilers would hand on in registers, and run out of them.
    alignas(64) uint32_t schedules[2][kSteps];
    uint32_t* keyed = schedules[0];
    uint32_t* nextKeyed = schedules[1];
    MakeSchedule(blocks, keyed, Groups());
    uint32_t v[5] = {hash[0], hash[1], hash[2], hash[3], hash[4]};
    for (; count > 0; --count) {
        // There is none behind the last block; its own schedule is made again and not used.
        if (count > 1) blocks += kBlockSize;
        Compress(v, keyed, blocks, nextKeyed, Groups());
        std::swap(keyed, nextKeyed);
        // In a loop compilers would keep the five in memory, or move them there and back.
        hash[0] = v[0] += hash[0];
        hash[1] = v[1] += hash[1];
        hash[2] = v[2] += hash[2];
        hash[3] = v[3] += hash[3];
        hash[4] = v[4] += hash[4];
    }
}

Sha1BlockFunction ChooseSha1Block() {
    // Constant-initialised, so it is there before any constructor runs and has no destructor.
    // Threads that find it null at the same time all work out the same answer, and code is all it
    // points to, so nothing has to be ordered.
    static std::atomic<Sha1BlockFunction> chosen{nullptr};
    Sha1BlockFunction function = chosen.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = Sha1BlockX86();
        if (function == nullptr) function = Sha1BlockArm();
        if (function == nullptr) function = Sha1BlockPlain;
        chosen.store(function, std::memory_order_relaxed);
    }
    return function;
}
