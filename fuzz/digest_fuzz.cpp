// The digest of any message, in pieces of any sizes, with each kernel that the processor has,
// against OpenSSL's. Each piece ends a heap block of its own, so a sanitizer reports each read
// beyond it.
#include <digest/sha1_block.h>
#include <openssl/evp.h>
#include <sha1.h>

#include <algorithm>
#include <cstring>

#include "choices.h"

namespace {

// Visits a message in pieces whose sizes are multiples of `unit` bytes and drawn from `cuts`.
template <typename Visit>
void InPieces(Choices cuts, const Bytes& message, size_t unit, const Visit& visit) {
    for (size_t at = 0; at < message.size();) {
        const size_t offset = cuts.Below(8);
        const size_t wanted = cuts.IsAtEnd() ? message.size() : unit * (cuts.Below(200) + 1);
        const auto start = message.begin() + static_cast<ptrdiff_t>(at);
        const size_t length = std::min(wanted, message.size() - at);
        const Bytes piece = Bytes(offset) + Bytes(start, start + static_cast<ptrdiff_t>(length));
        visit(Bytes(piece).data() + offset, length);
        at += length;
    }
}

// The message as the kernels take it: followed by a one bit, zeros, and its length in bits.
Bytes Padded(Bytes message) {
    const uint64_t bits = 8 * uint64_t{message.size()};
    message.push_back(0x80);
    message.resize((message.size() + 8 + 63) / 64 * 64 - 8);
    for (int shift = 56; shift >= 0; shift -= 8)
        message.push_back(static_cast<uint8_t>(bits >> shift));
    return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    const uint32_t repeats = choices.OneIn(8) ? choices.Byte() : 1;
    const Bytes cuts = choices.Take(choices.Below(32));
    const Bytes text = choices.Rest();
    Bytes message;
    for (uint32_t i = 0; i < repeats; ++i)
        message = std::move(message) + text;
    Bytes expected(SHA1HashSize);
    EVP_Digest(message.data(), message.size(), expected.data(), nullptr, EVP_sha1(), nullptr);

    const Choices pieces(cuts.data(), cuts.size());
    SHA1Context context = {};
    SHA1Context bytewise = {};
    Bytes digest(SHA1HashSize);
    SHA1Reset(&context);
    SHA1Reset(&bytewise);
    InPieces(pieces, message, 1, [&](const uint8_t* piece, size_t length) {
        Require(SHA1Input(&context, piece, static_cast<uint32_t>(length)) == shaSuccess, "input");
    });
    for (const uint8_t& byte : message)
        SHA1Input(&bytewise, &byte, 1);
    Require(std::memcmp(&context, &bytewise, sizeof context) == 0, "the context");
    Require(SHA1Result(&context, digest.data()) == shaSuccess && digest == expected, "the digest");

    for (const Sha1BlockFunction absorb : {&Sha1BlockPortable, Sha1BlockX86(), Sha1BlockArm()}) {
        if (absorb == nullptr) continue;
        uint32_t hash[] = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u};
        InPieces(pieces, Padded(message), 64,
                 [&](const uint8_t* piece, size_t length) { absorb(hash, piece, length / 64); });
        for (size_t i = 0; i < SHA1HashSize; ++i)
            digest[i] = static_cast<uint8_t>(hash[i / 4] >> (24 - 8 * (i % 4)));
        Require(digest == expected, "a kernel's digest");
    }
    return 0;
}
