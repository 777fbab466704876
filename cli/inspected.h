// Opens a database file and reassembles its zones, for the commands that show its content.
#pragma once

#include <cstdint>
#include <string>

#include "database/open_database.h"
#include "inspector/zones.h"
#include "progress.h"

struct InspectedFile {
    offlinetz::DatabasePtr database;
    int32_t scale;  // Units in 90 degrees of latitude.
    offlinetz::InspectedDatabase inspected;
};

// Opens the database file at `path`, checks its digest, and reassembles its zones. Starts the
// geometry library. Throws std::runtime_error with the path and the reason.
InspectedFile Inspect(const std::string& path, Progress* progress);
