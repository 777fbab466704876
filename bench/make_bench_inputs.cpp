// Makes all that lookup_bench reads out of boundary polygons: databases, and the polygons as each
// peer loads them. The databases are made by the compiler's own steps, of which those that they
// share are taken once.
//
// Usage: make_bench_inputs SOURCE.geojson DIRECTORY
#include <cstdio>
#include <exception>
#include <string>

#include "compiler/compile.h"
#include "compiler/source.h"
#include "drawing.h"
#include "geos_peer.h"
#include "input_files.h"
#include "s2_peer.h"

namespace {

using namespace bench;

void MakeWorlds(const Drawing& full, const std::string& directory) {
    for (const int tolerance : kTolerances) {
        std::fprintf(stderr, "world thinned within %d m\n", tolerance);
        const Drawing thinned = Thinned(full, tolerance);
        if (tolerance == kDefaultTolerance) {
            for (const size_t tilePoints : kTilePoints)
                WriteDatabase(thinned, tilePoints, WorldFile(directory, tilePoints, tolerance));
        } else {
            WriteDatabase(thinned, offlinetz::kDefaultMaxTilePoints,
                          WorldFile(directory, offlinetz::kDefaultMaxTilePoints, tolerance));
        }
    }
}

void MakeCopies(const Drawing& full, const std::string& directory) {
    const Drawing coarse = Thinned(full, kCoarseTolerance);
    for (const int perSide : kCopiesPerSide) {
        std::fprintf(stderr, "%d copies of a coarse world\n", perSide * perSide);
        WriteDatabase(CopiesOf(coarse, perSide), offlinetz::kDefaultMaxTilePoints,
                      CopiesFile(directory, perSide));
    }
}

void MakeRings(const std::string& directory) {
    for (const size_t points : kRingPoints) {
        std::fprintf(stderr, "a ring of %zu points\n", points);
        const Drawing ring = ZigzagRing(points);
        for (const size_t tilePoints : {kWhole, offlinetz::kDefaultMaxTilePoints})
            WriteDatabase(ring, tilePoints, RingFile(directory, points, tilePoints));
    }
}

void Make(const std::string& sourcePath, const std::string& directory) {
    std::fprintf(stderr, "reading %s\n", sourcePath.c_str());
    offlinetz::StartGeometry();
    const offlinetz::Source source = offlinetz::ReadSource(
            {sourcePath}, [](const std::string&) {}, [](const char*, size_t, size_t) {});
    WritePolygonZones(source, PolygonZonesFile(directory));
    WriteGeosPolygons(source, GeosFile(directory));
    WriteS2Polygons(source, S2File(directory));
    MakeRings(directory);
    std::fprintf(stderr, "mending the world\n");
    const Drawing full = DrawSource(source);
    MakeWorlds(full, directory);
    MakeCopies(full, directory);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SOURCE.geojson DIRECTORY\n", argv[0]);
        return 2;
    }
    try {
        Make(argv[1], argv[2]);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
    return 0;
}
