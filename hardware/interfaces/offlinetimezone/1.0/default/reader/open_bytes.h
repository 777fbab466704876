// Opens a database that is already in memory. Internal: the shipped library does not export it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zonedetect.h"

namespace zonedetect {

// Why the reader refuses a database.
enum class Refusal {
    kNone,
    kNoMemory,
    kTooShort,      // The file has no content besides the digest trailer.
    kTooLong,       // 2 GiB or more.
    kNotADatabase,  // The content does not begin with the magic bytes.
    kHeader,        // The header cannot be decoded: it is truncated or damaged.
    kSize,          // The header states another file size: OpenFailure::statedSize.
};

struct OpenFailure {
    Refusal reason = Refusal::kNone;
    uint64_t statedSize = 0;  // The file size in bytes that the header states; 0 unless kSize.
};

// Opens the database file whose `size` bytes, digest trailer included, are at `bytes`. The handle
// borrows the bytes: they must stay unchanged until ZDCloseDatabase has freed it. The trailer is
// not verified. Returns null if the reader refuses the database; nothing stays allocated then.
// `failure` may be null; otherwise `*failure` receives the reason, or kNone. Prints nothing and
// does not throw. Any thread may call.
ZDDatabase* OpenBytes(const uint8_t* bytes, size_t size, OpenFailure* failure);

}  // namespace zonedetect
