// What a hostile file can make the reader do.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zonedetect {

// A lookup collects at most this many rings that hold its point, then its scan ends as where memory
// is short. An honest point lies in a handful; a hostile table could otherwise multiply its own
// size into lists that no device has the memory for.
constexpr size_t kMaxHits = 4096;

// The bytes that may be read: one opening has one for its strings, one lookup has one for the rings
// and another for the strings, beyond its one pass over the box table. Whatever is begun while some
// are left is read to its end. Then a scan ends as at a broken ring, and a string counts as one
// that cannot be decoded.
//
// A hostile file could otherwise point thousands of entries at one long ring, or at one long run of
// bytes that each say that another follows, and hold the worker for minutes. A file in which no
// point lies in boxes whose rings sum up to more than four times the content stays below.
class ReadBudget {
  public:
    // Tools that look into a whole database give themselves that of several lookups.
    explicit ReadBudget(int32_t contentLength, int64_t lookups = 1)
        : mLeft(lookups * Bytes(contentLength)) {}

    static constexpr int64_t Bytes(int32_t contentLength) {
        return 4 * int64_t{contentLength} + (int64_t{1} << 20);
    }

    bool IsSpent() const { return mLeft < 0; }
    void Spend(int64_t bytes) { mLeft -= bytes; }

  private:
    int64_t mLeft;  // Falls below zero by one ring or string at most.
};

}  // namespace zonedetect
