// Decodes a database: the entries of its box table, its records and its rings, with the reader's
// own functions, and the position of each. The inverse of encode.h. Safe on hostile databases:
// reads nothing outside the file.
#pragma once

#include <reader/read_budget.h>
#include <reader/units.h>
#include <zonedetect.h>

#include <cstdint>
#include <string>
#include <vector>

#include "grid.h"

namespace offlinetz {

// An entry of the box table. Positions are byte offsets in the file. The positions of the record
// and of the ring are not checked: in a hostile database they may be any number.
struct DecodedEntry {
    uint32_t position;  // Of the entry itself.
    GridBox box;
    uint32_t record;  // Of its zone's record.
    uint32_t ring;    // Of its ring.
};

// The entries of the box table in their order, up to the first that cannot be read. `*end` receives
// the position after the last entry returned: the end of the table if all could be read.
std::vector<DecodedEntry> DecodeTable(const ZDDatabase& database, uint32_t* end);

// Reads the ring at `position` into `*ring`, in true coordinates: without kRingShift, by which
// stored rings are shifted. `*end` receives the position after the ring. Returns false if the ring
// cannot be read; `*ring` then holds the points before the failure, and no byte from `*end` on was
// read.
bool DecodeRing(const ZDDatabase& database, uint32_t position, GridRing* ring, uint32_t* end);

// Reads the record at `position`. `*text` receives its text as stored, up to a zero byte if it has
// one; `*end` receives the position after the record. The bytes read are charged to `*budget`,
// because the varints of a hostile record may be as long as the file. Returns false, with `*text`
// unchanged, if the record cannot be read or the budget is spent. Throws std::bad_alloc only for
// `*text`: a record that the reader has no memory for counts as one that cannot be read.
bool DecodeRecord(const ZDDatabase& database, uint32_t position, zonedetect::ReadBudget* budget,
                  std::string* text, uint32_t* end);

}  // namespace offlinetz
