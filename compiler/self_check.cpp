#include "self_check.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "database/answer.h"
#include "database/random_points.h"
#include "edge_error.h"

namespace offlinetz {

namespace {

constexpr size_t kChunkPoints = 32;
// Points near a border are chosen within this distance of it, or within this multiple of the
// allowed distance, whichever is more. Points within the allowed distance only could not show that
// a border moved further.
constexpr double kLeastNearMetres = 100.0;
constexpr double kNearPerAllowed = 1.5;

// Points beside each of the worst edges: their greatest number, the number of other points for each
// of them, the part of the error within which they lie, and how far along the edge they are spread,
// in units of latitude.
constexpr size_t kMostProbes = 200;
constexpr size_t kPointsPerProbe = 100;
constexpr double kProbeBand = 0.3;
constexpr double kProbeUnits = 16.0;

GeometryPtr PointAt(double x, double y) {
    return GeometryPtr(GEOSGeom_createPointFromXY(x, y));
}

GeometryPtr BoxGeometry(double xMin, double yMin, double xMax, double yMax) {
    return GeometryPtr(GEOSGeom_createRectangle(xMin, yMin, xMax, yMax));
}

struct PreparedPolygon {
    const std::string* tzid;
    PreparedPtr prepared;
};

// A ring of the source, closed by its first point at the end.
struct BorderRing {
    size_t zone;
    std::vector<double> xy;
};

struct BorderChunk {
    const BorderRing* ring;
    size_t firstPoint;
    size_t lastPoint;
};

}  // namespace

struct SourceLookup::Impl {
    const Source& source;
    std::vector<PreparedPolygon> polygons;
    std::vector<BorderRing> rings;
    std::vector<BorderChunk> chunks;
    std::vector<GeometryPtr> boxes;  // Of polygons and chunks; the trees borrow them.
    std::vector<size_t> ringEnds;    // The number of segments up to the end of each ring.
    BoxTree<PreparedPolygon> polygonTree;
    BoxTree<BorderChunk> chunkTree;
};

SourceLookup::SourceLookup(const Source& source)
    : mImpl(new Impl{source, {}, {}, {}, {}, {}, {}, {}}) {
    Impl& impl = *mImpl;
    for (size_t zone = 0; zone < source.zones.size(); ++zone) {
        const GEOSGeometry* area = source.zones[zone].area.get();
        for (int i = 0; i < GEOSGetNumGeometries(area); ++i) {
            const GEOSGeometry* polygon = GEOSGetGeometryN(area, i);
            impl.polygons.push_back({&source.zones[zone].tzid, PreparedPtr(GEOSPrepare(polygon))});
            impl.boxes.emplace_back(GEOSEnvelope(polygon));
        }
        VisitRings(area, [&](const std::vector<double>& xy, bool, bool) {
            impl.rings.push_back({zone, xy});
            impl.rings.back().xy.push_back(xy[0]);
            impl.rings.back().xy.push_back(xy[1]);
        });
    }
    for (size_t i = 0; i < impl.polygons.size(); ++i) {
        impl.polygonTree.Insert(impl.boxes[i].get(), &impl.polygons[i]);
    }
    size_t segments = 0;
    for (const BorderRing& ring : impl.rings) {
        const size_t last = ring.xy.size() / 2 - 1;
        segments += last;
        impl.ringEnds.push_back(segments);
        for (size_t first = 0; first < last; first += kChunkPoints) {
            impl.chunks.push_back({&ring, first, std::min(first + kChunkPoints, last)});
        }
    }
    for (const BorderChunk& chunk : impl.chunks) {
        double box[4] = {1e9, 1e9, -1e9, -1e9};
        for (size_t i = chunk.firstPoint; i <= chunk.lastPoint; ++i) {
            box[0] = std::min(box[0], chunk.ring->xy[2 * i]);
            box[1] = std::min(box[1], chunk.ring->xy[2 * i + 1]);
            box[2] = std::max(box[2], chunk.ring->xy[2 * i]);
            box[3] = std::max(box[3], chunk.ring->xy[2 * i + 1]);
        }
        impl.boxes.push_back(BoxGeometry(box[0], box[1], box[2], box[3]));
        impl.chunkTree.Insert(impl.boxes.back().get(), &chunk);
    }
}

SourceLookup::~SourceLookup() = default;

std::vector<std::string> SourceLookup::ZonesAt(double lat, double lon) const {
    const GeometryPtr point = PointAt(lon, lat);
    std::vector<std::string> zones;
    for (const PreparedPolygon* polygon : mImpl->polygonTree.Query(point.get())) {
        if (GEOSPreparedIntersects(polygon->prepared.get(), point.get()) == 1)
            zones.push_back(*polygon->tzid);
    }
    std::sort(zones.begin(), zones.end());
    zones.erase(std::unique(zones.begin(), zones.end()), zones.end());
    return zones;
}

std::string DifferenceText(double metres) {
    return std::isinf(metres) ? "more than ten times the certified error"
                              : fmt::format("{:.1f} m", metres);
}

double SourceLookup::MetresToBorder(double lat, double lon, const std::string& tzid,
                                    double within) const {
    const double dLat = within / Grid::kMetresPerDegree;
    const double dLon = std::min(180.0, dLat / std::max(CosineOfDegrees(lat), 1e-6));
    const GeometryPtr box = BoxGeometry(lon - dLon, lat - dLat, lon + dLon, lat + dLat);
    double squared = std::numeric_limits<double>::infinity();
    for (const BorderChunk* chunk : mImpl->chunkTree.Query(box.get())) {
        if (mImpl->source.zones[chunk->ring->zone].tzid != tzid) continue;
        const std::vector<double>& xy = chunk->ring->xy;
        for (size_t i = chunk->firstPoint; i < chunk->lastPoint; ++i) {
            squared = std::min(squared, SquaredMetresToSegment(lat, lon, xy[2 * i + 1], xy[2 * i],
                                                               xy[2 * i + 3], xy[2 * i + 2]));
        }
    }
    const double metres = std::sqrt(squared);
    return metres <= within ? metres : std::numeric_limits<double>::infinity();
}

void SourceLookup::PointNearBorder(double metres, const double (&random)[4], double* lat,
                                   double* lon) const {
    const Impl& impl = *mImpl;
    const size_t segment =
            static_cast<size_t>(random[0] * static_cast<double>(impl.ringEnds.back()));
    const size_t ring = static_cast<size_t>(
            std::upper_bound(impl.ringEnds.begin(), impl.ringEnds.end(), segment) -
            impl.ringEnds.begin());
    const size_t i = segment - (ring == 0 ? 0 : impl.ringEnds[ring - 1]);
    const double* p = impl.rings[ring].xy.data() + 2 * i;
    const double y = p[1] + random[1] * (p[3] - p[1]);
    const double x = p[0] + random[1] * (p[2] - p[0]);
    const double angle = random[2] * 360.0 / kDegreesPerRadian;
    const double degrees = random[3] * metres / Grid::kMetresPerDegree;
    *lat = std::clamp(y + degrees * std::sin(angle), -90.0, 90.0);
    *lon = std::clamp(x + degrees * std::cos(angle) / std::max(CosineOfDegrees(y), 1e-6), -180.0,
                      180.0);
}

std::vector<std::string> ZonesAt(const ZDDatabase& database, float lat, float lon) {
    Answer answer = LookUp(database, lat, lon);
    if (answer.isNautical) return {};
    std::sort(answer.zones.begin(), answer.zones.end());
    return std::move(answer.zones);
}

namespace {

// Compares answers at single points.
class Comparison {
  public:
    Comparison(const SourceLookup& truth, const ZDDatabase& database, double allowedMetres,
               SelfCheckResult* result)
        : mTruth(truth), mDatabase(database), mAllowedMetres(allowedMetres), mResult(*result) {}

    void At(double lat, double lon) {
        // The reader takes floats, so the source is asked about the same rounded point.
        const auto queryLat = static_cast<float>(lat);
        const auto queryLon = static_cast<float>(lon);
        lat = static_cast<double>(queryLat);
        lon = static_cast<double>(queryLon);
        const std::vector<std::string> expected = mTruth.ZonesAt(lat, lon);
        const std::vector<std::string> actual = ZonesAt(mDatabase, queryLat, queryLon);
        if (expected == actual) return;
        ++mResult.differences;
        std::vector<std::string> disputed;
        std::set_symmetric_difference(expected.begin(), expected.end(), actual.begin(),
                                      actual.end(), std::back_inserter(disputed));
        double metres = 0.0;
        for (const std::string& tzid : disputed)
            metres = std::max(metres, mTruth.MetresToBorder(lat, lon, tzid, 10.0 * mAllowedMetres));
        mResult.greatestMetres = std::max(mResult.greatestMetres, metres);
        if (metres <= mAllowedMetres) return;
        mResult.failures.push_back(fmt::format(
                "{:.6f} {:.6f}: the source says [{}], the database says [{}], {} from a border",
                lat, lon, fmt::join(expected, ", "), fmt::join(actual, ", "),
                DifferenceText(metres)));
    }

  private:
    const SourceLookup& mTruth;
    const ZDDatabase& mDatabase;
    const double mAllowedMetres;
    SelfCheckResult& mResult;
};

// Looks at points beside an edge, as far from the point of the source that decides its error as
// that error, on the other side of the edge. There the reader is expected to be wrong, if its
// rounding is as unfavourable as the certificate assumes.
void ProbeEdge(const CertifiedEdge& edge, const Grid& grid, size_t probes, RandomPoints* random,
               Comparison* compare) {
    const double my = grid.LatitudeMetres();
    const double mx = grid.LongitudeMetres(edge.original.vertex.lat);
    const double dx = (static_cast<double>(edge.to.lon) - edge.from.lon) * mx;
    const double dy = (static_cast<double>(edge.to.lat) - edge.from.lat) * my;
    const double length = std::sqrt(dx * dx + dy * dy);
    const double px = (edge.original.Lon() - edge.from.lon) * mx;
    const double py =
            (edge.original.Lat() +
             EdgeError(grid, edge.from, edge.to).LatitudeShift(edge.original) - edge.from.lat) *
            my;
    const double side = dx * py - dy * px > 0.0 ? -1.0 : 1.0;
    for (size_t i = 0; i < probes; ++i) {
        const double across = side * edge.metres * (1.0 - kProbeBand * random->Uniform());
        const double along = kProbeUnits * my * (2.0 * random->Uniform() - 1.0);
        const double x = (along * dx - across * dy) / length;
        const double y = (along * dy + across * dx) / length;
        const double lat = grid.LatitudeDegrees(edge.original.Lat() + y / my);
        const double lon = grid.LongitudeDegrees(edge.original.Lon() + x / std::max(mx, 1e-6));
        if (std::abs(lat) <= 90.0 && std::abs(lon) <= 180.0) compare->At(lat, lon);
    }
}

}  // namespace

SelfCheckResult SelfCheck(const Source& source, const ZDDatabase& database, const Grid& grid,
                          const Certificate& certificate, size_t points, uint64_t seed,
                          const ProgressCallback& progress) {
    const SourceLookup truth(source);
    RandomPoints random(seed);
    SelfCheckResult result;
    result.points = points;
    Comparison compare(truth, database, certificate.metres, &result);
    const double nearMetres = std::max(kLeastNearMetres, kNearPerAllowed * certificate.metres);
    for (size_t i = 0; i < points; ++i) {
        if (i % 2 == 0) {
            const double numbers[4] = {random.Uniform(), random.Uniform(), random.Uniform(),
                                       random.Uniform()};
            double lat;
            double lon;
            truth.PointNearBorder(nearMetres, numbers, &lat, &lon);
            ++result.nearBorder;
            compare.At(lat, lon);
        } else {
            const Degrees point = random.OnSphere();
            compare.At(point.lat, point.lon);
        }
        progress("checking", i + 1, points);
    }
    const size_t probes = std::min(kMostProbes, 1 + points / kPointsPerProbe);
    for (const CertifiedEdge& edge : certificate.worst) {
        progress("probing", result.probes / probes, certificate.worst.size());
        ProbeEdge(edge, grid, probes, &random, &compare);
        result.probes += probes;
    }
    return result;
}

}  // namespace offlinetz
