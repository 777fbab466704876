// The zones within a distance of a point.
#pragma once

#include <cstddef>
#include <cstdint>

#include "database.h"

namespace offlinetz {

// What offlinetz_zones_within does; offlinetz.h describes its parameters.
size_t ZonesWithin(const offlinetz_database& database, double lat, double lon, double metres,
                   int32_t* ids, double* distances, size_t room);

}  // namespace offlinetz
