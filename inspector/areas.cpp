#include "areas.h"

#include <algorithm>
#include <stdexcept>

namespace offlinetz {

namespace {

constexpr double kHalfUnit = 0.5;

GridPoint Clamped(const GridPoint& p, int32_t scale) {
    return {std::clamp(p.lat, -scale, scale), std::clamp(p.lon, -scale, scale)};
}

// The closed line of a ring within the world. Null if fewer than three points are left.
GEOSGeometry* LineOf(const GridRing& ring, int32_t scale) {
    GridRing points;
    for (const GridPoint& p : ring) {
        const GridPoint clamped = Clamped(p, scale);
        if (points.empty() || points.back() != clamped) points.push_back(clamped);
    }
    while (points.size() > 1 && points.back() == points.front())
        points.pop_back();
    if (points.size() < 3) return nullptr;
    points.push_back(points.front());
    GEOSCoordSequence* sequence = GEOSCoordSeq_create(static_cast<unsigned>(points.size()), 2);
    for (size_t i = 0; i < points.size(); ++i) {
        GEOSCoordSeq_setXY(sequence, static_cast<unsigned>(i),
                           VertexLongitude(points[i].lon, scale),
                           VertexLatitude(points[i].lat, scale));
    }
    return GEOSGeom_createLineString(sequence);
}

}  // namespace

double DegreesOf(int32_t units, int32_t scale, double span) {
    if (units >= scale) return span;
    if (units <= -scale) return -span;
    const double middle = units + (units > 0 ? kHalfUnit : (units < 0 ? -kHalfUnit : 0.0));
    return middle * span / scale;
}

double VertexLatitude(int32_t units, int32_t scale) {
    return DegreesOf(units, scale, 90.0);
}

double VertexLongitude(int32_t units, int32_t scale) {
    return std::clamp(units * 180.0 / scale, -180.0, 180.0);
}

std::array<double, 4> BoundsOf(const ZoneRings& rings, int32_t scale) {
    GridBox box = BoxOf(rings.front());
    for (const GridRing& ring : rings) {
        const GridBox other = BoxOf(ring);
        box = {{std::min(box.min.lat, other.min.lat), std::min(box.min.lon, other.min.lon)},
               {std::max(box.max.lat, other.max.lat), std::max(box.max.lon, other.max.lon)}};
    }
    return {VertexLongitude(box.min.lon, scale), VertexLatitude(box.min.lat, scale),
            VertexLongitude(box.max.lon, scale), VertexLatitude(box.max.lat, scale)};
}

double SquareKilometres(const ZoneRings& rings, int32_t scale) {
    double sum = 0.0;
    for (const GridRing& ring : rings) {
        std::vector<double> xy;
        for (const GridPoint& p : ring) {
            xy.push_back(VertexLongitude(p.lon, scale));
            xy.push_back(VertexLatitude(p.lat, scale));
        }
        sum += ClockwiseSquareKilometres(xy);
    }
    return sum;
}

GeometryPtr AreaOf(const ZoneRings& rings, int32_t scale) {
    std::vector<GEOSGeometry*> lines;
    for (const GridRing& ring : rings) {
        if (GEOSGeometry* line = LineOf(ring, scale)) lines.push_back(line);
    }
    const GeometryPtr all(GEOSGeom_createCollection(GEOS_MULTILINESTRING, lines.data(),
                                                    static_cast<unsigned>(lines.size())));
    GeometryPtr area(all != nullptr ? GEOSBuildArea(all.get()) : nullptr);
    if (area == nullptr) ThrowIfGeometryLacksMemory();
    if (area == nullptr || GEOSisValid(area.get()) != 1) {
        throw std::runtime_error("its rings cross, so they enclose no valid area");
    }
    return area;
}

}  // namespace offlinetz
