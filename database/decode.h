// Takes a database apart: the entries of its box table, its records and its rings, read as the
// reader reads them, and where each stands. The inverse of encode.h.
#pragma once

#include <reader/read_budget.h>
#include <zonedetect.h>

#include <cstdint>
#include <string>
#include <vector>

#include "grid.h"

namespace offlinetz {

// Positions are those of bytes in the file.
struct DecodedEntry {
    uint32_t position;  // Of the entry itself.
    GridBox box;
    uint32_t record;  // Of its zone's record. Hostile ones lie anywhere.
    uint32_t ring;    // Of its ring; likewise.
};

// The entries of the box table in their order, up to one that cannot be read. `*end` receives the
// position behind the last one: the table's end if all could be read.
std::vector<DecodedEntry> DecodeTable(const ZDDatabase& database, uint32_t* end);

// Reads the ring at a position: its points in true coordinates, without the shift that the reader
// has them stored with. `*end` receives the position behind it. False where it cannot be read; what
// was read of it ends at `*end` then.
bool DecodeRing(const ZDDatabase& database, uint32_t position, GridRing* ring, uint32_t* end);

// Reads the record at a position: the text as it is stored, and the position behind it. False where
// it cannot be read, or where the budget, on which its bytes go, is spent: a hostile number may be
// as long as the file.
bool DecodeRecord(const ZDDatabase& database, uint32_t position, zonedetect::ReadBudget* budget,
                  std::string* text, uint32_t* end);

}  // namespace offlinetz
