// S2 as a peer: an index of the source polygons on the sphere.
#pragma once

#include <memory>
#include <string>

#include "compiler/source.h"
#include "peer.h"

namespace bench {

// Whether this build has S2. Without it nothing is written, and loading throws.
bool HasS2();

// The source's polygons and an index of them, encoded. S2's edges are parts of great circles:
// edges that are straight in latitude and longitude get points between, so that none is further
// than a metre from where it was. Throws std::runtime_error.
void WriteS2Polygons(const offlinetz::Source& source, const std::string& path);

enum class S2Index { kEncoded, kDecoded };  // Decoded where a query needs it; or once, and kept.

// Throws std::runtime_error.
std::unique_ptr<Peer> LoadS2(S2Index kind, const std::string& polygonsPath,
                             const std::string& zonesPath);

}  // namespace bench
