#include "input_polygon.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

#include "antimeridian.h"
#include "input_error.h"
#include "snap_rounding.h"
#include "sphere_area.h"

namespace offlinetz {

namespace {

namespace dom = simdjson::dom;

constexpr size_t kMinRingPositions = 4;  // Three points and the first one again.
// About 100 m x 100 m. A repair that changes an area by less is negligible in any polygon.
constexpr double kRepairSquareDegrees = 1e-6;
// A polygon is not repaired if its edges cross more than this many times their number. The cost of
// a repair grows with the crossings, and every pair of edges may cross.
constexpr size_t kMaxCrossingsPerEdge = 8;
// Crossings are counted on a grid of this many units a degree, about 5 cm each. Three turns of
// longitude fit its 32 bits.
constexpr double kUnitsPerDegree = 1 << 21;

// --- Rings -------------------------------------------------------------------------------

Positions ReadRing(const dom::element& element, const std::string& where) {
    dom::array positions;
    if (element.get(positions)) ThrowInputError(where, "a ring is not an array of positions");
    Positions xy;
    xy.reserve(2 * positions.size());
    for (const dom::element position : positions) {
        dom::array pair;
        double lon;
        double lat;
        if (position.get(pair) || pair.size() < 2 || pair.at(0).get(lon) || pair.at(1).get(lat)) {
            ThrowInputError(where, "a position is not an array of longitude and latitude");
        }
        if (!(std::fabs(lon) <= kMaxLongitude) || !(std::fabs(lat) <= 90.0)) {
            ThrowInputError(where, fmt::format("a ring leaves the world at {}, {} (longitude, "
                                               "latitude)",
                                               lon, lat));
        }
        xy.push_back(lon);
        xy.push_back(lat);
    }
    const size_t count = xy.size() / 2;
    if (count < kMinRingPositions) {
        ThrowInputError(where, fmt::format("a ring has {} positions; a closed ring has at least "
                                           "three points and the first one again",
                                           count));
    }
    if (xy[0] != xy[xy.size() - 2] || xy[1] != xy[xy.size() - 1]) {
        ThrowInputError(where, fmt::format("a ring is open: it starts at {}, {} and ends at {}, {}",
                                           xy[0], xy[1], xy[xy.size() - 2], xy[xy.size() - 1]));
    }
    return xy;
}

bool IsBeyond180(const Positions& ring) {
    for (size_t i = 0; i < ring.size(); i += 2) {
        if (std::fabs(ring[i]) > 180.0) return true;
    }
    return false;
}

// The rings of a polygon, and how many of their edges are long.
struct InputRings {
    std::vector<Positions> rings;  // The exterior ring, then holes; at least one.
    size_t points = 0;
    LongEdges longEdges;       // Of all rings; firstCrossing is not set.
    bool isBeyond180 = false;  // Whether any longitude is beyond 180 or -180 degrees.
};

[[noreturn]] void ThrowForLongEdge(const Positions& ring, size_t position,
                                   const std::string& where) {
    const double* p = &ring[2 * position];
    ThrowInputError(
            where,
            fmt::format("the edge from {}, {} to {}, {} (longitude, latitude) spans {} degrees of "
                        "longitude; --cross-antimeridian has such edges cross the antimeridian, a "
                        "point in between has one go the long way",
                        p[0], p[1], p[2], p[3], std::fabs(p[2] - p[0])));
}

// An edge of more than a turn could cross the antimeridian once or twice.
void RequireEdgesWithinTurn(const Positions& ring, const std::string& where) {
    for (size_t i = 2; i < ring.size(); i += 2) {
        const double span = std::fabs(ring[i] - ring[i - 2]);
        if (span <= 360.0) continue;
        ThrowInputError(where, fmt::format("the edge from {}, {} to {}, {} (longitude, latitude) "
                                           "spans {} degrees of longitude, more than the world",
                                           ring[i - 2], ring[i - 1], ring[i], ring[i + 1], span));
    }
}

InputRings ReadRings(const dom::element& element, const std::string& where,
                     bool crossAntimeridian) {
    dom::array array;
    if (element.get(array) || array.size() == 0) {
        ThrowInputError(where, "a polygon is not an array of rings");
    }
    InputRings input;
    for (const dom::element ring : array) {
        input.rings.push_back(ReadRing(ring, where));
        RequireEdgesWithinTurn(input.rings.back(), where);
        input.points += input.rings.back().size() / 2 - 1;
        const LongEdges more = CountLongEdges(input.rings.back());
        if (more.crossing > 0 && !crossAntimeridian) {
            ThrowForLongEdge(input.rings.back(), more.firstCrossing, where);
        }
        input.longEdges.crossing += more.crossing;
        input.longEdges.aroundTheWorld += more.aroundTheWorld;
        input.isBeyond180 = input.isBeyond180 || IsBeyond180(input.rings.back());
    }
    return input;
}

// --- Polygons ----------------------------------------------------------------------------

// A polygon of `count` rings: the exterior one, then holes. It may be invalid.
GeometryPtr MakePolygon(const Positions* rings, size_t count, const std::string& where) {
    std::vector<GeometryPtr> made;
    for (size_t i = 0; i < count; ++i) {
        GEOSCoordSequence* sequence = GEOSCoordSeq_copyFromBuffer(
                rings[i].data(), static_cast<unsigned>(rings[i].size() / 2), /*hasZ=*/0,
                /*hasM=*/0);
        GEOSGeometry* ring = sequence != nullptr ? GEOSGeom_createLinearRing(sequence) : nullptr;
        made.push_back(RequireGeometry(ring, where));
    }
    GeometryPtr exterior = std::move(made.front());
    made.erase(made.begin());
    std::vector<GEOSGeometry*> holes = ReleaseAll(std::move(made));
    return RequireGeometry(GEOSGeom_createPolygon(exterior.release(), holes.data(),
                                                  static_cast<unsigned>(holes.size())),
                           where);
}

bool CrossesTooOften(const GEOSGeometry* polygon) {
    const auto toGrid = [](const std::vector<double>& xy, size_t i) {
        return GridPoint{static_cast<int32_t>(xy[i + 1] * kUnitsPerDegree),
                         static_cast<int32_t>(xy[i] * kUnitsPerDegree)};
    };
    std::vector<Edge> edges;
    VisitRings(polygon, [&](const std::vector<double>& xy, bool, bool) {
        for (size_t i = 0; i < xy.size(); i += 2) {
            const Edge edge = {toGrid(xy, i), toGrid(xy, i + 2 < xy.size() ? i + 2 : 0)};
            if (edge.a != edge.b) edges.push_back(edge);
        }
    });
    return CrossingsExceed(edges, kMaxCrossingsPerEdge * edges.size());
}

// The library's reason why a polygon is invalid, in the terms of this program's messages.
std::string_view PlainReason(std::string_view reason) {
    static constexpr std::pair<std::string_view, std::string_view> kReasons[] = {
            {"Too few points in geometry component", "a ring collapses to a line"},
            {"Ring Self-intersection", "a ring touches itself"},
            {"Hole lies outside shell", "a hole lies outside the exterior ring"},
            {"Holes are nested", "a hole lies in another hole"},
            {"Interior is disconnected", "rings that touch cut the interior in parts"},
            {"Duplicate Rings", "two rings are the same"},
    };
    for (const auto& [text, plain] : kReasons) {
        if (reason == text) return plain;
    }
    return reason;
}

// What makes a polygon invalid and where; empty if nothing does.
std::string DescribeFault(const GEOSGeometry* polygon) {
    char* text = nullptr;
    GEOSGeometry* place = nullptr;
    const char valid = GEOSisValidDetail(polygon, 0, &text, &place);
    const std::string reason = text != nullptr ? text : "invalid";
    GEOSFree(text);
    const GeometryPtr location(place);
    if (valid == 1) return "";
    double x = 0.0;
    double y = 0.0;
    if (location != nullptr && GEOSisEmpty(location.get()) == 0) {
        GEOSGeomGetX(location.get(), &x);
        GEOSGeomGetY(location.get(), &y);
    }
    return fmt::format("{} at {}, {}", PlainReason(reason), x, y);
}

// The area that the rings of a polygon enclose, as valid polygons: the library's "structure"
// method. Collapsed parts are dropped.
GeometryPtr Repair(const GEOSGeometry* polygon, const std::string& where) {
    GEOSMakeValidParams* params = GEOSMakeValidParams_create();
    GEOSMakeValidParams_setMethod(params, GEOS_MAKE_VALID_STRUCTURE);
    GEOSMakeValidParams_setKeepCollapsed(params, 0);
    GEOSGeometry* repaired = GEOSMakeValidWithParams(polygon, params);
    GEOSMakeValidParams_destroy(params);
    return RequireGeometry(repaired, where);
}

// Returns a valid polygon unchanged, and any other polygon repaired. Adds the repair to `input`.
GeometryPtr MakeValid(GeometryPtr polygon, const std::string& where, InputPolygon* input) {
    const std::string fault = DescribeFault(polygon.get());
    if (fault.empty()) return polygon;
    if (CrossesTooOften(polygon.get())) {
        ThrowInputError(where, fault + "; its edges cross too often to be repaired");
    }
    if (input->repair.empty()) input->repair = fault;
    GeometryPtr repaired = Repair(polygon.get(), where);
    const double before = std::fabs(SquareDegrees(polygon.get()));
    const double change = std::fabs(SquareDegrees(repaired.get()) - before);
    if (change > std::max(before * kRepairShare, kRepairSquareDegrees)) {
        input->changedSquareDegrees += change;
        input->changedKm2 +=
                std::fabs(SquareKilometres(repaired.get()) - SquareKilometres(polygon.get()));
    }
    return repaired;
}

// --- Polygons across the antimeridian ----------------------------------------------------

bool IsValid(const GeometryPtr& polygon) {
    return GEOSisValid(polygon.get()) == 1;
}

// Whether rings with edges around the world make a valid polygon only if those edges cross the
// antimeridian.
bool IsValidOnlyUnwrapped(std::vector<Positions> rings, const std::string& where) {
    if (IsValid(MakePolygon(rings.data(), rings.size(), where))) return false;
    std::string ignored;
    return std::all_of(rings.begin(), rings.end(), [&](Positions& ring) {
        return Unwrap(&ring, &ignored) && CanBeCut(ring, &ignored) &&
               IsValid(MakePolygon(&ring, 1, where));
    });
}

// The polygon of rings that lie across the antimeridian, cut there. `allCross`: edges around the
// world cross it too.
GeometryPtr MakeCutPolygon(std::vector<Positions> rings, bool allCross, const std::string& where,
                           InputPolygon* input) {
    GeometryPtr polygon;
    for (Positions& ring : rings) {
        std::string reason;
        const bool crosses = allCross || CountLongEdges(ring).crossing > 0;
        if ((crosses && !Unwrap(&ring, &reason)) || !CanBeCut(ring, &reason)) {
            ThrowInputError(where, reason);
        }
        const GeometryPtr area = MakeValid(MakePolygon(&ring, 1, where), where, input);
        GeometryPtr cut = RequireGeometry(CutAtAntimeridian(area.get()).release(), where);
        if (polygon == nullptr) {
            polygon = std::move(cut);
            continue;
        }
        // Before the cut the exterior ring and a hole may lie on different sides of the
        // antimeridian, so a hole is subtracted only after both were cut and moved.
        const double expected = SquareDegrees(polygon.get()) - SquareDegrees(cut.get());
        polygon = RequireGeometry(GEOSDifference(polygon.get(), cut.get()), where);
        if (SquareDegrees(polygon.get()) - expected > kRepairSquareDegrees)
            ThrowInputError(where, "a hole lies outside the exterior ring, or in another hole");
    }
    return polygon;
}

}  // namespace

InputPolygon ReadPolygon(const dom::element& rings, const std::string& where,
                         bool crossAntimeridian) {
    InputRings input = ReadRings(rings, where, crossAntimeridian);
    const bool allCross = input.longEdges.crossing == 0 && input.longEdges.aroundTheWorld > 0 &&
                          IsValidOnlyUnwrapped(input.rings, where);
    InputPolygon polygon;
    polygon.points = input.points;
    polygon.crossesAntimeridian = input.longEdges.crossing > 0 || allCross;
    polygon.isBeyond180 = input.isBeyond180;
    if (polygon.crossesAntimeridian || polygon.isBeyond180) {
        polygon.area = MakeCutPolygon(std::move(input.rings), allCross, where, &polygon);
    } else {
        polygon.area = MakeValid(MakePolygon(input.rings.data(), input.rings.size(), where), where,
                                 &polygon);
    }
    return polygon;
}

GeometryPtr RequireGeometry(GEOSGeometry* geometry, const std::string& where) {
    if (geometry == nullptr) {
        ThrowIfGeometryLacksMemory();
        ThrowInputError(where, "the geometry library gives it up: " + LastGeometryError());
    }
    return GeometryPtr(geometry);
}

}  // namespace offlinetz
