#include "s2_peer.h"

#include <s2/encoded_s2shape_index.h>
#include <s2/mutable_s2shape_index.h>
#include <s2/s2contains_point_query.h>
#include <s2/s2edge_tessellator.h>
#include <s2/s2latlng.h>
#include <s2/s2lax_polygon_shape.h>
#include <s2/s2projections.h>
#include <s2/s2shapeutil_coding.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "files.h"

namespace bench {

namespace {

constexpr double kEarthRadiusMetres = 6371008.8;

// Both names of the antimeridian, and all of a pole, as one point.
S2Point WithoutNoise(const S2Point& p) {
    const auto clean = [](double x) { return std::fabs(x) < 1e-15 ? 0.0 : x; };
    return {clean(p.x()), clean(p.y()), clean(p.z())};
}

// A ring, x then y, whose inside lies to the left.
std::vector<S2Point> LoopOf(const std::vector<double>& xy, bool reversed) {
    static const S2::PlateCarreeProjection kProjection(180.0);
    static const S2EdgeTessellator kTessellator(&kProjection,
                                                S1Angle::Radians(1.0 / kEarthRadiusMetres));
    std::vector<S2Point> points;
    const size_t count = xy.size() / 2;
    for (size_t i = 0; i < count; ++i) {
        const size_t next = 2 * ((i + 1) % count);
        kTessellator.AppendUnprojected(R2Point(xy[2 * i], xy[2 * i + 1]),
                                       R2Point(xy[next], xy[next + 1]), &points);
    }
    std::transform(points.begin(), points.end(), points.begin(), WithoutNoise);
    points.erase(std::unique(points.begin(), points.end()), points.end());
    while (points.size() > 1 && points.back() == points.front())
        points.pop_back();
    if (reversed) std::reverse(points.begin(), points.end());
    return points;
}

template <typename Index>
class S2Peer : public Peer {
  public:
    S2Peer(const std::string& polygonsPath, const std::string& zonesPath, bool lazily)
        : mZones(ReadLines(zonesPath)), mFile(polygonsPath), mDecoder(mFile.Data(), mFile.Size()) {
        const auto shapes = lazily ? s2shapeutil::LazyDecodeShapeFactory(&mDecoder)
                                   : s2shapeutil::FullDecodeShapeFactory(&mDecoder);
        if (!mIndex.Init(&mDecoder, shapes) ||
            static_cast<size_t>(mIndex.num_shape_ids()) != mZones.size()) {
            throw std::runtime_error(polygonsPath + ": is not what " + zonesPath + " belongs to");
        }
        mQuery.Init(&mIndex, S2ContainsPointQueryOptions(S2VertexModel::CLOSED));
    }

    void Look(float lat, float lon) override { ZonesAt(lat, lon); }

    std::vector<std::string> ZonesAt(float lat, float lon) override {
        std::vector<std::string> zones;
        mQuery.VisitContainingShapes(
                S2LatLng::FromDegrees(static_cast<double>(lat), static_cast<double>(lon))
                        .Normalized()
                        .ToPoint(),
                [&](const S2Shape* shape) {
                    zones.push_back(mZones[static_cast<size_t>(shape->id())]);
                    return true;
                });
        std::sort(zones.begin(), zones.end());
        zones.erase(std::unique(zones.begin(), zones.end()), zones.end());
        return zones;
    }

  private:
    std::vector<std::string> mZones;
    MappedFile mFile;
    Decoder mDecoder;
    Index mIndex;
    S2ContainsPointQuery<Index> mQuery;
};

}  // namespace

bool HasS2() {
    return true;
}

void WriteS2Polygons(const offlinetz::Source& source, const std::string& path) {
    MutableS2ShapeIndex index;
    for (const offlinetz::Zone& zone : source.zones) {
        for (int i = 0; i < GEOSGetNumGeometries(zone.area.get()); ++i) {
            std::vector<std::vector<S2Point>> loops;
            offlinetz::VisitRings(
                    GEOSGetGeometryN(zone.area.get(), i),
                    [&](const std::vector<double>& xy, bool isHole, bool isClockwise) {
                        loops.push_back(LoopOf(xy, isClockwise != isHole));
                    });
            index.Add(std::make_unique<S2LaxPolygonShape>(loops));
        }
    }
    Encoder encoder;
    if (!s2shapeutil::FastEncodeTaggedShapes(index, &encoder))
        throw std::runtime_error(path + ": S2 could not encode the polygons");
    index.Encode(&encoder);
    WriteFile(path, encoder.base(), encoder.length());
}

std::unique_ptr<Peer> LoadS2(S2Index kind, const std::string& polygonsPath,
                             const std::string& zonesPath) {
    if (kind == S2Index::kEncoded)
        return std::make_unique<S2Peer<EncodedS2ShapeIndex>>(polygonsPath, zonesPath, true);
    return std::make_unique<S2Peer<MutableS2ShapeIndex>>(polygonsPath, zonesPath, false);
}

}  // namespace bench
