#include "self_check.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace offlinetz {

namespace {

constexpr size_t kChunkPoints = 32;
// Points near a border are drawn within this distance of it, or within this multiple of what an
// answer may be off, whichever is more: closer ones would show no greater displacement.
constexpr double kLeastNearMetres = 100.0;
constexpr double kNearPerAllowed = 1.5;
constexpr double kDegreesPerRadian = 57.29577951308232;

struct TreeDeleter {
    void operator()(GEOSSTRtree* tree) const { GEOSSTRtree_destroy(tree); }
};
using TreePtr = std::unique_ptr<GEOSSTRtree, TreeDeleter>;

struct PreparedDeleter {
    void operator()(const GEOSPreparedGeometry* prepared) const {
        GEOSPreparedGeom_destroy(prepared);
    }
};

GeometryPtr PointAt(double x, double y) {
    return GeometryPtr(GEOSGeom_createPointFromXY(x, y));
}

GeometryPtr BoxGeometry(double xMin, double yMin, double xMax, double yMax) {
    return GeometryPtr(GEOSGeom_createRectangle(xMin, yMin, xMax, yMax));
}

struct PreparedPolygon {
    const std::string* tzid;
    std::unique_ptr<const GEOSPreparedGeometry, PreparedDeleter> prepared;
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

double Uniform(std::mt19937_64* random) {
    return static_cast<double>((*random)() >> 11) * (1.0 / 9007199254740992.0);
}

}  // namespace

struct SourceLookup::Impl {
    const Source& source;
    std::vector<PreparedPolygon> polygons;
    std::vector<BorderRing> rings;
    std::vector<BorderChunk> chunks;
    std::vector<GeometryPtr> boxes;  // Of polygons and chunks; the trees borrow them.
    std::vector<size_t> ringEnds;    // Running count of segments, to draw one evenly.
    TreePtr polygonTree{GEOSSTRtree_create(10)};
    TreePtr chunkTree{GEOSSTRtree_create(10)};
};

SourceLookup::SourceLookup(const Source& source) : mImpl(new Impl{source, {}, {}, {}, {}, {}}) {
    Impl& impl = *mImpl;
    for (size_t zone = 0; zone < source.zones.size(); ++zone) {
        const GEOSGeometry* area = source.zones[zone].area.get();
        for (int i = 0; i < GEOSGetNumGeometries(area); ++i) {
            const GEOSGeometry* polygon = GEOSGetGeometryN(area, i);
            impl.polygons.push_back({&source.zones[zone].tzid,
                                     std::unique_ptr<const GEOSPreparedGeometry, PreparedDeleter>(
                                             GEOSPrepare(polygon))});
            impl.boxes.emplace_back(GEOSEnvelope(polygon));
        }
        VisitRings(area, [&](const std::vector<double>& xy, bool, bool) {
            impl.rings.push_back({zone, xy});
            impl.rings.back().xy.push_back(xy[0]);
            impl.rings.back().xy.push_back(xy[1]);
        });
    }
    for (size_t i = 0; i < impl.polygons.size(); ++i) {
        GEOSSTRtree_insert(impl.polygonTree.get(), impl.boxes[i].get(), &impl.polygons[i]);
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
    for (BorderChunk& chunk : impl.chunks) {
        double box[4] = {1e9, 1e9, -1e9, -1e9};
        for (size_t i = chunk.firstPoint; i <= chunk.lastPoint; ++i) {
            box[0] = std::min(box[0], chunk.ring->xy[2 * i]);
            box[1] = std::min(box[1], chunk.ring->xy[2 * i + 1]);
            box[2] = std::max(box[2], chunk.ring->xy[2 * i]);
            box[3] = std::max(box[3], chunk.ring->xy[2 * i + 1]);
        }
        impl.boxes.push_back(BoxGeometry(box[0], box[1], box[2], box[3]));
        GEOSSTRtree_insert(impl.chunkTree.get(), impl.boxes.back().get(), &chunk);
    }
}

SourceLookup::~SourceLookup() = default;

std::vector<std::string> SourceLookup::ZonesAt(double lat, double lon) const {
    struct Query {
        GeometryPtr point;
        std::vector<std::string> zones;
    } query{PointAt(lon, lat), {}};
    GEOSSTRtree_query(
            mImpl->polygonTree.get(), query.point.get(),
            [](void* item, void* data) {
                const auto* polygon = static_cast<const PreparedPolygon*>(item);
                auto* q = static_cast<Query*>(data);
                if (GEOSPreparedIntersects(polygon->prepared.get(), q->point.get()) == 1) {
                    q->zones.push_back(*polygon->tzid);
                }
            },
            &query);
    std::sort(query.zones.begin(), query.zones.end());
    query.zones.erase(std::unique(query.zones.begin(), query.zones.end()), query.zones.end());
    return query.zones;
}

double SourceLookup::MetresToBorder(double lat, double lon, const std::string& tzid,
                                    double within) const {
    struct Query {
        const Impl& impl;
        double lat;
        double lon;
        const std::string& tzid;
        double squared;
    } query{*mImpl, lat, lon, tzid, std::numeric_limits<double>::infinity()};
    const double dLat = within / Grid::kMetresPerDegree;
    const double dLon = std::min(180.0, dLat / std::max(CosineOfDegrees(lat), 1e-6));
    const GeometryPtr box = BoxGeometry(lon - dLon, lat - dLat, lon + dLon, lat + dLat);
    GEOSSTRtree_query(
            mImpl->chunkTree.get(), box.get(),
            [](void* item, void* data) {
                const auto* chunk = static_cast<const BorderChunk*>(item);
                auto* q = static_cast<Query*>(data);
                if (q->impl.source.zones[chunk->ring->zone].tzid != q->tzid) return;
                const std::vector<double>& xy = chunk->ring->xy;
                for (size_t i = chunk->firstPoint; i < chunk->lastPoint; ++i) {
                    q->squared = std::min(
                            q->squared,
                            SquaredMetresToSegment(q->lat, q->lon, xy[2 * i + 1], xy[2 * i],
                                                   xy[2 * i + 3], xy[2 * i + 2]));
                }
            },
            &query);
    const double metres = std::sqrt(query.squared);
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

std::vector<std::string> ZonesAt(const ZDDatabase* database, float lat, float lon) {
    std::vector<std::string> zones;
    ZDResult* results = ZDLookup(database, lat, lon, nullptr);
    if (results == nullptr) throw std::bad_alloc();
    for (const ZDResult* r = results; r->result != ZDLookupEnd; ++r) {
        std::string zone =
                r->fieldValues != nullptr && r->fieldValues[0] != nullptr ? r->fieldValues[0] : "";
        if (zone.size() >= 2 && zone.front() == '"') zone = zone.substr(1, zone.size() - 2);
        zones.push_back(std::move(zone));
    }
    ZDFreeResults(results);
    std::sort(zones.begin(), zones.end());
    return zones;
}

SelfCheckResult SelfCheck(const Source& source, const ZDDatabase* database, const Grid& grid,
                          double tolerance, size_t points, uint64_t seed,
                          const std::function<void(const char*, size_t, size_t)>& progress) {
    const SourceLookup truth(source);
    std::mt19937_64 random(seed);
    SelfCheckResult result;
    result.points = points;
    const double nearMetres =
            std::max(kLeastNearMetres, kNearPerAllowed * (tolerance + grid.RoundingMetres(0)));
    for (size_t i = 0; i < points; ++i) {
        double lat;
        double lon;
        if (i % 2 == 0) {
            const double numbers[4] = {Uniform(&random), Uniform(&random), Uniform(&random),
                                       Uniform(&random)};
            truth.PointNearBorder(nearMetres, numbers, &lat, &lon);
            ++result.nearBorder;
        } else {
            lat = std::asin(2.0 * Uniform(&random) - 1.0) * kDegreesPerRadian;
            lon = 360.0 * Uniform(&random) - 180.0;
        }
        // Both sides see the point as the reader's floats hold it.
        const auto queryLat = static_cast<float>(lat);
        const auto queryLon = static_cast<float>(lon);
        lat = static_cast<double>(queryLat);
        lon = static_cast<double>(queryLon);

        const std::vector<std::string> expected = truth.ZonesAt(lat, lon);
        const std::vector<std::string> actual = ZonesAt(database, queryLat, queryLon);
        progress("checking", i + 1, points);
        if (expected == actual) continue;
        ++result.differences;
        std::vector<std::string> disputed;
        std::set_symmetric_difference(expected.begin(), expected.end(), actual.begin(),
                                      actual.end(), std::back_inserter(disputed));
        const GridPoint units = grid.FromDegrees(lat, lon);
        const double allowed = tolerance + grid.RoundingMetres(units.lat);
        double metres = 0.0;
        for (const std::string& tzid : disputed) {
            metres = std::max(metres, truth.MetresToBorder(lat, lon, tzid, 10.0 * allowed));
        }
        result.greatestMetres = std::max(result.greatestMetres, metres);
        if (metres > allowed) {
            result.failures.push_back(fmt::format(
                    "{:.6f} {:.6f}: the source says [{}], the database says [{}], {:.1f} m from "
                    "a border",
                    lat, lon, fmt::join(expected, ", "), fmt::join(actual, ", "), metres));
        }
    }
    return result;
}

}  // namespace offlinetz
