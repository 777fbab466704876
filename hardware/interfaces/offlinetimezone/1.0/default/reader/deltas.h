// The numbers of rings, many at a time.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "varint.h"

namespace zonedetect {

// A decoder may write so many values behind those asked for.
constexpr size_t kDeltaSlack = 40;

// Decodes up to `count` signed varints into `values`, which has room for `count` + kDeltaSlack.
// Returns how many it could read, fewer only where the next one does not end within the content;
// the cursor stands behind the last one read. Never reads past the cursor's end. All decoders give
// the same.
using DeltaDecoder = size_t (*)(Cursor* cursor, int32_t* values, size_t count);

// Works on every processor, eight bytes at a time.
size_t DecodeDeltasPortable(Cursor* cursor, int32_t* values, size_t count);

// The decoder for the instructions of x86's SSE4.1, or null where the processor has none.
DeltaDecoder X86DeltaDecoder();

// The fastest decoder that this processor has, chosen by its first use. Tests put others there.
extern std::atomic<DeltaDecoder> deltaDecoder;

inline size_t DecodeDeltas(Cursor* cursor, int32_t* values, size_t count) {
    return deltaDecoder.load(std::memory_order_relaxed)(cursor, values, count);
}

}  // namespace zonedetect
