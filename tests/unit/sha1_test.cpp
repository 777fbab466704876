#include <gtest/gtest.h>
#include <sha1.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace {

using Digest = std::array<uint8_t, SHA1HashSize>;

// Published test vectors (FIPS 180). digest_fuzz, which compares with OpenSSL, is not run on every
// processor. The padding of 56 bytes needs a second block.
TEST(Sha1, GivesKnownDigestsHoweverTheMessageIsSplit) {
    const std::pair<std::string, Digest> vectors[] = {
            {std::string(1000000, 'a'),
             {0x34, 0xaa, 0x97, 0x3c, 0xd4, 0xc4, 0xda, 0xa4, 0xf6, 0x1e,
              0xeb, 0x2b, 0xdb, 0xad, 0x27, 0x31, 0x65, 0x34, 0x01, 0x6f}},
            {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
             {0x84, 0x98, 0x3e, 0x44, 0x1c, 0x3b, 0xd2, 0x6e, 0xba, 0xae,
              0x4a, 0xa1, 0xf9, 0x51, 0x29, 0xe5, 0xe5, 0x46, 0x70, 0xf1}}};
    for (const auto& [message, expected] : vectors) {
        for (const size_t chunk : {1u, 1000u, 1000000u}) {
            SHA1Context context;
            Digest digest;
            EXPECT_EQ(shaSuccess, SHA1Reset(&context));
            for (size_t i = 0; i < message.size(); i += chunk) {
                const std::string part = message.substr(i, chunk);
                EXPECT_EQ(shaSuccess,
                          SHA1Input(&context, reinterpret_cast<const uint8_t*>(part.data()),
                                    static_cast<uint32_t>(part.size())));
            }
            EXPECT_EQ(shaSuccess, SHA1Result(&context, digest.data()));
            EXPECT_EQ(expected, digest) << chunk;
        }
    }
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

// The context takes no byte after the one that makes the message 2^64 bits long, and each later
// call reports that. One context is at the start of a block, the other is not.
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
