// Proves how far from the source the answers of a database may differ.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "database/zone_rings.h"
#include "originals.h"
#include "simplify.h"

namespace offlinetz {

// What EdgeError says about one edge of the simplified rings.
struct CertifiedEdge {
    double metres = 0.0;
    GridPoint from;
    GridPoint to;
    uint32_t zone = 0;  // One of those along the edge.
    Original original;  // The point of the source that decides.
};

struct Certificate {
    // No answer differs from the source at a point further from a source border, in metres.
    double metres = 0.0;
    // The point of the source that decides, in degrees.
    double lat = 0.0;
    double lon = 0.0;
    size_t exceeding = 0;              // The number of edges above the limit.
    std::vector<CertifiedEdge> worst;  // The worst edges, the worst one first.
};

// Measures each edge of `simplified` against the originals of the vertices that it replaces.
// `noded` are the rings as RebuildRings leaves them, `simplified` and `moved` what Simplify made of
// them. Edges past the world's edge are no borders and are left out. Lists up to `count` edges.
//
// Parts of rings that have no edge left are not measured: slivers that rounding closed or turned
// inside out, and borders that it moved to the world's edge. They moved by a unit's diagonal at the
// most, which the certificate covers.
Certificate Certify(const std::vector<ZoneRings>& noded, const std::vector<ZoneRings>& simplified,
                    const std::vector<MovedVertex>& moved, const Originals& originals,
                    const Grid& grid, double limit, size_t count);

// Rounds metres up to a tenth.
double RoundedUp(double metres);

// The certificate in words, rounded up.
std::string TextOf(const Certificate& certificate);

}  // namespace offlinetz
