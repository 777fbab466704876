#include "sha1_block.h"

#if defined(__x86_64__) || defined(__i386__)

#include <cpuid.h>
#include <immintrin.h>

#include <utility>

// Enables the SHA-1 instructions for single functions, whatever processor the library is built for.
#define SHA_INSTRUCTIONS __attribute__((target("sha,sse4.1")))

namespace {

// Steps 4 * kGroup to 4 * kGroup + 3. The lanes are in reverse order: a is the top lane of `abcd`,
// and e is the top lane of its register. `before` is the value of `abcd` four steps ago, from which
// an instruction computes the new e. `words` holds the last four groups of the message schedule.
template <int kGroup>
SHA_INSTRUCTIONS inline void FourSteps(__m128i& abcd, __m128i& before, __m128i (&words)[4],
                                       const uint8_t* block) {
    __m128i& group = words[kGroup % 4];
    if constexpr (kGroup < 4) {
        const __m128i reversed = _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F);
        const auto* bytes = reinterpret_cast<const __m128i*>(block + 16 * kGroup);
        group = _mm_shuffle_epi8(_mm_loadu_si128(bytes), reversed);
    } else {
        const __m128i sum = _mm_xor_si128(_mm_sha1msg1_epu32(group, words[(kGroup + 1) % 4]),
                                          words[(kGroup + 2) % 4]);
        group = _mm_sha1msg2_epu32(sum, words[(kGroup + 3) % 4]);
    }
    // In the first group `before` is e itself.
    const __m128i e =
            kGroup == 0 ? _mm_add_epi32(before, group) : _mm_sha1nexte_epu32(before, group);
    before = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e, kGroup / 5);
}

template <int... kGroup>
SHA_INSTRUCTIONS inline void Compress(__m128i& abcd, __m128i& before, const uint8_t* block,
                                      std::integer_sequence<int, kGroup...>) {
    __m128i words[4];
    (FourSteps<kGroup>(abcd, before, words, block), ...);
}

SHA_INSTRUCTIONS void Absorb(uint32_t* hash, const uint8_t* blocks, size_t count) {
    auto* first = reinterpret_cast<__m128i*>(hash);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(first), 0x1B);
    __m128i e = _mm_set_epi32(static_cast<int>(hash[4]), 0, 0, 0);
    for (; count > 0; --count, blocks += 64) {
        const __m128i abcdAtStart = abcd;
        __m128i before = e;
        Compress(abcd, before, blocks, std::make_integer_sequence<int, 20>());
        abcd = _mm_add_epi32(abcd, abcdAtStart);
        e = _mm_sha1nexte_epu32(before, e);
    }
    _mm_storeu_si128(first, _mm_shuffle_epi32(abcd, 0x1B));
    hash[4] = static_cast<uint32_t>(_mm_extract_epi32(e, 3));
}

}  // namespace

Sha1BlockFunction Sha1BlockX86() {
    unsigned a, b, c, d;
    constexpr unsigned kNeeded = bit_SSSE3 | bit_SSE4_1;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & kNeeded) != kNeeded) return nullptr;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0 || (b & bit_SHA) == 0) return nullptr;
    return Absorb;
}

#else

Sha1BlockFunction Sha1BlockX86() {
    return nullptr;
}

#endif
