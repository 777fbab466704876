#include "drawing.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "compiler/compile.h"
#include "compiler/simplify.h"
#include "compiler/snap.h"
#include "compiler/tile.h"
#include "database/encode.h"
#include "database/grid.h"
#include "database/output_file.h"
#include "input_files.h"

namespace bench {

namespace {

using offlinetz::Grid;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using offlinetz::ZoneRings;

const Grid kGrid(offlinetz::CompileOptions().precision);

void Mend(Drawing* drawing) {
    offlinetz::RebuildRings(&drawing->zones, [](const char*, size_t, size_t) {});
}

// Where the point of a world lies in its copy, the `row`th from the south and `column`th from the
// west.
GridPoint InCopy(const GridPoint& p, int perSide, int row, int column) {
    const int32_t edge = kGrid.Scale();
    const auto place = [&](int32_t units, int index) {
        const int32_t fromEdge = std::clamp(units, -edge, edge) + edge;
        return (fromEdge + 2 * edge * index) / perSide - edge;
    };
    return {place(p.lat, row), place(p.lon, column)};
}

}  // namespace

Drawing DrawSource(const offlinetz::Source& source) {
    Drawing drawing;
    offlinetz::SnapCounts ignored;
    for (const offlinetz::Zone& zone : source.zones) {
        drawing.tzids.push_back(zone.tzid);
        drawing.zones.push_back(offlinetz::SnapToGrid(zone.area.get(), kGrid, &ignored));
    }
    Mend(&drawing);
    return drawing;
}

Drawing Thinned(Drawing drawing, double tolerance) {
    offlinetz::Simplify(&drawing.zones, kGrid, tolerance);
    return drawing;
}

Drawing CopiesOf(const Drawing& world, int perSide) {
    Drawing copies;
    for (int copy = 0; copy < perSide * perSide; ++copy) {
        for (size_t zone = 0; zone < world.zones.size(); ++zone) {
            ZoneRings rings;
            for (const GridRing& ring : world.zones[zone]) {
                GridRing small;
                for (const GridPoint& p : ring) {
                    const GridPoint placed = InCopy(p, perSide, copy / perSide, copy % perSide);
                    if (small.empty() || placed != small.back()) small.push_back(placed);
                }
                while (small.size() > 1 && small.back() == small.front())
                    small.pop_back();
                if (small.size() >= 3) rings.push_back(std::move(small));
            }
            copies.tzids.push_back(world.tzids[zone] + "/" + std::to_string(copy));
            copies.zones.push_back(std::move(rings));
        }
    }
    Mend(&copies);
    return copies;
}

Drawing ZigzagRing(size_t points) {
    constexpr double kTurn = 6.283185307179586;
    GridRing ring;
    for (size_t i = 0; i < points; ++i) {
        const double angle = -kTurn * static_cast<double>(i) / static_cast<double>(points);
        const double r =
                (i % 2 == 0 ? kZigzagOuterRadius : ZigzagInnerRadius(points)) * kGrid.Scale();
        ring.push_back({static_cast<int32_t>(r * std::sin(angle)),
                        static_cast<int32_t>(r * std::cos(angle))});
    }
    Drawing drawing{{"Ring"}, {{std::move(ring)}}};
    Mend(&drawing);
    return drawing;
}

void WriteDatabase(const Drawing& drawing, size_t tilePoints, const std::string& path) {
    offlinetz::DatabaseContent content;
    content.tableType = tilePoints == 0 ? zonedetect::kWholeRingsTable : zonedetect::kTiledTable;
    content.precision = kGrid.Precision();
    content.fieldNames = {"TimezoneId"};
    for (const std::string& tzid : drawing.tzids)
        content.zones.push_back('"' + tzid + '"');
    content.entries = offlinetz::TileWorld(drawing.zones, kGrid, tilePoints,
                                           [](const char*, size_t, size_t) {});
    offlinetz::SectionSizes ignored;
    offlinetz::WriteOutput(path, offlinetz::EncodeDatabase(content, &ignored));
}

}  // namespace bench
