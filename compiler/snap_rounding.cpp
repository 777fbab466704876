#include "snap_rounding.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace offlinetz {

namespace {

// A straight part of an edge between its ends and snap points.
struct Part {
    GridPoint a;
    GridPoint b;
    uint32_t edge;
    bool fresh;  // Two parts that are not fresh were compared with each other before.
};

// --- Finding the parts that may meet -----------------------------------------------------

// This many parts or fewer are compared each with each.
constexpr size_t kFewParts = 16;

// Calls a function with each pair of parts that may meet, at least one of them fresh, until it
// returns false. A pair may come more than once. The search halves the bounding box of all parts as
// long as that separates parts, so a long part is entered into many boxes only where others lie
// beside it.
template <typename PairFunction>
class PairFinder {
  public:
    PairFinder(const std::vector<Part>& parts, PairFunction compare)
        : mParts(parts), mCompare(compare) {}

    void Run() {
        if (mParts.empty()) return;
        GridBox box = {mParts[0].a, mParts[0].a};
        Indices all(mParts.size());
        std::iota(all.begin(), all.end(), uint32_t{0});
        for (const Part& part : mParts) {
            for (const GridPoint& p : {part.a, part.b}) {
                box.min = {std::min(box.min.lat, p.lat), std::min(box.min.lon, p.lon)};
                box.max = {std::max(box.max.lat, p.lat), std::max(box.max.lon, p.lon)};
            }
        }
        Search(box, std::move(all));
    }

  private:
    using Indices = std::vector<uint32_t>;

    struct Half {
        GridBox box;
        Indices parts;
    };

    // Returns whether to go on.
    bool Search(const GridBox& box, Indices parts) {
        if (std::none_of(parts.begin(), parts.end(),
                         [this](uint32_t i) { return mParts[i].fresh; })) {
            return true;
        }
        if (parts.size() > kFewParts) {
            const bool isTall = box.max.lat - box.min.lat > box.max.lon - box.min.lon;
            for (const auto axis : {isTall ? &GridPoint::lat : &GridPoint::lon,
                                    isTall ? &GridPoint::lon : &GridPoint::lat}) {
                if (box.max.*axis - box.min.*axis < 2) continue;
                auto [low, high] = Halve(box, parts, axis);
                if (!IsGain(parts.size(), low.parts.size(), high.parts.size())) continue;
                parts = Indices();  // Frees its memory for the recursion.
                return Search(low.box, std::move(low.parts)) &&
                       Search(high.box, std::move(high.parts));
            }
        }
        for (size_t i = 0; i < parts.size(); ++i) {
            const Part& s = mParts[parts[i]];
            for (size_t j = i + 1; j < parts.size(); ++j) {
                const Part& t = mParts[parts[j]];
                if ((s.fresh || t.fresh) && !mCompare(s, t)) return false;
            }
        }
        return true;
    }

    // Whether halving saves comparisons. Where parts lie along each other across the whole box,
    // both halves hold them all. A half that has much less to compare is a gain too, as beside a
    // point in which many parts meet.
    static bool IsGain(size_t all, size_t low, size_t high) {
        return low * low + high * high <= all * all || 10 * std::min(low, high) <= 6 * all;
    }

    // The halves share the line between them, so each point of the box lies in at least one.
    std::pair<Half, Half> Halve(const GridBox& box, const Indices& parts,
                                int32_t GridPoint::*axis) const {
        Half low = {box, {}};
        Half high = {box, {}};
        const int32_t middle = box.min.*axis + (box.max.*axis - box.min.*axis) / 2;
        low.box.max.*axis = middle;
        high.box.min.*axis = middle;
        for (const uint32_t i : parts) {
            const Part& s = mParts[i];
            const auto [from, to] = std::minmax(s.a.*axis, s.b.*axis);
            const bool isAcross = from <= middle && to >= middle;
            if (isAcross ? TouchesBox(s.a, s.b, low.box) : to < middle) low.parts.push_back(i);
            if (isAcross ? TouchesBox(s.a, s.b, high.box) : from > middle) high.parts.push_back(i);
        }
        return {std::move(low), std::move(high)};
    }

    const std::vector<Part>& mParts;
    PairFunction mCompare;
};

template <typename PairFunction>
void VisitPairs(const std::vector<Part>& parts, PairFunction visit) {
    PairFinder<PairFunction>(parts, visit).Run();
}

// --- Snap rounding -----------------------------------------------------------------------

// Hobby's snap rounding, applied only where edges need it. The hot pixel of a grid point is the
// unit square around it. An edge gets these snap points for each other edge that it meets:
// - the point whose hot pixel holds the crossing of the two edges;
// - each end of the other one's part whose hot pixel the edge passes.
// Both are decided for the original edge, not for the bent one. So however often an edge is bent,
// it moves by no more than half a unit in latitude and in longitude.
//
// Rounds end, because an edge passes a limited number of hot pixels. No parts cross at the end.
// Proof: shrink the hot pixels of the ends of two parts to their centres, and move the parts with
// them. A part moves by no more than the sides of a hot pixel do, so a part outside a hot pixel
// stays outside. Parts that did not cross can come to cross only where an end of one passes through
// the other.

int SignOf(int64_t value) {
    return (value > 0) - (value < 0);
}

// Whether a point is in the box of a part but not one of its ends.
bool IsWithin(const Part& s, const GridPoint& p) {
    return p != s.a && p != s.b && p.lat >= std::min(s.a.lat, s.b.lat) &&
           p.lat <= std::max(s.a.lat, s.b.lat) && p.lon >= std::min(s.a.lon, s.b.lon) &&
           p.lon <= std::max(s.a.lon, s.b.lon);
}

// On which sides of a line the ends of an edge lie: cross products, positive on the left.
struct Sides {
    int64_t a;
    int64_t b;
    bool Differ() const { return SignOf(a) * SignOf(b) < 0; }
};

template <typename Line, typename Other>
Sides SidesOf(const Line& line, const Other& other) {
    return {Cross(line.a, line.b, other.a), Cross(line.a, line.b, other.b)};
}

// Whether two parts meet elsewhere than in ends of both.
bool Clash(const Part& s, const Part& t) {
    if (std::max(s.a.lat, s.b.lat) < std::min(t.a.lat, t.b.lat) ||
        std::max(t.a.lat, t.b.lat) < std::min(s.a.lat, s.b.lat) ||
        std::max(s.a.lon, s.b.lon) < std::min(t.a.lon, t.b.lon) ||
        std::max(t.a.lon, t.b.lon) < std::min(s.a.lon, s.b.lon)) {
        return false;
    }
    const Sides ofT = SidesOf(s, t);
    const Sides ofS = SidesOf(t, s);
    return (ofT.Differ() && ofS.Differ()) || (ofT.a == 0 && IsWithin(s, t.a)) ||
           (ofT.b == 0 && IsWithin(s, t.b)) || (ofS.a == 0 && IsWithin(t, s.a)) ||
           (ofS.b == 0 && IsWithin(t, s.b));
}

// Whether an edge passes the hot pixel of a point. The pixel reaches half a unit each way; its
// south and west sides belong to it, its north and east sides do not.
bool PassesHotPixel(const Edge& e, const GridPoint& p) {
    const GridPoint a = {2 * e.a.lat, 2 * e.a.lon};
    const GridPoint b = {2 * e.b.lat, 2 * e.b.lon};
    const GridBox pixel = {{2 * p.lat - 1, 2 * p.lon - 1}, {2 * p.lat + 1, 2 * p.lon + 1}};
    if (!TouchesBox(a, b, pixel)) return false;
    const int southWest = SignOf(Cross(a, b, pixel.min));
    const int northEast = SignOf(Cross(a, b, pixel.max));
    const int southEast = SignOf(Cross(a, b, {pixel.min.lat, pixel.max.lon}));
    const int northWest = SignOf(Cross(a, b, {pixel.max.lat, pixel.min.lon}));
    // Ends are centres of pixels, so an edge touches a pixel in a corner or passes its inside.
    return southWest == 0 || southWest * northEast < 0 || southEast * northWest < 0;
}

__extension__ using Int128 = __int128;

// The coordinate whose hot pixel holds from + (to - from) * part / whole.
int32_t Rounded(int32_t from, int32_t to, int64_t part, int64_t whole) {
    const Int128 dividend = Int128{2} * (to - from) * part + whole;
    const Int128 divisor = Int128{2} * whole;
    Int128 quotient = dividend / divisor;
    if (dividend % divisor != 0 && (dividend < 0) != (divisor < 0)) --quotient;
    return from + static_cast<int32_t>(quotient);
}

// Adds the snap points that an edge needs in one of its parts, because that part meets a part of
// another edge.
void AddSnapPoints(const Part& part, const Edge& edge, const Part& otherPart, const Edge& other,
                   std::vector<SnapPoint>* snapPoints) {
    const auto addIfPassed = [&](const GridPoint& p) {
        if (IsWithin(part, p) && PassesHotPixel(edge, p)) snapPoints->push_back({part.edge, p});
    };
    addIfPassed(otherPart.a);
    addIfPassed(otherPart.b);
    const Sides ofEdge = SidesOf(other, edge);
    if (ofEdge.Differ() && SidesOf(edge, other).Differ()) {
        const int64_t whole = ofEdge.a - ofEdge.b;
        addIfPassed({Rounded(edge.a.lat, edge.b.lat, ofEdge.a, whole),
                     Rounded(edge.a.lon, edge.b.lon, ofEdge.a, whole)});
    }
}

// Sorts by edge, and along each from a to b. Removes repeats.
void SortSnapPoints(const std::vector<Edge>& edges, std::vector<SnapPoint>* snapPoints) {
    const auto along = [&](const SnapPoint& snapPoint) {
        const Edge& e = edges[snapPoint.edge];
        return (int64_t{snapPoint.at.lat} - e.a.lat) * (int64_t{e.b.lat} - e.a.lat) +
               (int64_t{snapPoint.at.lon} - e.a.lon) * (int64_t{e.b.lon} - e.a.lon);
    };
    std::sort(snapPoints->begin(), snapPoints->end(), [&](const SnapPoint& x, const SnapPoint& y) {
        return x.edge != y.edge ? x.edge < y.edge : along(x) < along(y);
    });
    snapPoints->erase(std::unique(snapPoints->begin(), snapPoints->end(),
                                  [](const SnapPoint& x, const SnapPoint& y) {
                                      return x.edge == y.edge && x.at == y.at;
                                  }),
                      snapPoints->end());
}

}  // namespace

std::vector<SnapPoint> SnapRound(const std::vector<Edge>& edges, size_t maxSnapPoints,
                                 const ProgressCallback& progress) {
    std::vector<SnapPoint> snapPoints;
    // An edge may get the same snap point several times, but the limit counts it once. Removing
    // repeats takes a sort, so it is done only after each `maxSnapPoints` additions.
    size_t countAt = maxSnapPoints;
    std::vector<bool> isOpen(edges.size(), true);  // Whether an edge clashed in the last round.
    for (int round = 1;; ++round) {
        std::vector<Part> parts;
        parts.reserve(edges.size() + snapPoints.size());
        VisitParts(edges, snapPoints, [&](size_t edge, const GridPoint& from, const GridPoint& to) {
            parts.push_back({from, to, static_cast<uint32_t>(edge), isOpen[edge]});
        });
        isOpen.assign(edges.size(), false);
        const size_t before = snapPoints.size();
        const Part* clashing = nullptr;
        VisitPairs(parts, [&](const Part& s, const Part& t) {
            if (!Clash(s, t)) return true;
            clashing = &s;
            isOpen[s.edge] = true;
            isOpen[t.edge] = true;
            AddSnapPoints(s, edges[s.edge], t, edges[t.edge], &snapPoints);
            AddSnapPoints(t, edges[t.edge], s, edges[s.edge], &snapPoints);
            if (snapPoints.size() <= countAt) return true;
            SortSnapPoints(edges, &snapPoints);
            if (snapPoints.size() > maxSnapPoints) throw TooManySnapPoints{{s.edge, t.edge}, s.a};
            countAt = maxSnapPoints + snapPoints.size();
            return true;
        });
        SortSnapPoints(edges, &snapPoints);
        progress("noding", static_cast<size_t>(round), 0);
        if (clashing == nullptr) return snapPoints;
        if (snapPoints.size() == before) {
            throw std::logic_error(fmt::format(
                    "snap rounding does not end between {}, {} and {}, {} "
                    "(units of latitude and longitude)",
                    clashing->a.lat, clashing->a.lon, clashing->b.lat, clashing->b.lon));
        }
    }
}

void VisitClashes(const std::vector<Edge>& edges,
                  const std::function<bool(uint32_t, uint32_t)>& visit) {
    std::vector<Part> parts;
    parts.reserve(edges.size());
    for (const Edge& edge : edges)
        parts.push_back({edge.a, edge.b, static_cast<uint32_t>(parts.size()), true});
    VisitPairs(parts,
               [&](const Part& s, const Part& t) { return !Clash(s, t) || visit(s.edge, t.edge); });
}

bool CrossingsExceed(const std::vector<Edge>& edges, size_t count) {
    size_t clashes = 0;
    VisitClashes(edges, [&](uint32_t, uint32_t) { return ++clashes <= count; });
    return clashes > count;
}

}  // namespace offlinetz
