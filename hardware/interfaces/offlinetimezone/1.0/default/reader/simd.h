// Vectors of four 32-bit lanes, written in the compilers' vector extensions. They compile on every
// processor: to SIMD instructions if it has them, else to scalar code with the same results.
#pragma once

#include <cstdint>
#include <cstring>

namespace zonedetect {

using Units = uint32_t __attribute__((vector_size(16)));  // Sums wrap.
using Ints = int32_t __attribute__((vector_size(16)));    // Also a mask: 0 or -1 in each lane.
using Floats = float __attribute__((vector_size(16)));
using TwoDoubles = double __attribute__((vector_size(16)));

// Broadcasts a value to all lanes.
inline Ints AllOf(int32_t value) {
    return Ints{value, value, value, value};
}

inline Floats AllOf(float value) {
    return Floats{value, value, value, value};
}

// Unaligned load of four values.
inline Units LoadUnits(const int32_t* four) {
    Units lanes;
    std::memcpy(&lanes, four, sizeof lanes);
    return lanes;
}

// Reinterpret the bits of each lane.
inline Ints AsInts(Units lanes) {
    return reinterpret_cast<Ints>(lanes);
}
inline Units AsUnits(Ints lanes) {
    return reinterpret_cast<Units>(lanes);
}

// Converts each lane to a float, rounded to nearest.
inline Floats ToFloats(Ints lanes) {
    return __builtin_convertvector(lanes, Floats);
}
// Converts each lane to an integer, truncated toward zero. Every value must fit in 32 bits.
inline Ints Truncate(Floats lanes) {
    return __builtin_convertvector(lanes, Ints);
}
// Convert the low two or the high two lanes to doubles, exactly.
inline TwoDoubles FirstTwo(Ints lanes) {
    return __builtin_convertvector(__builtin_shufflevector(lanes, lanes, 0, 1), TwoDoubles);
}
inline TwoDoubles LastTwo(Ints lanes) {
    return __builtin_convertvector(__builtin_shufflevector(lanes, lanes, 2, 3), TwoDoubles);
}

// Blends: takes `yes` in lanes whose mask is -1 and `no` in lanes whose mask is 0.
inline Ints Select(Ints mask, Ints yes, Ints no) {
    return (mask & yes) | (~mask & no);
}
inline Floats Select(Ints mask, Floats yes, Floats no) {
    return reinterpret_cast<Floats>(
            Select(mask, reinterpret_cast<Ints>(yes), reinterpret_cast<Ints>(no)));
}

// Whether any bit of any lane is set.
inline bool AnyOf(Ints mask) {
    using Words = uint64_t __attribute__((vector_size(16)));
    const auto words = reinterpret_cast<Words>(mask);
    return (words[0] | words[1]) != 0;
}

}  // namespace zonedetect
