#include "geometry.h"

#include <cstdarg>
#include <cstdio>
#include <new>

namespace offlinetz {

namespace {

std::string gLastGeometryError;

__attribute__((format(printf, 1, 2))) void OnGeometryMessage(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    gLastGeometryError = text;
}

void OnGeometryNotice(const char*, ...) {}

}  // namespace

void StartGeometry() {
    initGEOS(OnGeometryNotice, OnGeometryMessage);
}

const std::string& LastGeometryError() {
    return gLastGeometryError;
}

void ThrowIfGeometryLacksMemory() {
    if (gLastGeometryError.find("bad_alloc") != std::string::npos) throw std::bad_alloc();
}

std::vector<GEOSGeometry*> ReleaseAll(std::vector<GeometryPtr> geometries) {
    std::vector<GEOSGeometry*> raw;
    raw.reserve(geometries.size());
    for (GeometryPtr& geometry : geometries)
        raw.push_back(geometry.release());
    return raw;
}

void AddPolygons(GeometryPtr geometry, std::vector<GeometryPtr>* polygons) {
    if (GEOSGeomTypeId(geometry.get()) == GEOS_POLYGON) {
        if (GEOSisEmpty(geometry.get()) == 0) polygons->push_back(std::move(geometry));
        return;
    }
    const int count = GEOSGetNumGeometries(geometry.get());
    for (int i = 0; i < count; ++i) {
        const GEOSGeometry* part = GEOSGetGeometryN(geometry.get(), i);
        if (GEOSGeomTypeId(part) == GEOS_POLYGON && GEOSisEmpty(part) == 0) {
            polygons->emplace_back(GEOSGeom_clone(part));
        }
    }
}

GeometryPtr Unite(std::vector<GeometryPtr> polygons) {
    if (polygons.size() == 1) return std::move(polygons.front());
    std::vector<GEOSGeometry*> raw = ReleaseAll(std::move(polygons));
    const GeometryPtr collection(GEOSGeom_createCollection(GEOS_GEOMETRYCOLLECTION, raw.data(),
                                                           static_cast<unsigned>(raw.size())));
    return GeometryPtr(collection == nullptr ? nullptr : GEOSUnaryUnion(collection.get()));
}

double SquareDegrees(const GEOSGeometry* geometry) {
    double area = 0.0;
    GEOSArea(geometry, &area);
    return area;
}

void VisitRings(const GEOSGeometry* area, const RingVisitor& visit) {
    const auto visitRing = [&visit](const GEOSGeometry* ring, bool isHole) {
        const GEOSCoordSequence* sequence = GEOSGeom_getCoordSeq(ring);
        unsigned count = 0;
        GEOSCoordSeq_getSize(sequence, &count);
        if (count == 0) return;  // The ring of an empty polygon.
        std::vector<double> xy(2 * size_t{count});
        GEOSCoordSeq_copyToBuffer(sequence, xy.data(), /*hasZ=*/0, /*hasM=*/0);
        char isCounterClockwise = 0;
        GEOSCoordSeq_isCCW(sequence, &isCounterClockwise);
        xy.resize(xy.size() - 2);
        visit(xy, isHole, isCounterClockwise == 0);
    };
    const int polygons = GEOSGetNumGeometries(area);
    for (int i = 0; i < polygons; ++i) {
        const GEOSGeometry* polygon = GEOSGetGeometryN(area, i);
        if (GEOSGeomTypeId(polygon) != GEOS_POLYGON) continue;
        visitRing(GEOSGetExteriorRing(polygon), false);
        const int holes = GEOSGetNumInteriorRings(polygon);
        for (int h = 0; h < holes; ++h)
            visitRing(GEOSGetInteriorRingN(polygon, h), true);
    }
}

}  // namespace offlinetz
