// An open database of the library, or what is wrong with it.
#pragma once

#include <offlinetz.h>
#include <zonedetect.h>

#include <string>
#include <vector>

#include "antimeridian.h"
#include "coast_leaves.h"
#include "file_bytes.h"
#include "sphere_units.h"
#include "zone_index.h"
#include "zone_names.h"

// Immutable after opening, so any number of threads may use it.
struct offlinetz_database {
    offlinetz_database() = default;
    ~offlinetz_database() { ZDCloseDatabase(reader); }
    offlinetz_database(const offlinetz_database&) = delete;
    offlinetz_database& operator=(const offlinetz_database&) = delete;

    std::string message;             // Empty if the database is open.
    offlinetz::FileBytes bytes;      // Of a file that was read.
    offlinetz::FileMapping mapping;  // Of a file that was mapped.
    ZDDatabase* reader = nullptr;    // Owned. Null if the database is not open.
    offlinetz::ZoneNames names;
    offlinetz::ZoneIndex index;
    float scale = 0.0f;       // Units in 90 degrees of latitude.
    bool isNautical = false;  // Whether there are nautical zones at sea.
    bool hasRadius = false;
    // For distances to borders, if they are known.
    bool hasBorders = false;
    offlinetz::SphereUnits units;
    std::vector<offlinetz::AntimeridianPart> antimeridian;
    offlinetz::CoastLeaves coastLeaves;
};
