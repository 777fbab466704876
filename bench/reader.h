// The reader under measurement.
#pragma once

#include <zonedetect.h>

#include <memory>
#include <string>

#include "database/open_database.h"
#include "peer.h"
#include "points.h"

namespace bench {

using offlinetz::DatabasePtr;

// Throws std::runtime_error.
DatabasePtr OpenDatabase(const std::string& path);

// Makes a point's answer and drops it; returns the distance in degrees.
float LookWithDistance(const ZDDatabase* database, const Point& p);

// Lookups through the reader, with or without a distance.
std::unique_ptr<Peer> LoadReader(const std::string& path, bool distance);

}  // namespace bench
