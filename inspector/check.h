// All that a database promises and the reader takes on trust.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "compiler/progress.h"

namespace offlinetz {

enum class Severity {
    kNote,     // Worth knowing.
    kWarning,  // Bytes or time for nothing, or other than its maker can have meant.
    kError,    // Some lookups give a wrong answer, or none.
};

// Faults of one kind: the first one, and how many there are.
struct Finding {
    Severity severity;
    const char* kind;                  // A word for programs, such as "ring-unreadable".
    std::optional<uint32_t> position;  // Of the first one: its byte in the file ...
    std::optional<size_t> entry;       // ... and its entry in the box table, counted from 0.
    std::string what;
    const char* effect;  // What it does to a lookup.
    size_t count;
};

// Looks into all of a database that the reader opened and whose digest matches: its table, records,
// bytes, tiles, rings, and whether the reader finds each zone's own border. Returns the findings,
// the gravest first. Needs StartGeometry (geometry.h). `progress` receives a step's name with the
// parts done and in all.
std::vector<Finding> CheckDatabase(const ZDDatabase& database, const ProgressCallback& progress);

}  // namespace offlinetz
