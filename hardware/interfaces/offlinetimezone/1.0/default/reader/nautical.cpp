#include "exact_floats.h"  // Must be the first include.

#include "nautical.h"

#include "fixed_answers.h"
#include "format.h"
#include "units.h"
#include "zonedetect.h"

namespace zonedetect {

namespace {

// 90 degrees of latitude and 180 degrees of longitude in units.
constexpr int32_t kWorldEdge = int32_t{1} << (kNauticalPrecision - 1);

}  // namespace

int NauticalBandAt(int32_t lonUnits) {
    // Band n begins at (2n - 1) * 7.5 degrees, truncated to units. 7.5 degrees are 1/24 of 180.
    const int32_t magnitude = lonUnits < 0 ? -lonUnits : lonUnits;
    const int32_t band = (24 * (magnitude + 1) + kWorldEdge - 1) / (2 * kWorldEdge);
    return lonUnits < 0 ? -band : band;
}

const char* NauticalZone(int band) {
    static constexpr const char* kWest[] = {
            "\"Etc/GMT\"",    "\"Etc/GMT+1\"",  "\"Etc/GMT+2\"", "\"Etc/GMT+3\"", "\"Etc/GMT+4\"",
            "\"Etc/GMT+5\"",  "\"Etc/GMT+6\"",  "\"Etc/GMT+7\"", "\"Etc/GMT+8\"", "\"Etc/GMT+9\"",
            "\"Etc/GMT+10\"", "\"Etc/GMT+11\"", "\"Etc/GMT+12\""};
    static constexpr const char* kEast[] = {
            "\"Etc/GMT\"",    "\"Etc/GMT-1\"",  "\"Etc/GMT-2\"", "\"Etc/GMT-3\"", "\"Etc/GMT-4\"",
            "\"Etc/GMT-5\"",  "\"Etc/GMT-6\"",  "\"Etc/GMT-7\"", "\"Etc/GMT-8\"", "\"Etc/GMT-9\"",
            "\"Etc/GMT-10\"", "\"Etc/GMT-11\"", "\"Etc/GMT-12\""};
    return band < 0 ? kWest[-band] : kEast[band];
}

}  // namespace zonedetect

const char* GetEtcAreaTimezone(const ZDDatabase* db, float lon, float lat) {
    using namespace zonedetect;
    if (!HasScale(*db)) return kErrorInput;
    const float scale = Scale(*db);
    const int32_t lonUnits = LongitudeUnits(lon, scale);
    const int32_t latUnits = LatitudeUnits(lat, scale);
    if (latUnits < -kWorldEdge || latUnits > kWorldEdge) return kErrorInput;
    if (lonUnits < -kWorldEdge || lonUnits > kWorldEdge) return kErrorInput;
    return NauticalZone(NauticalBandAt(lonUnits));
}
