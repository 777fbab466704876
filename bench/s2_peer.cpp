#include "peer.h"

#ifdef OFFLINETZ_HAS_S2
#include <s2/encoded_s2shape_index.h>
#include <s2/mutable_s2shape_index.h>
#include <s2/s2contains_point_query.h>
#include <s2/s2edge_tessellator.h>
#include <s2/s2latlng.h>
#include <s2/s2lax_polygon_shape.h>
#include <s2/s2projections.h>
#include <s2/s2shapeutil_coding.h>

#include <cmath>

#include "database/grid.h"
#include "database/output_file.h"

namespace bench {

namespace {

constexpr char kFileName[] = "/polygons.s2";

// Removes rounding errors, so that 180 degrees east and west are one point, and so is a pole at
// every longitude.
S2Point WithoutRoundingErrors(const S2Point& p) {
    const auto clean = [](double x) { return std::fabs(x) < 1e-15 ? 0.0 : x; };
    return {clean(p.x()), clean(p.y()), clean(p.z())};
}

// A ring on the sphere, given as x and y in turn. S2 takes the area on the left of a loop.
std::vector<S2Point> LoopOf(const std::vector<double>& xy, bool isReversed) {
    static const S2::PlateCarreeProjection kProjection(180.0);
    static const S2EdgeTessellator kTessellator(
            &kProjection, S1Angle::Degrees(1.0 / offlinetz::Grid::kMetresPerDegree));
    std::vector<S2Point> points;
    for (size_t i = 0; i < xy.size(); i += 2) {
        const size_t next = i + 2 < xy.size() ? i + 2 : 0;
        kTessellator.AppendUnprojected(R2Point(xy[i], xy[i + 1]), R2Point(xy[next], xy[next + 1]),
                                       &points);
    }
    std::transform(points.begin(), points.end(), points.begin(), WithoutRoundingErrors);
    points.erase(std::unique(points.begin(), points.end()), points.end());
    while (points.size() > 1 && points.back() == points.front())
        points.pop_back();
    if (isReversed) std::reverse(points.begin(), points.end());
    return points;
}

using ShapeDecoder = s2shapeutil::TaggedShapeFactory (*)(Decoder*);

template <typename Index>
class S2Peer : public Peer {
  public:
    S2Peer(const std::string& directory, ShapeDecoder shapes)
        : mFile(MapFile(directory + kFileName)), mDecoder(mFile.data(), mFile.size()) {
        if (!mIndex.Init(&mDecoder, shapes(&mDecoder)))
            throw std::runtime_error(directory + kFileName + ": S2 could not decode it");
        mZones = ReadPolygonZones(directory, mIndex.num_shape_ids());
        mQuery.Init(&mIndex, S2ContainsPointQueryOptions(S2VertexModel::CLOSED));
    }

    std::vector<std::string> ZonesAt(const Point& p) override {
        std::vector<std::string> zones;
        const S2LatLng at = S2LatLng::FromDegrees(double(p.lat), double(p.lon)).Normalized();
        mQuery.VisitContainingShapes(at.ToPoint(), [&](const S2Shape* shape) {
            zones.push_back(mZones[static_cast<size_t>(shape->id())]);
            return true;
        });
        SortAndRemoveDuplicates(&zones);
        return zones;
    }

  private:
    std::vector<std::string> mZones;
    const std::string_view mFile;  // Stays mapped.
    Decoder mDecoder;
    Index mIndex;
    S2ContainsPointQuery<Index> mQuery;
};

}  // namespace

void WriteS2Polygons(const offlinetz::Source& source, const std::string& directory) {
    MutableS2ShapeIndex index;
    VisitPolygons(source, [&](const std::string&, const GEOSGeometry* polygon) {
        std::vector<std::vector<S2Point>> loops;
        offlinetz::VisitRings(polygon,
                              [&](const std::vector<double>& xy, bool isHole, bool isClockwise) {
                                  loops.push_back(LoopOf(xy, isClockwise != isHole));
                              });
        index.Add(std::make_unique<S2LaxPolygonShape>(loops));
    });
    Encoder encoder;
    if (!s2shapeutil::FastEncodeTaggedShapes(index, &encoder))
        throw std::runtime_error("S2 could not encode the polygons");
    index.Encode(&encoder);
    offlinetz::WriteOutput(directory + kFileName,
                           {encoder.base(), encoder.base() + encoder.length()});
}

std::vector<PeerKind> S2Peers(const std::string& directory) {
    return {{"S2, encoded index", directory + kFileName,
             [directory] {
                 return std::make_shared<S2Peer<EncodedS2ShapeIndex>>(
                         directory, s2shapeutil::LazyDecodeShapeFactory);
             }},
            {"S2, decoded index", directory + kFileName, [directory] {
                 return std::make_shared<S2Peer<MutableS2ShapeIndex>>(
                         directory, s2shapeutil::FullDecodeShapeFactory);
             }}};
}

}  // namespace bench

#else

namespace bench {

void WriteS2Polygons(const offlinetz::Source&, const std::string&) {}

std::vector<PeerKind> S2Peers(const std::string&) {
    return {};
}

}  // namespace bench

#endif
