#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

#include "database/output_file.h"
#include "peer.h"

namespace bench {

namespace {

using offlinetz::GeometryPtr;

constexpr char kFileName[] = "/polygons.wkb";

class GeosPeer : public Peer {
  public:
    explicit GeosPeer(const std::string& directory) {
        const std::string_view file = MapFile(directory + kFileName);
        GEOSWKBReader* reader = GEOSWKBReader_create();
        mAll.reset(GEOSWKBReader_read(reader, reinterpret_cast<const unsigned char*>(file.data()),
                                      file.size()));
        GEOSWKBReader_destroy(reader);
        munmap(const_cast<char*>(file.data()), file.size());
        if (mAll == nullptr) throw std::runtime_error(offlinetz::LastGeometryError());
        const int count = GEOSGetNumGeometries(mAll.get());
        mZones = ReadPolygonZones(directory, count);
        mPolygons.reserve(mZones.size());  // The tree borrows elements.
        for (int i = 0; i < count; ++i) {
            const GEOSGeometry* polygon = GEOSGetGeometryN(mAll.get(), i);
            mPolygons.push_back({offlinetz::PreparedPtr(GEOSPrepare(polygon)),
                                 &mZones[static_cast<size_t>(i)]});
            mTree.Insert(polygon, &mPolygons.back());
        }
    }

    std::vector<std::string> ZonesAt(const Point& p) override {
        const GeometryPtr point(GEOSGeom_createPointFromXY(double(p.lon), double(p.lat)));
        std::vector<std::string> zones;
        for (const Polygon* polygon : mTree.Query(point.get())) {
            if (GEOSPreparedIntersects(polygon->prepared.get(), point.get()) == 1)
                zones.push_back(*polygon->tzid);
        }
        SortAndRemoveDuplicates(&zones);
        return zones;
    }

  private:
    struct Polygon {
        offlinetz::PreparedPtr prepared;
        const std::string* tzid;
    };

    std::vector<std::string> mZones;
    GeometryPtr mAll;
    std::vector<Polygon> mPolygons;
    offlinetz::BoxTree<Polygon> mTree;
};

}  // namespace

std::string_view MapFile(const std::string& path) {
    const size_t size = std::filesystem::file_size(path);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
    if (file >= 0) close(file);
    if (data == MAP_FAILED) throw std::runtime_error(path + ": cannot be mapped");
    return {static_cast<const char*>(data), size};
}

void WriteGeosPolygons(const offlinetz::Source& source, const std::string& directory) {
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
    if (bytes == nullptr) throw std::runtime_error(offlinetz::LastGeometryError());
    offlinetz::WriteOutput(directory + kFileName, {bytes, bytes + size});
    GEOSFree(bytes);
}

std::vector<PeerKind> GeosPeers(const std::string& directory) {
    return {{"GEOS", directory + kFileName,
             [directory] { return std::make_shared<GeosPeer>(directory); }}};
}

}  // namespace bench
