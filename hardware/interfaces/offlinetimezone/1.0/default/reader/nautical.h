// The nautical zones: 25 bands of longitude, of 15 degrees each; the first and the last have half
// as much.
#pragma once

#include <cstdint>

namespace zonedetect {

constexpr int kNauticalBands = 12;  // On either side of the band of Greenwich.

// The number of the band at a longitude of -2^20 to 2^20 units of kNauticalPrecision: the hours by
// which it is ahead of UTC, -12 to 12.
int NauticalBandAt(int32_t lonUnits);

// The identifier of a band as a constant text with a double quote at both ends, such as
// "Etc/GMT-1" for the band 1: the sign of the identifiers is inverted.
const char* NauticalZone(int band);

}  // namespace zonedetect
