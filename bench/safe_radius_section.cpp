#include <fmt/format.h>
#include <reader/box_table.h>
#include <reader/varint.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "input_files.h"
#include "reader.h"
#include "sections.h"

namespace bench {

namespace {

constexpr size_t kPoints = 500;  // Each on land and at sea.
constexpr uint64_t kSeaSeed = 3;
constexpr double kQuantiles[] = {0.01, 0.1, 0.25, 0.5, 0.75, 0.9, 0.99, 1.0};

// A plane on which degrees of latitude and of longitude count alike, in units of latitude.
struct Vector {
    double y;
    double x;
};
Vector OnPlane(const zonedetect::Point& p) {
    return {static_cast<double>(p.lat), 2.0 * p.lon};
}

struct Edge {
    Vector from;
    Vector to;
};

// All edges of a database of whole rings.
std::vector<Edge> EdgesOf(const ZDDatabase& database) {
    using namespace zonedetect;
    std::vector<Edge> edges;
    TableReader table(database, TableReader::Start(database));
    while (table.Next()) {
        Cursor cursor =
                CursorAt(database, database.polygonDataOffset + table.Place().polygonOffset);
        uint32_t count = 0;
        bool isRead = ReadUnsigned(&cursor, &count);
        std::vector<Vector> ring;
        zonedetect::Point at = {0, zonedetect::kRingShift};
        for (uint32_t i = 0; isRead && i < count; ++i) {
            zonedetect::Point step = {0, 0};
            isRead = ReadSigned(&cursor, &step.lat) && ReadSigned(&cursor, &step.lon);
            at = {at.lat + step.lat, at.lon + step.lon};
            ring.push_back(OnPlane(at));
        }
        if (!isRead) throw std::runtime_error("a ring of the database cannot be read");
        for (size_t i = 0; i < ring.size(); ++i)
            edges.push_back({ring[i], ring[(i + 1) % ring.size()]});
    }
    return edges;
}

double Distance(const Vector& p, const Edge& edge) {
    const double dx = edge.to.x - edge.from.x;
    const double dy = edge.to.y - edge.from.y;
    const double along = ((p.x - edge.from.x) * dx + (p.y - edge.from.y) * dy) /
                         std::max(dx * dx + dy * dy, 1e-9);
    const double t = std::min(1.0, std::max(0.0, along));
    return std::hypot(edge.from.x + t * dx - p.x, edge.from.y + t * dy - p.y);
}

// A row of quantiles of the safe radius's share of the true distance.
std::string Row(const char* name, const ZDDatabase& database, const std::vector<Edge>& edges,
                const std::vector<Point>& points) {
    const float scale = zonedetect::Scale(database);
    std::vector<double> shares;
    for (const Point& p : points) {
        const Vector at = OnPlane({zonedetect::LatitudeUnits(p.lat, scale),
                                   zonedetect::LongitudeUnits(p.lon, scale)});
        double truth = std::numeric_limits<double>::infinity();
        for (const Edge& edge : edges)
            truth = std::min(truth, Distance(at, edge));
        const double units = static_cast<double>(LookWithDistance(&database, p)) / 90.0 *
                             static_cast<double>(scale);
        shares.push_back(truth == 0.0 ? 0.0 : 0.75 * units / truth);
    }
    std::sort(shares.begin(), shares.end());
    std::string row = fmt::format("| {} |", name);
    for (const double q : kQuantiles) {
        const auto place = static_cast<size_t>(q * static_cast<double>(shares.size()));
        row += fmt::format(" {:.2f} |", shares[std::min(place, shares.size() - 1)]);
    }
    return row + "\n";
}

}  // namespace

std::string SafeRadiusSection(const std::string& directory) {
    const DatabasePtr tiled = OpenDatabase(DefaultWorldFile(directory));
    const std::vector<Edge> edges =
            EdgesOf(*OpenDatabase(WorldFile(directory, kWhole, kDefaultTolerance)));
    const std::vector<Point> sea = DrawPoints(kPoints, kSeaSeed, [&](Random* random) {
        for (;;) {
            const Point p = random->OnSphere();
            ZDResult* results = ZDLookup(tiled.get(), p.lat, p.lon, nullptr);
            const bool isSea = results[0].result == ZDLookupEnd;
            ZDFreeResults(results);
            if (isSea) return p;
        }
    });
    std::string text = fmt::format(
            "## The safe radius\n\n"
            "Three quarters of the distance that a lookup in the tiled database reports, within "
            "which no point has other zones, as a share of the true distance to the nearest of all "
            "{} edges, a degree of longitude counted as one of latitude. At most 1 is right; much "
            "less than 0.75 means that a device asks more often than it needs to. {} points each; "
            "how many per cent of them have a share of so much or less:\n\n|  |",
            fmt::group_digits(edges.size()), kPoints);
    std::string rule = "|---|";
    for (const double q : kQuantiles) {
        text += fmt::format(" {:.0f} % |", 100.0 * q);
        rule += "--:|";
    }
    return text + "\n" + rule + "\n" +
           Row("on land", *tiled, edges, LandPoints(tiled.get(), kPoints)) +
           Row("at sea", *tiled, edges, sea);
}

}  // namespace bench
