#include "file_fault.h"

#include <reader/format.h>

#include <algorithm>

#include "sha1_digest.h"

namespace offlinetz {

namespace {

using zonedetect::Refusal;

bool BeginsAsDatabase(const uint8_t* bytes, size_t size) {
    return size >= sizeof zonedetect::kMagic &&
           std::equal(std::begin(zonedetect::kMagic), std::end(zonedetect::kMagic), bytes);
}

}  // namespace

FileFault FaultOf(const uint8_t* bytes, size_t size, const zonedetect::OpenFailure& failure) {
    if (size == 0) return {OFFLINETZ_EMPTY, "empty"};
    FileFault other = {OFFLINETZ_NOT_A_DATABASE, "not a zone database: it does not begin with PLB"};
    switch (failure.reason) {
        case Refusal::kNone:
            return {};
        case Refusal::kNoMemory:
            return {OFFLINETZ_NO_MEMORY, "too large for the free memory"};
        case Refusal::kTooLong:
            return {OFFLINETZ_REFUSED, "too large: it has 2 GiB or more"};
        case Refusal::kTooShort:
            if (!BeginsAsDatabase(bytes, size)) return other;
            return {OFFLINETZ_CUT_SHORT, "cut short: it ends within its header"};
        case Refusal::kNotADatabase:
            return other;
        case Refusal::kHeader:
            return {OFFLINETZ_REFUSED, "damaged or cut short: its header cannot be read"};
        case Refusal::kSize:
            break;
    }
    const bool isShort = size < failure.statedSize;
    return {isShort ? OFFLINETZ_CUT_SHORT : OFFLINETZ_REFUSED,
            std::string(isShort ? "cut short" : "damaged") + ": it has " + std::to_string(size) +
                    " bytes where its header states " + std::to_string(failure.statedSize)};
}

FileFault DigestFaultOf(const uint8_t* bytes, size_t size) {
    const size_t length = size - zonedetect::kTrailerSize;
    const Digest digest = DigestOf(bytes, length);
    if (std::equal(digest.begin(), digest.end(), bytes + length)) return {};
    return {OFFLINETZ_WRONG_DIGEST, "damaged: the digest at its end does not match its content"};
}

}  // namespace offlinetz
