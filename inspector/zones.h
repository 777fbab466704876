// The zones of a database, whole again: without the tiling, its fences and frames.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "compiler/progress.h"
#include "compiler/rebuild_rings.h"
#include "database/decode.h"

namespace offlinetz {

// One pass over a database's entries reads what so many lookups at their limit read: entries may
// share rings and records, and honest ones do so a few times.
constexpr int64_t kLookupsOfInspection = 16;

struct InspectedZone {
    std::string tzid;      // Without the double quotes that it may be stored with.
    uint32_t record = 0;   // Where its record stands in the file.
    bool isNamed = false;  // Whether the record could be read.

    // As they are stored.
    size_t entries = 0;
    size_t entryPoints = 0;
    uint64_t ringBytes = 0;

    // Whole, in true coordinates. Outlines run clockwise, holes counterclockwise.
    ZoneRings rings;
    size_t points = 0;      // Of these rings.
    size_t looseEdges = 0;  // Edges that close to no ring, left out. An honest database has none.
};

struct InspectedDatabase {
    std::vector<DecodedEntry> entries;
    uint32_t tableEnd = 0;  // Behind the last entry that could be read.
    // By identifier. Entries whose records or rings cannot be read are not in them.
    std::vector<InspectedZone> zones;
};

// Puts the zones together. An edge belongs to the entry whose box holds its first point: every grid
// point lies in one tile, which has all edges there whole; fences and detours run outside. So the
// rings are those that were tiled, edge for edge.
//
// Throws std::runtime_error where rings and records
// would have more bytes read than kLookupsOfInspection allow for.
InspectedDatabase InspectZones(const ZDDatabase& database, const ProgressCallback& progress);

}  // namespace offlinetz
