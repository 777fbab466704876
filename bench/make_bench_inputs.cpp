// Makes everything that lookup_bench reads from boundary polygons: databases, and the polygons as
// each peer loads them. The databases are made by the steps of the compiler, each of which is done
// once for all databases that share its result.
//
// Usage: make_bench_inputs SOURCE.geojson DIRECTORY
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "compiler/certify.h"
#include "compiler/rebuild_rings.h"
#include "compiler/simplify.h"
#include "compiler/tile.h"
#include "inputs.h"
#include "peer.h"

namespace {

using namespace bench;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using offlinetz::ZoneRings;

const offlinetz::Grid kGrid(offlinetz::CompileOptions().precision);

void IgnoreProgress(const char*, size_t, size_t) {}

struct Zones {
    std::vector<std::string> tzids;
    std::vector<ZoneRings> rings;  // Of each zone, in the same order.
};

// Adds to `*originals` the points from which the vertices were made.
Zones ZonesOnGrid(const offlinetz::Source& source, offlinetz::Originals* originals) {
    Zones zones;
    offlinetz::SnapCounts ignored;
    std::vector<const GEOSGeometry*> areas;
    for (const offlinetz::Zone& zone : source.zones)
        areas.push_back(zone.area.get());
    const offlinetz::FilledHoles filledHoles = offlinetz::TinyFilledHoles(areas, kGrid);
    for (const offlinetz::Zone& zone : source.zones) {
        zones.tzids.push_back(zone.tzid);
        zones.rings.push_back(offlinetz::SnapToGrid(zone.area.get(), kGrid, filledHoles,
                                                    kMaxErrors[0], &ignored, originals));
    }
    offlinetz::RebuildRings(&zones.rings, IgnoreProgress, originals);
    return zones;
}

// The zones, simplified. Throws std::runtime_error if the error is greater than `metres`.
Zones Simplified(const Zones& zones, const offlinetz::Originals& originals, int metres) {
    Zones simplified = zones;
    const auto moved = offlinetz::Simplify(&simplified.rings, kGrid, metres, &originals);
    if (offlinetz::Certify(zones.rings, simplified.rings, moved, originals, kGrid, metres, 1)
                .exceeding > 0)
        throw std::runtime_error("the error of the world is greater than it should be");
    return simplified;
}

void WriteDatabase(const Zones& zones, size_t tilePoints, const std::string& path) {
    offlinetz::DatabaseContent content;
    content.tableType =
            tilePoints == kWhole ? zonedetect::kWholeRingsTable : zonedetect::kTiledTable;
    content.precision = kGrid.Precision();
    content.fieldNames = {"TimezoneId"};
    for (const std::string& tzid : zones.tzids)
        content.zones.push_back('"' + tzid + '"');
    content.entries = offlinetz::TileWorld(zones.rings, kGrid, tilePoints, IgnoreProgress);
    offlinetz::SectionSizes ignored;
    offlinetz::WriteOutput(path, offlinetz::EncodeDatabase(content, &ignored));
}

// Where a point of the world lies in the copy in a row (from the south) and column (from the west).
GridPoint PlaceInCopy(const GridPoint& p, int perSide, int row, int column) {
    const int32_t edge = kGrid.Scale();
    const auto place = [&](int32_t units, int index) {
        const int32_t fromEdge = std::clamp(units, -edge, edge) + edge;
        return (fromEdge + 2 * edge * index) / perSide - edge;
    };
    return {place(p.lat, row), place(p.lon, column)};
}

// `perSide` times `perSide` copies of the world side by side, scaled down to fill the map once. The
// zones of each copy have identifiers of their own.
Zones CopiesOf(const Zones& world, int perSide) {
    Zones copies;
    for (int copy = 0; copy < perSide * perSide; ++copy) {
        for (size_t zone = 0; zone < world.rings.size(); ++zone) {
            ZoneRings rings;
            for (const GridRing& ring : world.rings[zone]) {
                GridRing scaled;
                for (const GridPoint& p : ring)
                    scaled.push_back(PlaceInCopy(p, perSide, copy / perSide, copy % perSide));
                scaled.erase(std::unique(scaled.begin(), scaled.end()), scaled.end());
                while (scaled.size() > 1 && scaled.back() == scaled.front())
                    scaled.pop_back();
                if (scaled.size() >= 3) rings.push_back(std::move(scaled));
            }
            copies.tzids.push_back(world.tzids[zone] + "/" + std::to_string(copy));
            copies.rings.push_back(std::move(rings));
        }
    }
    offlinetz::RebuildRings(&copies.rings, IgnoreProgress);
    return copies;
}

Zones ZigzagRing(size_t points) {
    constexpr double kTurn = 6.283185307179586;
    GridRing ring;
    for (size_t i = 0; i < points; ++i) {
        const double angle = -kTurn * static_cast<double>(i) / static_cast<double>(points);
        const double r =
                (i % 2 == 0 ? kZigzagOuterRadius : ZigzagInnerRadius(points)) * kGrid.Scale();
        ring.push_back({static_cast<int32_t>(r * std::sin(angle)),
                        static_cast<int32_t>(r * std::cos(angle))});
    }
    Zones zones{{"Ring"}, {{std::move(ring)}}};
    offlinetz::RebuildRings(&zones.rings, IgnoreProgress);
    return zones;
}

void Make(const std::string& sourcePath, const std::string& directory) {
    for (const size_t points : kRingPoints) {
        std::fprintf(stderr, "a ring of %zu points\n", points);
        const Zones ring = ZigzagRing(points);
        for (const size_t tilePoints : {kWhole, offlinetz::kDefaultMaxTilePoints})
            WriteDatabase(ring, tilePoints, RingFile(directory, points, tilePoints));
    }

    std::fprintf(stderr, "reading %s\n", sourcePath.c_str());
    offlinetz::StartGeometry();
    const offlinetz::Source source = offlinetz::ReadSource(
            {sourcePath}, [](const std::string&) {}, IgnoreProgress);
    std::string tzids;
    VisitPolygons(source,
                  [&](const std::string& tzid, const GEOSGeometry*) { tzids += tzid + "\n"; });
    WriteText(PolygonZonesFile(directory), tzids);
    WriteGeosPolygons(source, directory);
    WriteS2Polygons(source, directory);

    std::fprintf(stderr, "the world on the grid\n");
    offlinetz::Originals originals;
    const Zones full = ZonesOnGrid(source, &originals);
    for (const int metres : kMaxErrors) {
        std::fprintf(stderr, "the world within %d m\n", metres);
        const Zones world = Simplified(full, originals, metres);
        for (const size_t tilePoints : kTilePoints) {
            if (metres == kDefaultMaxError || tilePoints == offlinetz::kDefaultMaxTilePoints)
                WriteDatabase(world, tilePoints, WorldFile(directory, tilePoints, metres));
        }
    }
    Zones coarse = full;
    offlinetz::Simplify(&coarse.rings, kGrid, kCoarseMetres);
    for (const int perSide : kCopiesPerSide) {
        std::fprintf(stderr, "%d copies of a coarse world\n", perSide * perSide);
        WriteDatabase(CopiesOf(coarse, perSide), offlinetz::kDefaultMaxTilePoints,
                      CopiesFile(directory, perSide));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SOURCE.geojson DIRECTORY\n", argv[0]);
        return 2;
    }
    Make(argv[1], argv[2]);
    return 0;
}
