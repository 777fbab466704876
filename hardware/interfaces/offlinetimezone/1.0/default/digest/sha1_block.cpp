#include "sha1_block.h"

#include <atomic>
#include <cstring>
#include <utility>

namespace {

constexpr size_t kBlockSize = 64;
constexpr int kSteps = 80;
constexpr int kGroups = kSteps / 4;
constexpr uint32_t kConstants[] = {0x5A827999u, 0x6ED9EBA1u, 0x8F1BBCDCu, 0xCA62C1D6u};

// Four consecutive words of the message schedule, the first in lane 0. Compilers keep them in a
// vector register if the processor has one, and in four scalar words otherwise.
using Words = uint32_t __attribute__((vector_size(16)));
using Halves = uint16_t __attribute__((vector_size(16)));  // The same bytes as half-words.
using Groups = std::make_integer_sequence<int, kGroups>;

inline uint32_t RotateLeft(uint32_t word, unsigned bits) {
    return (word << bits) | (word >> (32 - bits));
}

// Computes the words 4 * kGroup to 4 * kGroup + 3 of the message schedule of `block`. Adds the
// constants of their steps and stores the sums at `keyed`. `recent` holds the words of the last
// eight groups.
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
            // W[t] = rol1(W[t-3] ^ W[t-8] ^ W[t-14] ^ W[t-16]). The fourth word needs the first
            // one, which is computed here too: its W[t-3] is 0 at first, and the first word,
            // rotated once more, is XORed in afterwards.
            const Words& ago3 = recent[(kGroup - 3) % 8];
            const Words sum = ago4 ^ ago2 ^ __builtin_shufflevector(ago4, ago3, 2, 3, 4, 5) ^
                              __builtin_shufflevector(ago1, Words{}, 1, 2, 3, 4);
            const Words first = __builtin_shufflevector(Words{}, sum, 0, 0, 0, 4);
            words = ((sum << 1) | (sum >> 31)) ^ ((first << 2) | (first >> 30));
        } else {
            // The rule applied to itself: W[t] = rol2(W[t-6] ^ W[t-16] ^ W[t-28] ^ W[t-32])
            // (Locktyukhin, 2010). It needs none of the four words that are computed here.
            const Words sum = words ^ recent[(kGroup - 7) % 8] ^ ago4 ^
                              __builtin_shufflevector(ago2, ago1, 2, 3, 4, 5);
            words = (sum << 2) | (sum >> 30);
        }
    }
    const Words sums = words + kConstants[kGroup / 5];
    std::memcpy(keyed + 4 * kGroup, &sums, sizeof sums);
}

// Adds `term` in the order of the source. Without the empty asm statement compilers regroup the sum
// of a step, which makes the chain of dependent steps longer.
inline void AddInTurn(uint32_t& sum, uint32_t term) {
    sum += term;
    __asm__("" : "+r"(sum));
}

// One of the 80 steps. The five working variables are not moved: each step finds them one index
// further in `v`.
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
        AddInTurn(e, c & d);  // This and the next term: the majority of b, c and d.
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

// The 80 steps of one block, interleaved with the schedule of the next block. Each step depends on
// the one before it; the processor computes the independent schedule in the gaps.
template <int... kGroup>
inline void Compress(uint32_t (&v)[5], const uint32_t* keyed, const uint8_t* nextBlock,
                     uint32_t* nextKeyed, std::integer_sequence<int, kGroup...>) {
    Words recent[8];
    ((Schedule<kGroup>(nextBlock, recent, nextKeyed), FourSteps<kGroup>(v, keyed)), ...);
}

}  // namespace

void Sha1BlockPortable(uint32_t* hash, const uint8_t* blocks, size_t count) {
    if (count == 0) return;
    // Two buffers, used alternately: compilers would keep a single one in registers and spill.
    alignas(64) uint32_t schedules[2][kSteps];
    uint32_t* keyed = schedules[0];
    uint32_t* nextKeyed = schedules[1];
    MakeSchedule(blocks, keyed, Groups());
    uint32_t v[5] = {hash[0], hash[1], hash[2], hash[3], hash[4]};
    for (; count > 0; --count) {
        // No block follows the last one: its own schedule is computed again and not used.
        if (count > 1) blocks += kBlockSize;
        Compress(v, keyed, blocks, nextKeyed, Groups());
        std::swap(keyed, nextKeyed);
        // Not a loop: compilers would then keep `v` in memory, or move it there and back.
        hash[0] = v[0] += hash[0];
        hash[1] = v[1] += hash[1];
        hash[2] = v[2] += hash[2];
        hash[3] = v[3] += hash[3];
        hash[4] = v[4] += hash[4];
    }
}

Sha1BlockFunction ChooseSha1Block() {
    // Constant-initialized without a destructor: usable before main and during exit. Relaxed order
    // is enough: threads that find null at the same time store the same pointer, and it points to
    // code only.
    static std::atomic<Sha1BlockFunction> chosen{nullptr};
    Sha1BlockFunction function = chosen.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = Sha1BlockX86();
        if (function == nullptr) function = Sha1BlockArm();
        if (function == nullptr) function = Sha1BlockPortable;
        chosen.store(function, std::memory_order_relaxed);
    }
    return function;
}
