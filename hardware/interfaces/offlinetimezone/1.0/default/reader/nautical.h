// The nautical zones: 25 bands of longitude, of 15 degrees each; the first and the last have half
// as much.
#pragma once

#include <cstdint>

namespace zonedetect {

constexpr int kNauticalBands = 12;  // On either side of the band of Greenwich.

// The number of the band at a longitude of -2^20 to 2^20 units of kNauticalPrecision: the hours by
// which it is ahead of UTC, -12 to 12.
int NauticalBandAt(int32_t lonUnits);

// The longitude in units at which the band 1 to 12 begins, seen from Greenwich: an odd multiple of
// 7.5 degrees, truncated to units. At its negative begins the band of the inverse number.
constexpr int32_t NauticalBandStart(int band) {
    return ((2 * band - 1) << 20) / 24;
}

// The identifier of a band as a constant text with a double quote at both ends, such as
// "Etc/GMT-1" for the band 1: the sign of the identifiers is inverted.
const char* NauticalZone(int band);

}  // namespace zonedetect
