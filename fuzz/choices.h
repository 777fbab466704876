// What the targets make of a fuzzer's bytes, and how a fault shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "raw_database.h"

// Ends the process, as a fuzzer wants it, where something differs (null: nothing does).
inline void RequireSame(const char* difference) {
    if (difference == nullptr) return;
    std::fprintf(stderr, "not as it must be: %s\n", difference);
    std::abort();
}
inline void Require(bool condition, const char* what) {
    RequireSame(condition ? nullptr : what);
}

// Decisions drawn from the bytes from front to back; zeros, the plain choice, where they end.
class Choices {
  public:
    Choices(const uint8_t* data, size_t size) : mNext(data), mEnd(data + size) {}

    bool IsAtEnd() const { return mNext == mEnd; }
    uint8_t Byte() { return IsAtEnd() ? uint8_t{0} : *mNext++; }
    uint32_t Below(uint32_t count) { return Byte() % count; }  // Up to 256.
    bool OneIn(uint32_t count) { return Below(count) == count - 1; }

    // A number that a database may hold: mostly small, sometimes of all 32 bits.
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
