// Vectors of four 32-bit lanes, written in the compilers' vector extensions. They compile on every
// processor: to SIMD instructions if it has them, else to scalar code with the same results.
#pragma once

#include <cstdint>
#include <cstring>

namespace zonedetect {

using Uint32x4 = uint32_t __attribute__((vector_size(16)));  // Sums wrap.
using Int32x4 = int32_t __attribute__((vector_size(16)));    // Also a mask: 0 or -1 in each lane.
using Float32x4 = float __attribute__((vector_size(16)));
using Float64x2 = double __attribute__((vector_size(16)));

// Broadcasts a value to all lanes.
inline Int32x4 Broadcast(int32_t value) {
    return Int32x4{value, value, value, value};
}

inline Float32x4 Broadcast(float value) {
    return Float32x4{value, value, value, value};
}

// Unaligned load of four values.
inline Uint32x4 LoadUnaligned(const int32_t* four) {
    Uint32x4 lanes;
    std::memcpy(&lanes, four, sizeof lanes);
    return lanes;
}

// Reinterpret the bits of each lane.
inline Int32x4 AsSigned(Uint32x4 lanes) {
    return reinterpret_cast<Int32x4>(lanes);
}
inline Uint32x4 AsUnsigned(Int32x4 lanes) {
    return reinterpret_cast<Uint32x4>(lanes);
}

// Converts each lane to a float, rounded to nearest.
inline Float32x4 ToFloats(Int32x4 lanes) {
    return __builtin_convertvector(lanes, Float32x4);
}
// Converts each lane to an integer, truncated toward zero. Every value must fit in 32 bits.
inline Int32x4 Truncate(Float32x4 lanes) {
    return __builtin_convertvector(lanes, Int32x4);
}
// Convert the low two or the high two lanes to doubles, exactly.
inline Float64x2 LowDoubles(Int32x4 lanes) {
    return __builtin_convertvector(__builtin_shufflevector(lanes, lanes, 0, 1), Float64x2);
}
inline Float64x2 HighDoubles(Int32x4 lanes) {
    return __builtin_convertvector(__builtin_shufflevector(lanes, lanes, 2, 3), Float64x2);
}

// Blends: takes `yes` in lanes whose mask is -1 and `no` in lanes whose mask is 0.
inline Int32x4 Select(Int32x4 mask, Int32x4 yes, Int32x4 no) {
    return (mask & yes) | (~mask & no);
}
inline Float32x4 Select(Int32x4 mask, Float32x4 yes, Float32x4 no) {
    return reinterpret_cast<Float32x4>(
            Select(mask, reinterpret_cast<Int32x4>(yes), reinterpret_cast<Int32x4>(no)));
}

// The smaller and the greater of each pair of lanes.
template <typename Lanes>
inline Lanes Min(Lanes a, Lanes b) {
    return a < b ? a : b;
}
template <typename Lanes>
inline Lanes Max(Lanes a, Lanes b) {
    return a > b ? a : b;
}

// Whether any bit of any lane is set.
inline bool AnyOf(Int32x4 mask) {
    using Words = uint64_t __attribute__((vector_size(16)));
    const auto words = reinterpret_cast<Words>(mask);
    return (words[0] | words[1]) != 0;
}

}  // namespace zonedetect
