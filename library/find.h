// Lookups of one point and of many.
#pragma once

#include <cstddef>
#include <cstdint>

#include "column.h"
#include "database.h"

namespace offlinetz {

// What offlinetz_find, offlinetz_find_many and offlinetz_find_all do; offlinetz.h describes their
// parameters. The database is open.
size_t Find(const offlinetz_database& database, double lat, double lon, int32_t* ids, size_t room,
            int* onBorder, double* radius);

void FindMany(const offlinetz_database& database, size_t count, Column<const double> lats,
              Column<const double> lons, Column<int32_t> ids, Column<double> radii);

size_t FindAll(const offlinetz_database& database, size_t count, Column<const double> lats,
               Column<const double> lons, int64_t* offsets, int32_t* values, size_t room);

}  // namespace offlinetz
