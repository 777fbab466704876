// What answers points from polygons: the reader, or a library beside it.
#pragma once

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "compiler/source.h"
#include "measure.h"

namespace bench {

class Peer {
  public:
    virtual ~Peer() = default;

    // The identifiers of the zones that contain a point: sorted, each once.
    virtual std::vector<std::string> ZonesAt(const Point& p) = 0;

    // Makes the whole answer of a point and releases it. This is what is timed.
    virtual void Look(const Point& p) { ZonesAt(p); }
};

struct PeerKind {
    std::string name;
    std::string file;                             // What `load` reads, besides identifiers.
    std::function<std::shared_ptr<Peer>()> load;  // Throws std::runtime_error.
    std::shared_ptr<Peer> peer = nullptr;         // Null until it is loaded.
};

// GEOS: an R-tree over the bounding boxes of prepared polygons. StartGeometry must have been
// called.
std::vector<PeerKind> GeosPeers(const std::string& directory);

// S2: an index of the polygons on the sphere. None where this build has no S2.
std::vector<PeerKind> S2Peers(const std::string& directory);

// Write to `directory` what the peers load. Edges in S2 are arcs of great circles: an edge that is
// straight in latitude and longitude gets points between its ends, so that the arcs stay within a
// metre of it. Without S2, WriteS2Polygons writes nothing. Both throw std::exception.
void WriteGeosPolygons(const offlinetz::Source& source, const std::string& directory);
void WriteS2Polygons(const offlinetz::Source& source, const std::string& directory);

// Measures the reader and its peers and writes the tables to `directory`: times.md, noise.md,
// differences.md and loading.md. Throws std::exception, also where peers differ at many points.
void MeasurePeers(const std::string& directory);

// What the implementations of peers share. The files of all peers have the polygons of the source
// in one order, and this file has the identifier of each, one a line.
inline std::string PolygonZonesFile(const std::string& directory) {
    return directory + "/polygon-zones.txt";
}

// Throws std::runtime_error unless there are `count` of them.
inline std::vector<std::string> ReadPolygonZones(const std::string& directory, int count) {
    std::ifstream file(PolygonZonesFile(directory));
    std::vector<std::string> zones;
    for (std::string line; std::getline(file, line);)
        zones.push_back(line);
    if (zones.size() != static_cast<size_t>(count))
        throw std::runtime_error(directory + ": its files are not of one source");
    return zones;
}

// Calls `visit` with the identifier and the geometry of each polygon, in that order.
template <typename Visitor>
void VisitPolygons(const offlinetz::Source& source, Visitor visit) {
    for (const offlinetz::Zone& zone : source.zones) {
        for (int i = 0; i < GEOSGetNumGeometries(zone.area.get()); ++i)
            visit(zone.tzid, GEOSGetGeometryN(zone.area.get(), i));
    }
}

// Maps a file for reading. The caller may unmap it. Throws std::runtime_error.
std::string_view MapFile(const std::string& path);

inline void SortAndRemoveDuplicates(std::vector<std::string>* zones) {
    std::sort(zones->begin(), zones->end());
    zones->erase(std::unique(zones->begin(), zones->end()), zones->end());
}

}  // namespace bench
