// SHA-1 in one call.
#pragma once

#include <sha1.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace offlinetz {

using Digest = std::array<uint8_t, SHA1HashSize>;

// The SHA-1 digest of `size` bytes, which must be fewer than 4 GiB. May be called on any thread.
inline Digest DigestOf(const uint8_t* bytes, size_t size) {
    Digest digest;
    SHA1Context context;
    SHA1Reset(&context);
    if (SHA1Input(&context, bytes, static_cast<uint32_t>(size)) != shaSuccess ||
        SHA1Result(&context, digest.data()) != shaSuccess) {
        throw std::logic_error("the digest failed");
    }
    return digest;
}

}  // namespace offlinetz
