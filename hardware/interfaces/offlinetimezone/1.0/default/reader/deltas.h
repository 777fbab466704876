// The delta-encoded coordinates of rings, decoded with SIMD where the processor has it.
//
// Each coordinate is a sign-magnitude varint: its difference to the coordinate of the vertex
// before. All decoders give the same results. They have no state: any thread may call them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "varint.h"

namespace zonedetect {

// A decoder may overwrite this many values behind those asked for.
constexpr size_t kDeltaSlack = 40;

// Decodes up to `count` varints into `values`, which has room for `count` + kDeltaSlack values.
// Returns the number of values decoded: less than `count` only if the next varint does not end
// before the cursor's end. Leaves the cursor behind the last varint decoded. Never reads past the
// cursor's end.
using DeltaDecoder = size_t (*)(Cursor* cursor, int32_t* values, size_t count);

// The decoder for every processor. It loads words of eight bytes.
size_t DecodeDeltasPortable(Cursor* cursor, int32_t* values, size_t count);

// Returns the decoder that uses x86's SSE4.1 and POPCNT. Returns null if the processor lacks them.
DeltaDecoder X86DeltaDecoder();

// The fastest decoder for this processor; its first use chooses it. Relaxed order is enough:
// threads that choose at the same time store the same pointer. Tests store other decoders.
extern std::atomic<DeltaDecoder> deltaDecoder;

// Decodes with deltaDecoder.
inline size_t DecodeDeltas(Cursor* cursor, int32_t* values, size_t count) {
    return deltaDecoder.load(std::memory_order_relaxed)(cursor, values, count);
}

}  // namespace zonedetect
