#include "antimeridian.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace offlinetz {

namespace {

constexpr double kHalfTurn = 180.0;
constexpr double kTurn = 360.0;

bool IsLong(double from, double to) {
    return std::fabs(to - from) > kHalfTurn;
}

}  // namespace

LongEdges CountLongEdges(const Positions& ring) {
    LongEdges edges;
    for (size_t i = 0; i + 3 < ring.size(); i += 2) {
        if (!IsLong(ring[i], ring[i + 2])) continue;
        const bool isAround =
                std::fabs(ring[i + 2] - ring[i]) == kTurn && ring[i + 3] == ring[i + 1];
        if (!isAround && edges.crossing == 0) edges.firstCrossing = i / 2;
        ++(isAround ? edges.aroundTheWorld : edges.crossing);
    }
    return edges;
}

bool Unwrap(Positions* ring, std::string* reason) {
    double turns = 0.0;
    double previous = (*ring)[0];
    for (size_t i = 2; i < ring->size(); i += 2) {
        double& lon = (*ring)[i];
        if (IsLong(previous, lon)) turns += lon < previous ? kTurn : -kTurn;
        previous = lon;
        lon += turns;
    }
    if (turns == 0.0) return true;
    *reason =
            "a ring goes round a pole; it must be cut at the antimeridian, with edges along it to "
            "the pole";
    return false;
}

bool CanBeCut(const Positions& ring, std::string* reason) {
    double west = ring[0];
    double east = ring[0];
    for (size_t i = 2; i < ring.size(); i += 2) {
        west = std::min(west, ring[i]);
        east = std::max(east, ring[i]);
    }
    if (east - west > kTurn) {
        *reason = "a ring that reaches across the antimeridian is wider than the world";
    } else if (std::max(-west, east) > kMaxLongitude) {
        *reason = "a ring that reaches across the antimeridian lies further than a turn past it";
    } else {
        return true;
    }
    return false;
}

GeometryPtr CutAtAntimeridian(const GEOSGeometry* area) {
    std::vector<GeometryPtr> parts;
    for (double turn : {-kTurn, 0.0, kTurn}) {
        const GeometryPtr strip(
                GEOSGeom_createRectangle(turn - kHalfTurn, -90.0, turn + kHalfTurn, 90.0));
        const GeometryPtr inside(GEOSIntersection(area, strip.get()));
        if (inside == nullptr) return nullptr;
        // The cut may miss the antimeridian by a rounding error.
        const auto moveBack = [](double* x, double*, void* degrees) {
            constexpr double kRounding = 1e-9;
            *x -= *static_cast<const double*>(degrees);
            if (std::fabs(std::fabs(*x) - kHalfTurn) < kRounding) {
                *x = std::copysign(kHalfTurn, *x);
            }
            return 1;
        };
        GeometryPtr moved(GEOSGeom_transformXY(inside.get(), moveBack, &turn));
        if (moved == nullptr) return nullptr;
        AddPolygons(std::move(moved), &parts);
    }
    return Unite(std::move(parts));
}

}  // namespace offlinetz
