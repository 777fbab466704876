// GEOS, the geometry library, with ownership and errors as C++ has them. Geometries are in degrees:
// x is the longitude, y the latitude.
#pragma once

#include <geos_c.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace offlinetz {

struct GeometryDeleter {
    void operator()(GEOSGeometry* geometry) const { GEOSGeom_destroy(geometry); }
};
using GeometryPtr = std::unique_ptr<GEOSGeometry, GeometryDeleter>;

struct PreparedDeleter {
    void operator()(const GEOSPreparedGeometry* prepared) const {
        GEOSPreparedGeom_destroy(prepared);
    }
};
using PreparedPtr = std::unique_ptr<const GEOSPreparedGeometry, PreparedDeleter>;

// Must be called once before any other call of the library, on the main thread.
void StartGeometry();

// The last error message of the library.
const std::string& LastGeometryError();

// Throws std::bad_alloc where the last call of the library failed for lack of memory; to be called
// after a failure only.
void ThrowIfGeometryLacksMemory();

// Gives up ownership, for functions of the library that take it.
std::vector<GEOSGeometry*> ReleaseAll(std::vector<GeometryPtr> geometries);

// Appends the polygons within a geometry, of which there may be none.
void AddPolygons(GeometryPtr geometry, std::vector<GeometryPtr>* polygons);

// The union of valid polygons. Null where the library fails.
GeometryPtr Unite(std::vector<GeometryPtr> polygons);

// The area in square degrees.
double SquareDegrees(const GEOSGeometry* geometry);

// Calls `visit` with each ring of a polygon or multipolygon: its points without the repeated last
// one, x and y in turn, whether it is a hole, and whether it runs clockwise.
using RingVisitor =
        std::function<void(const std::vector<double>& xy, bool isHole, bool isClockwise)>;
void VisitRings(const GEOSGeometry* area, const RingVisitor& visit);

// Finds items by their bounding boxes: the library's sort-tile-recursive R-tree. Borrows items and
// geometries. Nothing may be inserted after the first query.
template <typename Item>
class BoxTree {
  public:
    BoxTree() : mTree(GEOSSTRtree_create(kNodeCapacity)) {}

    // The item is found by the bounding box of `area`.
    void Insert(const GEOSGeometry* area, const Item* item) {
        GEOSSTRtree_insert(mTree.get(), area, const_cast<Item*>(item));
    }

    // The items whose bounding boxes meet that of `area`.
    std::vector<const Item*> Query(const GEOSGeometry* area) const {
        std::vector<const Item*> found;
        GEOSSTRtree_query(
                mTree.get(), area,
                [](void* item, void* all) {
                    static_cast<std::vector<const Item*>*>(all)->push_back(
                            static_cast<const Item*>(item));
                },
                &found);
        return found;
    }

  private:
    static constexpr size_t kNodeCapacity = 10;
    struct Deleter {
        void operator()(GEOSSTRtree* tree) const { GEOSSTRtree_destroy(tree); }
    };
    std::unique_ptr<GEOSSTRtree, Deleter> mTree;
};

}  // namespace offlinetz
