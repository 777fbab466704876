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
    kTooShort,      // No content besides the digest trailer.
    kTooLong,       // 2 GiB or more.
    kNotADatabase,  // The content does not begin with the magic bytes.
    kHeader,        // The header cannot be decoded: it is cut short or overwritten.
    kSize,          // The header states another file size, see OpenFailure::statedSize.
};

struct OpenFailure {
    Refusal reason = Refusal::kNone;
    uint64_t statedSize = 0;  // Bytes of the file that the header describes; set with kSize.
};

// Opens the database file whose `size` bytes, digest trailer included, are at `bytes`. The handle
// borrows them: they must stay unchanged until ZDCloseDatabase has released it. The trailer is not
// read. Returns null when the reader refuses the database, with the reason in `*failure` (which may
// be null); nothing stays allocated then. Prints nothing and does not throw. Any thread may call.
ZDDatabase* OpenBytes(const uint8_t* bytes, size_t size, OpenFailure* failure);

}  // namespace zonedetect
