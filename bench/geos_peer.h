// GEOS as a peer: a tree over the boxes of prepared source polygons.
#pragma once

#include <memory>
#include <string>

#include "compiler/source.h"
#include "peer.h"

namespace bench {

// The tzid of each polygon of the source, a line each, in the order of the files below.
void WritePolygonZones(const offlinetz::Source& source, const std::string& path);

// The source's polygons as one well-known binary. Throws std::runtime_error.
void WriteGeosPolygons(const offlinetz::Source& source, const std::string& path);

// Throws std::runtime_error. GEOS must have been started.
std::unique_ptr<Peer> LoadGeos(const std::string& polygonsPath, const std::string& zonesPath);

}  // namespace bench
