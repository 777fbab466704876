// A database file as the commands that look into one open it.
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

// Opens a database and puts its zones together. Throws std::runtime_error with the path and the
// reason.
InspectedFile Inspect(const std::string& path, Progress* progress);
