#include <gtest/gtest.h>
#include <sha1.h>

#include <array>
#include <string>
#include <vector>

namespace {

std::string Hex(const uint8_t* digest) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (int i = 0; i < SHA1HashSize; ++i) {
        hex += kDigits[digest[i] >> 4];
        hex += kDigits[digest[i] & 15];
    }
    return hex;
}

std::string DigestInChunks(const std::string& message, size_t chunk) {
    SHA1Context context;
    uint8_t digest[SHA1HashSize];
    EXPECT_EQ(shaSuccess, SHA1Reset(&context));
    for (size_t i = 0; i < message.size(); i += chunk) {
        const std::string part = message.substr(i, chunk);
        EXPECT_EQ(shaSuccess, SHA1Input(&context, reinterpret_cast<const uint8_t*>(part.data()),
                                        static_cast<uint32_t>(part.size())));
    }
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest));
    return Hex(digest);
}

// Published vectors (FIPS 180, RFC 3174) and lengths around the padding's edges, the latter's
// digests from coreutils' sha1sum.
TEST(Sha1, GivesPublishedDigestsHoweverTheMessageIsSplit) {
    const struct {
        std::string message;
        const char* digest;
    } vectors[] = {
            {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
            {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
            {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
             "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
            {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
            {std::string(55, 'a'), "c1c8bbdc22796e28c0e15163d20899b65621d65a"},
            {std::string(56, 'a'), "c2db330f6083854c99d4b5bfb6e8f29f201be699"},
            {std::string(63, 'a'), "03f09f5b158a7a8cdad920bddc29b81c18a551f5"},
            {std::string(64, 'a'), "0098ba824b5c16427bd7a1122a5a442a25ec644d"},
            {std::string(65, 'a'), "11655326c708d70319be2610e8a57d9a5b959d3b"},
    };
    for (const auto& vector : vectors) {
        for (const size_t chunk : {1ul, 3ul, 63ul, 64ul, 65ul, 1000ul, 2000000ul}) {
            if (vector.message.size() / chunk > 100000) continue;
            EXPECT_EQ(vector.digest, DigestInChunks(vector.message, chunk))
                    << vector.message.size() << " bytes in chunks of " << chunk;
        }
    }
}

TEST(Sha1, ReportsStatesByCode) {
    SHA1Context context;
    uint8_t digest[SHA1HashSize];
    const uint8_t byte = 'a';
    EXPECT_EQ(shaNull, SHA1Reset(nullptr));
    EXPECT_EQ(shaSuccess, SHA1Input(nullptr, nullptr, 0));
    EXPECT_EQ(shaSuccess, SHA1Reset(&context));
    EXPECT_EQ(shaNull, SHA1Input(&context, nullptr, 1));
    EXPECT_EQ(shaNull, SHA1Input(nullptr, &byte, 1));
    EXPECT_EQ(shaNull, SHA1Result(&context, nullptr));
    EXPECT_EQ(shaNull, SHA1Result(nullptr, digest));

    EXPECT_EQ(shaSuccess, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest));
    const std::string first = Hex(digest);
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest));
    EXPECT_EQ(first, Hex(digest));

    digest[0] ^= 0xFF;
    const std::string untouched = Hex(digest);
    EXPECT_EQ(shaStateError, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaStateError, SHA1Input(&context, &byte, 1));
    EXPECT_EQ(shaStateError, SHA1Result(&context, digest));
    EXPECT_EQ(untouched, Hex(digest));
    EXPECT_EQ(shaSuccess, SHA1Reset(&context));
    EXPECT_EQ(shaSuccess, SHA1Result(&context, digest));
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", Hex(digest));
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
