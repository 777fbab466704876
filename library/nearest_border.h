// The nearest place where the answer changes.
#pragma once

#include <offlinetz.h>

#include "database.h"

namespace offlinetz {

// Sets the members of an open database that distances to borders need. They are known if it is
// tiled as the compiler makes it, so that each tile has the borders in it whole, and if its rings
// along the antimeridian can be decoded. Throws std::bad_alloc.
void PrepareBorders(offlinetz_database* database);

// What offlinetz_nearest_border does; offlinetz.h describes its parameters.
int NearestBorder(const offlinetz_database& database, double lat, double lon, double limit,
                  offlinetz_border* border);

}  // namespace offlinetz
