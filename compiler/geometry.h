// GEOS, the geometry library, with the ownership and errors of C++. Geometries are in degrees: x is
// the longitude, y the latitude. All calls must be on the thread that called StartGeometry, because
// the library's state is global.
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

// Must be called once before any other call of the library.
void StartGeometry();

// The last error message of the library, valid until the next one.
const std::string& LastGeometryError();

// Throws std::bad_alloc if the last call of the library failed for lack of memory. Call it after a
// failure only.
void ThrowIfGeometryLacksMemory();

// Gives up ownership, for functions of the library that take it. The caller owns the result.
std::vector<GEOSGeometry*> ReleaseAll(std::vector<GeometryPtr> geometries);

// Appends the polygons in a geometry, except empty ones. There may be none.
void AddPolygons(GeometryPtr geometry, std::vector<GeometryPtr>* polygons);

// The union of valid polygons. Null if the library fails.
GeometryPtr Unite(std::vector<GeometryPtr> polygons);

// The area in square degrees.
double SquareDegrees(const GEOSGeometry* geometry);

// Calls `visit` with each ring of a polygon or multipolygon, except empty ones: its points without
// the repeated last one, x and y in turn; whether it is a hole; whether it runs clockwise. The
// points are valid during the call only.
using RingVisitor =
        std::function<void(const std::vector<double>& xy, bool isHole, bool isClockwise)>;
void VisitRings(const GEOSGeometry* area, const RingVisitor& visit);

// Finds items by their bounding boxes: the library's packed R-tree in sort-tile-recursive order
// (STR; Leutenegger, Lopez and Edgington, 1997). Borrows items and geometries, which must outlive
// it. Nothing may be inserted after the first query, which builds the tree.
template <typename Item>
class BoxTree {
  public:
    BoxTree() : mTree(GEOSSTRtree_create(kNodeCapacity)) {}

    // Adds an item under the bounding box of `area`.
    void Insert(const GEOSGeometry* area, const Item* item) {
        GEOSSTRtree_insert(mTree.get(), area, const_cast<Item*>(item));
    }

    // The items whose bounding boxes intersect that of `area`, in no particular order.
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
