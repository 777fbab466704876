#include "sha1_block.h"

#if defined(__aarch64__) && defined(__linux__) && !defined(__AARCH64EB__)

#include <asm/hwcap.h>  // Some C libraries' sys/auxv.h does not include it.
#include <sys/auxv.h>

#include <utility>

// Enables the SHA-1 instructions for single functions, whatever processor the library is built for.
// Before version 16 Clang declares the intrinsics only if the whole file may use them; the macros
// below make it believe so. Before version 13 the feature has another name.
#if defined(__clang__) && __clang_major__ < 13
#define SHA_INSTRUCTIONS __attribute__((target("crypto")))
#ifndef __ARM_FEATURE_CRYPTO
#define __ARM_FEATURE_CRYPTO 1
#endif
#elif defined(__clang__)
#define SHA_INSTRUCTIONS __attribute__((target("sha2")))
#ifndef __ARM_FEATURE_SHA2
#define __ARM_FEATURE_SHA2 1
#endif
#else
#define SHA_INSTRUCTIONS __attribute__((target("+crypto")))
#endif
#include <arm_neon.h>

namespace {

constexpr uint32_t kConstants[] = {0x5A827999u, 0x6ED9EBA1u, 0x8F1BBCDCu, 0xCA62C1D6u};

// Steps 4 * kGroup to 4 * kGroup + 3. `words` holds the last four groups of the message schedule.
template <int kGroup>
SHA_INSTRUCTIONS inline void FourSteps(uint32x4_t& abcd, uint32_t& e, uint32x4_t (&words)[4],
                                       const uint8_t* block) {
    uint32x4_t& group = words[kGroup % 4];
    if constexpr (kGroup < 4) {
        group = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(block + 16 * kGroup)));
    } else {
        const uint32x4_t sum =
                vsha1su0q_u32(group, words[(kGroup + 1) % 4], words[(kGroup + 2) % 4]);
        group = vsha1su1q_u32(sum, words[(kGroup + 3) % 4]);
    }
    const uint32x4_t keyed = vaddq_u32(group, vdupq_n_u32(kConstants[kGroup / 5]));
    const uint32_t next = vsha1h_u32(vgetq_lane_u32(abcd, 0));
    if constexpr (kGroup < 5) {
        abcd = vsha1cq_u32(abcd, e, keyed);
    } else if constexpr (kGroup >= 10 && kGroup < 15) {
        abcd = vsha1mq_u32(abcd, e, keyed);
    } else {
        abcd = vsha1pq_u32(abcd, e, keyed);
    }
    e = next;
}

template <int... kGroup>
SHA_INSTRUCTIONS inline void Compress(uint32x4_t& abcd, uint32_t& e, const uint8_t* block,
                                      std::integer_sequence<int, kGroup...>) {
    uint32x4_t words[4];
    (FourSteps<kGroup>(abcd, e, words, block), ...);
}

SHA_INSTRUCTIONS void Absorb(uint32_t* hash, const uint8_t* blocks, size_t count) {
    uint32x4_t abcd = vld1q_u32(hash);
    uint32_t e = hash[4];
    for (; count > 0; --count, blocks += 64) {
        const uint32x4_t abcdAtStart = abcd;
        const uint32_t eAtStart = e;
        Compress(abcd, e, blocks, std::make_integer_sequence<int, 20>());
        abcd = vaddq_u32(abcd, abcdAtStart);
        e += eAtStart;
    }
    vst1q_u32(hash, abcd);
    hash[4] = e;
}

}  // namespace

Sha1BlockFunction Sha1BlockArm() {
    return (getauxval(AT_HWCAP) & HWCAP_SHA1) != 0 ? Absorb : nullptr;
}

#else

Sha1BlockFunction Sha1BlockArm() {
    return nullptr;
}

#endif
