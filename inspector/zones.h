// Reassembles the zones of a database: their rings without the tiling, its clip rectangles and
// closing paths.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "compiler/progress_callback.h"
#include "compiler/rebuild_rings.h"
#include "database/decode.h"

namespace offlinetz {

// A pass over all entries may read as many bytes as this many lookups at their limit. Entries may
// share rings and records; in an honest database each is shared a few times.
constexpr int64_t kLookupsOfInspection = 16;

struct InspectedZone {
    std::string tzid;      // Without the double quotes of the stored record.
    uint32_t record = 0;   // The position of its record in the file.
    bool isNamed = false;  // Whether the record could be read.

    // As stored, with the tiling.
    size_t entries = 0;
    size_t entryPoints = 0;  // Points of the entries' rings.
    uint64_t ringBytes = 0;  // Bytes of the entries' rings.

    // Without the tiling, in true coordinates. Exterior rings run clockwise, holes
    // counterclockwise.
    ZoneRings rings;
    size_t points = 0;      // Points of `rings`.
    size_t looseEdges = 0;  // Edges that form no closed ring, left out. 0 in an honest database.
};

struct InspectedDatabase {
    std::vector<DecodedEntry> entries;
    uint32_t tableEnd = 0;  // The position after the last entry that could be read.
    // Sorted by identifier. Entries without a readable ring are left out.
    std::vector<InspectedZone> zones;
};

// Reassembles the zones. An edge is taken from the entry whose bounding box contains its first
// point. Every grid point lies in exactly one tile, whose entries hold the edges there whole; clip
// rectangles and closing paths run outside the tile. So the result has the rings before tiling,
// edge for edge. In a database without tiles, the bounding box of an entry contains its whole ring.
//
// Calls `progress` on the calling thread. Throws std::runtime_error if this would read more bytes
// than kLookupsOfInspection lookups may.
InspectedDatabase InspectZones(const ZDDatabase& database, const ProgressCallback& progress);

}  // namespace offlinetz
