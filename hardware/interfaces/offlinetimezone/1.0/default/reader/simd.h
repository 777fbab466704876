// Four numbers at a time, in the vectors that compilers know for every processor.
#pragma once

#include <cstdint>
#include <cstring>

namespace zonedetect {

using Units = uint32_t __attribute__((vector_size(16)));  // Sums wrap.
using Ints = int32_t __attribute__((vector_size(16)));    // Masks too: 0 or -1 in each lane.
using Floats = float __attribute__((vector_size(16)));
using TwoDoubles = double __attribute__((vector_size(16)));

inline Ints AllOf(int32_t value) {
    return Ints{value, value, value, value};
}

inline Floats AllOf(float value) {
    return Floats{value, value, value, value};
}

inline Units LoadUnits(const int32_t* four) {
    Units lanes;
    std::memcpy(&lanes, four, sizeof lanes);
    return lanes;
}

inline Ints AsInts(Units lanes) {
    return reinterpret_cast<Ints>(lanes);
}
inline Units AsUnits(Ints lanes) {
    return reinterpret_cast<Units>(lanes);
}

inline Floats ToFloats(Ints lanes) {
    return __builtin_convertvector(lanes, Floats);
}
// Toward zero. The values must fit.
inline Ints Truncate(Floats lanes) {
    return __builtin_convertvector(lanes, Ints);
}
inline TwoDoubles FirstTwo(Ints lanes) {
    return __builtin_convertvector(__builtin_shufflevector(lanes, lanes, 0, 1), TwoDoubles);
}
inline TwoDoubles LastTwo(Ints lanes) {
    return __builtin_convertvector(__builtin_shufflevector(lanes, lanes, 2, 3), TwoDoubles);
}

inline Ints Select(Ints mask, Ints yes, Ints no) {
    return (mask & yes) | (~mask & no);
}
inline Floats Select(Ints mask, Floats yes, Floats no) {
    return reinterpret_cast<Floats>(
            Select(mask, reinterpret_cast<Ints>(yes), reinterpret_cast<Ints>(no)));
}

inline bool AnyOf(Ints mask) {
    using Words = uint64_t __attribute__((vector_size(16)));
    const auto words = reinterpret_cast<Words>(mask);
    return (words[0] | words[1]) != 0;
}

}  // namespace zonedetect
