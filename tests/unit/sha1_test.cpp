#include <digest/sha1_block.h>
#include <gtest/gtest.h>
#include <sha1.h>

#include <array>
#include <vector>

#include "processor_features.h"

namespace {

using Digest = std::array<uint8_t, SHA1HashSize>;

// A published vector (FIPS 180), for machines without the fuzz target's OpenSSL.
TEST(Sha1, GivesAKnownDigestHoweverTheMessageIsSplit) {
    const std::vector<uint8_t> message(1000000, 'a');
    for (const uint32_t chunk : {1u, 1000u, 1000000u}) {
        SHA1Context context;
        Digest digest;
        EXPECT_EQ(shaSuccess, SHA1Reset(&context));
        for (uint32_t i = 0; i < message.size(); i += chunk)
            EXPECT_EQ(shaSuccess, SHA1Input(&context, &message[i], chunk));
        EXPECT_EQ(shaSuccess, SHA1Result(&context, digest.data()));
        EXPECT_EQ((Digest{0x34, 0xaa, 0x97, 0x3c, 0xd4, 0xc4, 0xda, 0xa4, 0xf6, 0x1e,
                          0xeb, 0x2b, 0xdb, 0xad, 0x27, 0x31, 0x65, 0x34, 0x01, 0x6f}),
                  digest)
                << chunk;
    }
}

// The system's own list of the processor's features tells whether one of them was overlooked.
TEST(Sha1, TheProcessorsInstructionsAreFoundAndChosen) {
#ifdef __arm__  // Nothing is there for 32-bit ARM, whatever the processor can do.
    constexpr bool kHasKernel = false;
#else
    constexpr bool kHasKernel = true;
#endif
    const bool isListed = kHasKernel && (ProcessorHas("sha_ni") || ProcessorHas("sha1"));
    const Sha1BlockFunction fast = Sha1BlockX86() != nullptr ? Sha1BlockX86() : Sha1BlockArm();
    EXPECT_EQ(isListed, fast != nullptr);
    EXPECT_EQ(isListed ? fast : &Sha1BlockPortable, ChooseSha1Block());
}

TEST(Sha1, ReportsStatesByCode) {
    SHA1Context context;
    Digest digest;
    const uint8_t byte = 'a';
    EXPECT_EQ(shaNull, SHA1Reset(nullptr));
    EXPECT_EQ(shaSuccess, SHA1Input(nullptr, nullptr, 0));
    EXPECT_EQ(shaSuccess, SHA1Reset(&context));
    EXPECT_EQ(shaNull, SHA1Input(&context, nullptr, 1));
    EXPECT_EQ(shaNull, SHA1Input(nullptr, &byte, 1));
    EXPECT_EQ(shaNull, SHA1Result(&context, nullptr));
    EXPECT_EQ(shaNull, SHA1Result(nullptr, digest.data()));

    EXPECT_EQ(shaSuccess, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest.data()));
    const Digest first = digest;
    digest.fill(0);
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest.data()));
    EXPECT_EQ(first, digest);

    digest.fill(0xFF);
    const Digest untouched = digest;
    EXPECT_EQ(shaStateError, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaStateError, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaStateError, SHA1Result(&context, digest.data()));
    EXPECT_EQ(untouched, digest);
    EXPECT_EQ(shaSuccess, SHA1Reset(&context));
    EXPECT_EQ(shaSuccess, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest.data()));
    EXPECT_EQ(first, digest);
}

// Two contexts just before 2^64 bits, one at a block's edge and one not: the byte that wraps the
// count is the last one taken, and every later call reports it.
TEST(Sha1, AnOverlongMessageCorruptsTheContext) {
    for (const int16_t index : std::array<int16_t, 2>{0, 17}) {
        SHA1Context context;
        uint8_t digest[SHA1HashSize];
        SHA1Reset(&context);
        context.Length_High = UINT32_MAX;
        context.Length_Low = UINT32_MAX - 8 * 100 + 1;  // 100 bytes short of the limit.
        context.Message_Block_Index = index;
        const std::vector<uint8_t> message(300, 'a');
        EXPECT_EQ(shaSuccess, SHA1Input(&context, message.data(), 300));
        EXPECT_EQ(0u, context.Length_Low);
        EXPECT_EQ((index + 100) % 64, context.Message_Block_Index);
        EXPECT_EQ(shaNull, SHA1Input(&context, message.data(), 1));
        EXPECT_EQ(shaNull, SHA1Result(&context, digest));
    }
}

}  // namespace
