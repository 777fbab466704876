#include "geos_peer.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "files.h"

namespace bench {

namespace {

using offlinetz::GeometryPtr;

struct PreparedDeleter {
    void operator()(const GEOSPreparedGeometry* p) const { GEOSPreparedGeom_destroy(p); }
};

struct TreeDeleter {
    void operator()(GEOSSTRtree* tree) const { GEOSSTRtree_destroy(tree); }
};

struct Polygon {
    std::unique_ptr<const GEOSPreparedGeometry, PreparedDeleter> prepared;
    const std::string* tzid;
};

class GeosPeer : public Peer {
  public:
    GeosPeer(const std::string& polygonsPath, const std::string& zonesPath)
        : mZones(ReadLines(zonesPath)) {
        GEOSWKBReader* reader = GEOSWKBReader_create();
        const MappedFile file(polygonsPath);
        mAll.reset(GEOSWKBReader_read(reader, reinterpret_cast<const unsigned char*>(file.Data()),
                                      file.Size()));
        GEOSWKBReader_destroy(reader);
        if (mAll == nullptr ||
            static_cast<size_t>(GEOSGetNumGeometries(mAll.get())) != mZones.size())
            throw std::runtime_error(polygonsPath + ": is not what " + zonesPath + " belongs to");
        mPolygons.reserve(mZones.size());  // The tree keeps addresses.
        for (size_t i = 0; i < mZones.size(); ++i) {
            const GEOSGeometry* polygon = GEOSGetGeometryN(mAll.get(), static_cast<int>(i));
            Polygon& added = mPolygons.emplace_back();
            added.prepared.reset(GEOSPrepare(polygon));
            added.tzid = &mZones[i];
            GEOSSTRtree_insert(mTree.get(), polygon, &added);
        }
    }

    void Look(float lat, float lon) override { ZonesAt(lat, lon); }

    std::vector<std::string> ZonesAt(float lat, float lon) override {
        struct Query {
            GeometryPtr point;
            std::vector<std::string> zones;
        } query{GeometryPtr(GEOSGeom_createPointFromXY(static_cast<double>(lon),
                                                       static_cast<double>(lat))),
                {}};
        GEOSSTRtree_query(
                mTree.get(), query.point.get(),
                [](void* item, void* data) {
                    const auto* polygon = static_cast<const Polygon*>(item);
                    auto* q = static_cast<Query*>(data);
                    if (GEOSPreparedIntersects(polygon->prepared.get(), q->point.get()) == 1)
                        q->zones.push_back(*polygon->tzid);
                },
                &query);
        std::sort(query.zones.begin(), query.zones.end());
        query.zones.erase(std::unique(query.zones.begin(), query.zones.end()), query.zones.end());
        return query.zones;
    }

  private:
    std::vector<std::string> mZones;
    GeometryPtr mAll;
    std::vector<Polygon> mPolygons;
    std::unique_ptr<GEOSSTRtree, TreeDeleter> mTree{GEOSSTRtree_create(10)};
};

template <typename PolygonFunction>
void VisitPolygons(const offlinetz::Source& source, PolygonFunction visit) {
    for (const offlinetz::Zone& zone : source.zones) {
        for (int i = 0; i < GEOSGetNumGeometries(zone.area.get()); ++i)
            visit(zone.tzid, GEOSGetGeometryN(zone.area.get(), i));
    }
}

}  // namespace

void WritePolygonZones(const offlinetz::Source& source, const std::string& path) {
    std::string lines;
    VisitPolygons(source,
                  [&](const std::string& tzid, const GEOSGeometry*) { lines += tzid + "\n"; });
    WriteFile(path, lines.data(), lines.size());
}

void WriteGeosPolygons(const offlinetz::Source& source, const std::string& path) {
    std::vector<GEOSGeometry*> polygons;
    VisitPolygons(source, [&](const std::string&, const GEOSGeometry* polygon) {
        polygons.push_back(GEOSGeom_clone(polygon));
    });
    const GeometryPtr all(GEOSGeom_createCollection(GEOS_GEOMETRYCOLLECTION, polygons.data(),
                                                    static_cast<unsigned>(polygons.size())));
    GEOSWKBWriter* writer = GEOSWKBWriter_create();
    size_t size = 0;
    unsigned char* bytes = GEOSWKBWriter_write(writer, all.get(), &size);
    GEOSWKBWriter_destroy(writer);
    if (bytes == nullptr) throw std::runtime_error(path + ": GEOS could not encode the polygons");
    WriteFile(path, bytes, size);
    GEOSFree(bytes);
}

std::unique_ptr<Peer> LoadGeos(const std::string& polygonsPath, const std::string& zonesPath) {
    return std::make_unique<GeosPeer>(polygonsPath, zonesPath);
}

}  // namespace bench
