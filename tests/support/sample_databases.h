// Small databases with known answers.
#pragma once

#include "raw_database.h"

// One zone of that name from the equator and Greenwich to about 9 degrees north and 17 east,
// padded to at least `size` bytes by points on its edge.
inline Bytes SampleDatabase(const char* zone, uint8_t version, size_t size = 0) {
    RawDatabase raw;
    raw.version = version;
    offlinetz::GridRing ring = {{0, 0}};
    for (int32_t lat = 1; lat < static_cast<int32_t>(size / 2); ++lat)
        ring.push_back({lat, 0});
    ring.insert(ring.end(), {{100000, 0}, {100000, 100000}, {0, 100000}});
    raw.AddRing(raw.AddRecord(zone), ring);
    return raw.File();
}
