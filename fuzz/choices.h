// Decisions that a target draws from the fuzzer's bytes, and how it reports a fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "raw_database.h"

// Ends the process, which a fuzzer takes as a finding, unless `difference` is null.
inline void RequireSame(const char* difference) {
    if (difference == nullptr) return;
    std::fprintf(stderr, "not as it must be: %s\n", difference);
    std::abort();
}
inline void Require(bool condition, const char* what) {
    RequireSame(condition ? nullptr : what);
}

// Draws decisions from the bytes, from first to last. At their end each byte is 0, which stands for
// the simplest choice.
class Choices {
  public:
    Choices(const uint8_t* data, size_t size) : mNext(data), mEnd(data + size) {}

    bool IsAtEnd() const { return mNext == mEnd; }
    uint8_t Byte() { return IsAtEnd() ? uint8_t{0} : *mNext++; }
    uint32_t Below(uint32_t count) { return Byte() % count; }  // Up to 256.
    bool OneIn(uint32_t count) { return Below(count) == count - 1; }

    // A number of a database: mostly a small one, sometimes of all 32 bits.
    int32_t Number() {
        const int32_t first = Byte();
        if (first < 128) return first % 2 == 0 ? first / 2 : -(first / 2) - 1;
        const int bytes = first < 192 ? 1 : first < 224 ? 2 : 4;
        uint32_t value = first % 2 == 0 ? 0 : UINT32_MAX;
        for (int i = 0; i < bytes; ++i)
            value = value << 8 | Byte();
        return static_cast<int32_t>(value);
    }

    Bytes Take(size_t count) {
        const auto left = static_cast<size_t>(mEnd - mNext);
        const uint8_t* const start = mNext;
        mNext += count < left ? count : left;
        return {start, mNext};
    }
    Bytes Rest() { return Take(SIZE_MAX); }

  private:
    const uint8_t* mNext;
    const uint8_t* mEnd;
};
