// Limits of the work that a hostile database can cause.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zonedetect {

// The greatest number of rings that a lookup collects: rings that contain its point or have it on
// their border. One ring more ends the search, as a ring that cannot be decoded does. In a valid
// database a point lies in a few rings. Without the limit a hostile table could demand a list of
// many times its own size, for which no device has the memory.
constexpr size_t kMaxHits = 4096;

// A number of bytes that may be read. Opening has one budget for its strings. A lookup has one for
// rings and one for strings, besides its one pass over the box table. A ring or string that begins
// before the budget is spent is read to its end. After that a search ends as at a ring that cannot
// be decoded, and a string counts as one that cannot be decoded.
//
// Without a budget a hostile file could point thousands of entries at one long ring, or at one long
// sequence of varint continuation bytes, and keep the worker busy for minutes. A file stays within
// the budget if, for every point, the rings whose boxes contain the point have at most four times
// the bytes of the content.
class ReadBudget {
  public:
    // `lookups`: tools that read a whole database take the budget of several lookups.
    explicit ReadBudget(int32_t contentLength, int64_t lookups = 1)
        : mLeft(lookups * Bytes(contentLength)) {}

    // The budget of one lookup for rings, and also for strings, in bytes.
    static constexpr int64_t Bytes(int32_t contentLength) {
        return 4 * int64_t{contentLength} + (int64_t{1} << 20);
    }

    bool IsSpent() const { return mLeft < 0; }
    void Spend(int64_t bytes) { mLeft -= bytes; }

  private:
    int64_t mLeft;  // At least minus the size of one ring or string.
};

}  // namespace zonedetect
