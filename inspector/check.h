// Checks what a database must satisfy and the reader does not check.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "compiler/progress_callback.h"

namespace offlinetz {

enum class Severity {
    kNote,     // Worth knowing; the file may be as its maker meant it.
    kWarning,  // The file wastes bytes or time, or its maker can hardly have meant it so.
    kError,    // Some lookups give a wrong answer or none.
};

// The faults of one kind: the first one, and their number.
struct Finding {
    Severity severity;
    const char* kind;                  // Identifies the kind for programs: "ring-unreadable".
    std::optional<uint32_t> position;  // The byte in the file where the first one is.
    std::optional<size_t> entry;       // Its entry in the box table, counted from 0.
    std::string what;                  // Describes the first one.
    const char* effect;                // What it does to lookups.
    size_t count;                      // At least 1.
};

// Checks an open database: header, box table, records, unused bytes, limits of a lookup, tiles,
// rings, and whether the reader finds each zone at the vertices of its border. Returns the
// findings, the most severe first. The digest is not checked.
//
// Needs StartGeometry (geometry.h). Reads a hostile database in bounded time: what exceeds the
// bounds is reported and passed over. Calls `progress`, on the calling thread, with a step's name,
// the parts done and the parts in all (0 if unknown).
std::vector<Finding> CheckDatabase(const ZDDatabase& database, const ProgressCallback& progress);

}  // namespace offlinetz
