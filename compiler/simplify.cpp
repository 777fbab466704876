#include "simplify.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <limits>
#include <map>
#include <numeric>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

#include "edge_error.h"
#include "minimum_vertices.h"
#include "snap_rounding.h"

namespace offlinetz {

namespace {

using VertexId = uint32_t;
constexpr VertexId kNone = std::numeric_limits<VertexId>::max();

// The distinct vertices of all rings, sorted, with their neighbours.
class VertexTable {
  public:
    explicit VertexTable(const std::vector<ZoneRings>& zones) {
        for (const ZoneRings& rings : zones) {
            for (const GridRing& ring : rings) {
                mPoints.insert(mPoints.end(), ring.begin(), ring.end());
            }
        }
        std::sort(mPoints.begin(), mPoints.end());
        mPoints.erase(std::unique(mPoints.begin(), mPoints.end()), mPoints.end());
        mNeighbours.assign(mPoints.size(), {kNone, kNone});
        mIsNode.assign(mPoints.size(), false);
    }

    size_t Count() const { return mPoints.size(); }
    const GridPoint& At(VertexId id) const { return mPoints[id]; }
    const std::vector<GridPoint>& Points() const { return mPoints; }

    VertexId IdOf(const GridPoint& p) const {
        return static_cast<VertexId>(std::lower_bound(mPoints.begin(), mPoints.end(), p) -
                                     mPoints.begin());
    }

    // Whether borders meet at a vertex: it has more than two neighbours.
    bool IsNode(VertexId id) const { return mIsNode[id]; }

    void AddNeighbour(VertexId id, VertexId neighbour) {
        auto& [first, second] = mNeighbours[id];
        if (first == kNone || first == neighbour) {
            first = neighbour;
        } else if (second == kNone || second == neighbour) {
            second = neighbour;
        } else {
            mIsNode[id] = true;
        }
    }

  private:
    std::vector<GridPoint> mPoints;
    std::vector<std::pair<VertexId, VertexId>> mNeighbours;
    std::vector<bool> mIsNode;
};

// The part of a border between two nodes, or a whole ring without nodes: a closed arc, which
// repeats its first vertex at the end.
using Arc = std::vector<VertexId>;

class Simplifier {
  public:
    Simplifier(const std::vector<ZoneRings>& zones, const Grid& grid, double metres,
               const Originals* originals)
        : mGrid(grid), mMetres(metres), mVertices(zones) {
        for (const GridPoint& p : mVertices.Points()) {
            mPlaces.push_back({p});
            mLonMetres.push_back(grid.LongitudeMetres(p.lat));
            if (originals != nullptr) mOriginalsOf.push_back(originals->At(p));
        }
        mArcOf.assign(mVertices.Count(), kNone);
        mPositionInArc.assign(mVertices.Count(), 0);
        IndexCells();
        CollectArcs(zones);
    }

    void Run() {
        std::vector<uint32_t> open(mArcs.size());
        std::iota(open.begin(), open.end(), uint32_t{0});
        while (!open.empty()) {
            SimplifyArcs(std::move(open));
            open = FixClashingVertices();
        }
    }

    bool IsKept(const GridPoint& p) const { return mPlaces[mVertices.IdOf(p)].isKept; }
    const GridPoint& PlaceOf(const GridPoint& p) const { return mPlaces[mVertices.IdOf(p)].at; }

    std::vector<MovedVertex> MovedVertices() const {
        std::vector<MovedVertex> moved;
        for (VertexId id = 0; id < mVertices.Count(); ++id) {
            if (mPlaces[id].isKept && mPlaces[id].at != mVertices.At(id))
                moved.push_back({mPlaces[id].at, mVertices.At(id)});
        }
        std::sort(moved.begin(), moved.end());
        return moved;
    }

  private:
    struct CellVertex {
        uint64_t cell;
        VertexId vertex;

        friend bool operator<(const CellVertex& x, const CellVertex& y) {
            return x.cell != y.cell ? x.cell < y.cell : x.vertex < y.vertex;
        }
    };

    // Where a vertex of the arrangement stands in the simplified one.
    struct Place {
        GridPoint at;
        bool isKept = false;
        bool isFixed = false;  // It may only stand where it was.
    };

    // A part of an arc, and an edge that may replace it.
    struct Stretch {
        uint32_t arc;
        size_t from;
        size_t to;
        GridPoint a;  // The edge's ends: where the vertices at `from` and `to` may stand.
        GridPoint b;
    };

    Stretch StretchOf(uint32_t arc, size_t from, size_t to) const {
        return {arc, from, to, mVertices.At(mArcs[arc][from]), mVertices.At(mArcs[arc][to])};
    }

    const GridPoint& PointAt(const Stretch& stretch, size_t position) const {
        return mVertices.At(mArcs[stretch.arc][position]);
    }

    void IndexCells() {
        mCells.reserve(mVertices.Count());
        for (VertexId id = 0; id < mVertices.Count(); ++id) {
            const GridPoint& p = mVertices.At(id);
            mCells.push_back({CellKey(p.lat >> kCellShift, p.lon >> kCellShift), id});
        }
        std::sort(mCells.begin(), mCells.end());
    }

    void CollectArcs(const std::vector<ZoneRings>& zones) {
        std::vector<std::vector<VertexId>> rings;
        for (const ZoneRings& zone : zones) {
            for (const GridRing& ring : zone) {
                std::vector<VertexId> ids;
                ids.reserve(ring.size());
                for (const GridPoint& p : ring)
                    ids.push_back(mVertices.IdOf(p));
                for (size_t i = 0; i < ids.size(); ++i) {
                    const VertexId next = ids[NextIndex(i, ids.size())];
                    mVertices.AddNeighbour(ids[i], next);
                    mVertices.AddNeighbour(next, ids[i]);
                }
                rings.push_back(std::move(ids));
            }
        }
        for (std::vector<VertexId>& ids : rings)
            CutAtNodes(std::move(ids));
        for (size_t i = 0; i < mArcs.size(); ++i) {
            const auto [from, to] = std::minmax(mArcs[i].front(), mArcs[i].back());
            ++mArcsBetween[{from, to}];
        }
    }

    // Adds those arcs of a ring that no earlier ring has.
    void CutAtNodes(std::vector<VertexId> ids) {
        const auto isNode = [this](VertexId id) { return mVertices.IsNode(id); };
        const auto firstNode = std::find_if(ids.begin(), ids.end(), isNode);
        if (firstNode != ids.end()) std::rotate(ids.begin(), firstNode, ids.end());
        ids.push_back(ids.front());
        for (size_t begin = 0, end = 1; end < ids.size(); ++end) {
            if (!isNode(ids[end]) && end + 1 < ids.size()) continue;
            AddArc(Arc(ids.begin() + static_cast<std::ptrdiff_t>(begin),
                       ids.begin() + static_cast<std::ptrdiff_t>(end) + 1));
            begin = end;
        }
    }

    void AddArc(Arc arc) {
        const auto index = static_cast<uint32_t>(mArcs.size());
        if (arc.size() == 2) {
            const auto key = std::minmax(arc[0], arc[1]);
            if (!mSingleEdges.emplace(key, index).second) return;
        } else if (mArcOf[arc[1]] != kNone) {
            return;  // The ring of the zone on the other side has added it.
        }
        for (size_t i = 1; i + 1 < arc.size(); ++i) {
            mArcOf[arc[i]] = index;
            mPositionInArc[arc[i]] = static_cast<uint32_t>(i);
        }
        mPlaces[arc.front()].isKept = true;
        mPlaces[arc.back()].isKept = true;
        mArcs.push_back(std::move(arc));
    }

    // Simplifies arcs on all processors. An arc is read and written by one thread only; nodes,
    // which arcs share, are not written.
    void SimplifyArcs(std::vector<uint32_t> arcs) {
        // Long arcs first, so that no thread is left with one at the end.
        std::stable_sort(arcs.begin(), arcs.end(), [this](uint32_t x, uint32_t y) {
            return mArcs[x].size() > mArcs[y].size();
        });
        std::atomic<size_t> next = 0;
        const auto work = [&] {
            for (size_t i; (i = next++) < arcs.size();)
                SimplifyArc(arcs[i]);
        };
        std::vector<std::future<void>> others;
        try {
            for (unsigned i = 1; i < std::thread::hardware_concurrency(); ++i)
                others.push_back(std::async(std::launch::async, work));
        } catch (const std::system_error&) {
            // No further thread can start. Those that run do all the work.
        }
        work();
        for (std::future<void>& other : others)
            other.get();
    }

    void SimplifyArc(uint32_t index) {
        const Arc& arc = mArcs[index];
        const size_t last = arc.size() - 1;
        std::vector<size_t> anchors = {0, last};
        for (size_t i = 1; i < last; ++i) {
            const GridPoint& p = mVertices.At(arc[i]);
            if (std::abs(p.lat) >= mGrid.Scale() || std::abs(p.lon) >= mGrid.Scale()) {
                anchors.push_back(i);
            }
        }
        const bool isClosed = arc.front() == arc.back();
        if (isClosed) AddBoxAnchors(arc, &anchors);
        SortUnique(&anchors);

        const auto key = std::minmax(arc.front(), arc.back());
        const bool hasTwin = mArcsBetween.at(key) > 1;
        const size_t needed = isClosed ? 4 : (hasTwin ? 3 : 2);
        while (anchors.size() < needed && anchors.size() <= last) {
            AddFarthest(index, &anchors);
        }
        for (size_t i = 1; i < last; ++i)
            mPlaces[arc[i]].isKept = false;
        for (size_t i = 0; i + 1 < anchors.size(); ++i)
            SimplifyStretch(index, anchors[i], anchors[i + 1]);
    }

    static void SortUnique(std::vector<size_t>* anchors) {
        std::sort(anchors->begin(), anchors->end());
        anchors->erase(std::unique(anchors->begin(), anchors->end()), anchors->end());
    }

    // Adds the vertices of a closed arc that touch its bounding box.
    void AddBoxAnchors(const Arc& arc, std::vector<size_t>* anchors) const {
        size_t south = 0;
        size_t north = 0;
        size_t west = 0;
        size_t east = 0;
        for (size_t i = 1; i + 1 < arc.size(); ++i) {
            const GridPoint& p = mVertices.At(arc[i]);
            if (p.lat < mVertices.At(arc[south]).lat) south = i;
            if (p.lat > mVertices.At(arc[north]).lat) north = i;
            if (p.lon < mVertices.At(arc[west]).lon) west = i;
            if (p.lon > mVertices.At(arc[east]).lon) east = i;
        }
        anchors->insert(anchors->end(), {south, north, west, east});
    }

    // Adds the vertex that lies farthest from the straight edge between the anchors before and
    // after it.
    void AddFarthest(uint32_t index, std::vector<size_t>* anchors) const {
        size_t best = 0;
        double bestSquared = -1.0;
        for (size_t i = 0; i + 1 < anchors->size(); ++i) {
            const Stretch stretch = StretchOf(index, (*anchors)[i], (*anchors)[i + 1]);
            if (stretch.to - stretch.from < 2) continue;
            double squared;
            const size_t farthest = FarthestPoint(stretch, &squared);
            if (squared > bestSquared) {
                best = farthest;
                bestSquared = squared;
            }
        }
        anchors->push_back(best);
        SortUnique(anchors);
    }

    // The inner point of a stretch that lies farthest from its straight edge.
    size_t FarthestPoint(const Stretch& stretch, double* squared) const {
        const GridPoint& a = stretch.a;
        const GridPoint& b = stretch.b;
        size_t farthest = stretch.from + 1;
        *squared = -1.0;
        for (size_t i = stretch.from + 1; i < stretch.to; ++i) {
            const double d = mGrid.SquaredMetresToSegment(PointAt(stretch, i), a, b,
                                                          LonMetresAt(stretch, i));
            if (d > *squared) {
                *squared = d;
                farthest = i;
            }
        }
        return farthest;
    }

    void SimplifyStretch(uint32_t arc, size_t from, size_t to) {
        const std::vector<LineVertex> kept = MinimumVertices(
                LineOf(arc, from, to), mGrid, [&](const LineVertex& a, const LineVertex& b) {
                    const Stretch stretch = {arc, from + a.position, from + b.position, a.at, b.at};
                    return IsNear(stretch) && IsClear(stretch);
                });
        for (const LineVertex& vertex : kept) {
            const size_t position = from + vertex.position;
            if (position == 0 || position + 1 == mArcs[arc].size()) continue;  // Nodes stay.
            Place& place = mPlaces[mArcs[arc][position]];
            place.at = vertex.at;
            place.isKept = true;
        }
    }

    LineToSimplify LineOf(uint32_t arc, size_t from, size_t to) const {
        LineToSimplify line;
        line.metres = mMetres;
        if (!mOriginalsOf.empty()) {
            line.reachLat = EdgeError::kLeastReachLat;
            line.reachLon = EdgeError::kLeastReachLon;
        }
        for (size_t i = from; i <= to; ++i) {
            const VertexId vertex = mArcs[arc][i];
            line.points.push_back(mVertices.At(vertex));
            line.firstPlace.push_back(line.places.size());
            line.firstPassing.push_back(line.passing.size());
            line.places.push_back(line.points.back());
            if (i > from && i < to) {
                AddPlaces(vertex, &line.places);
                AddPassing(vertex, &line.passing);
            }
        }
        line.firstPlace.push_back(line.places.size());
        line.firstPassing.push_back(line.passing.size());
        return line;
    }

    // Adds the grid points beside a vertex where it may stand instead.
    void AddPlaces(VertexId vertex, std::vector<GridPoint>* places) const {
        if (mOriginalsOf.empty() || mPlaces[vertex].isFixed) return;
        const GridPoint& p = mVertices.At(vertex);
        for (const int32_t lat : {-1, 0, 1}) {
            for (const int32_t lon : {-1, 0, 1}) {
                const GridPoint place = {p.lat + lat, p.lon + lon};
                if (place != p && std::abs(place.lat) < mGrid.Scale() &&
                    std::abs(place.lon) < mGrid.Scale())
                    places->push_back(place);
            }
        }
    }

    // Adds the positions that IsNear measures for an edge that replaces a vertex.
    void AddPassing(VertexId vertex, std::vector<LineToSimplify::Offset>* passing) const {
        if (mOriginalsOf.empty()) {
            passing->push_back({0.0, 0.0});
            return;
        }
        for (const Original& o : mOriginalsOf[vertex]) {
            passing->push_back({static_cast<double>(o.lat) + (o.Lat() >= 0.0 ? -0.5 : 0.5),
                                static_cast<double>(o.lon)});
        }
    }

    // The length of a unit of longitude that counts at a position of a stretch.
    double LonMetresAt(const Stretch& stretch, size_t position) const {
        const Arc& arc = mArcs[stretch.arc];
        const VertexId vertex = arc[position];
        double metres = mLonMetres[vertex];
        for (const size_t next : {position - 1, position + 1}) {
            if (next < stretch.from || next > stretch.to) continue;
            metres = std::max(metres, WidestUnit(mGrid, mVertices.At(vertex), mLonMetres[vertex],
                                                 mVertices.At(arc[next]), mLonMetres[arc[next]]));
        }
        return metres;
    }

    // Whether the edge of a stretch is near enough to it.
    bool IsNear(const Stretch& stretch) const {
        if (mOriginalsOf.empty()) {
            double squared;
            FarthestPoint(stretch, &squared);
            return squared <= mMetres * mMetres;
        }
        const EdgeError error(mGrid, stretch.a, stretch.b);
        for (size_t i = stretch.from; i <= stretch.to; ++i) {
            const double lonMetres = LonMetresAt(stretch, i);
            for (const Original& o : mOriginalsOf[mArcs[stretch.arc][i]]) {
                if (error.At(o, lonMetres) > mMetres) return false;
                if (i == stretch.from && error.BeyondEnd(o, stretch.a, lonMetres) > mMetres)
                    return false;
                if (i == stretch.to && error.BeyondEnd(o, stretch.b, lonMetres) > mMetres)
                    return false;
            }
        }
        return true;
    }

    // Finds edges of simplified arcs that cross, and vertices that stand in one place. Fixes the
    // vertices of the stretches there, one of which was not fixed before. Returns the arcs of these
    // stretches, which are to be simplified again. Edges between vertices that stand where they
    // were do not cross, so this ends.
    std::vector<uint32_t> FixClashingVertices() {
        std::vector<uint32_t> arcs;
        if (mOriginalsOf.empty()) return arcs;
        std::vector<Edge> edges;
        std::vector<Stretch> stretches;
        // Where vertices stand, and the stretch that ends there.
        std::vector<std::tuple<GridPoint, VertexId, size_t>> standing;
        for (uint32_t arc = 0; arc < mArcs.size(); ++arc) {
            size_t from = 0;
            for (size_t i = 1; i < mArcs[arc].size(); ++i) {
                const Place& place = mPlaces[mArcs[arc][i]];
                if (!place.isKept) continue;
                standing.emplace_back(place.at, mArcs[arc][i], edges.size());
                edges.push_back({mPlaces[mArcs[arc][from]].at, place.at});
                stretches.push_back({arc, from, i, edges.back().a, edges.back().b});
                from = i;
            }
        }
        bool hasFixed = false;
        const auto fix = [&](const Stretch& stretch) {
            for (size_t i = stretch.from; i <= stretch.to; ++i) {
                Place& place = mPlaces[mArcs[stretch.arc][i]];
                hasFixed = hasFixed || !place.isFixed;
                place.isFixed = true;
            }
            arcs.push_back(stretch.arc);
        };
        VisitClashes(edges, [&](uint32_t s, uint32_t t) {
            fix(stretches[s]);
            fix(stretches[t]);
            return true;
        });
        std::sort(standing.begin(), standing.end());
        for (size_t i = 1; i < standing.size(); ++i) {
            const auto& [at, vertex, stretch] = standing[i];
            const auto& [otherAt, otherVertex, otherStretch] = standing[i - 1];
            if (at != otherAt || vertex == otherVertex) continue;
            fix(stretches[stretch]);
            fix(stretches[otherStretch]);
        }
        std::sort(arcs.begin(), arcs.end());
        arcs.erase(std::unique(arcs.begin(), arcs.end()), arcs.end());
        if (!arcs.empty() && !hasFixed) throw std::logic_error("simplified borders cross");
        return arcs;
    }

    // Whether no vertex of any border lies on the straight edge of a stretch or between the two.
    bool IsClear(const Stretch& stretch) const {
        const GridPoint& a = stretch.a;
        const GridPoint& b = stretch.b;
        GridBox box = BoxOf({a, b});
        for (size_t i = stretch.from; i <= stretch.to; ++i) {
            const GridPoint& p = PointAt(stretch, i);
            box.min = {std::min(box.min.lat, p.lat), std::min(box.min.lon, p.lon)};
            box.max = {std::max(box.max.lat, p.lat), std::max(box.max.lon, p.lon)};
        }
        // A point between edge and stretch lies within that many metres of the edge. So only cells
        // along the edge are searched, row by row, with some room for the change of scale with
        // latitude.
        const double reach = 1.1 * mMetres;
        const double reachLat = reach / mGrid.LatitudeMetres() + 1.0;
        for (int32_t row = box.min.lat >> kCellShift; row <= box.max.lat >> kCellShift; ++row) {
            const double south = row * double{1 << kCellShift} - reachLat;
            const double north = (row + 1) * double{1 << kCellShift} + reachLat;
            double west = std::min(a.lon, b.lon);
            double east = std::max(a.lon, b.lon);
            if (a.lat != b.lat) {
                const double slope =
                        static_cast<double>(b.lon - a.lon) / static_cast<double>(b.lat - a.lat);
                const double low = std::min(a.lat, b.lat);
                const double high = std::max(a.lat, b.lat);
                const double x0 = a.lon + slope * (std::clamp(south, low, high) - a.lat);
                const double x1 = a.lon + slope * (std::clamp(north, low, high) - a.lat);
                west = std::min(x0, x1);
                east = std::max(x0, x1);
            }
            const double metres =
                    std::max(1e-3, std::min(mGrid.LongitudeMetres(static_cast<int32_t>(south)),
                                            mGrid.LongitudeMetres(static_cast<int32_t>(north))));
            const double reachLon = reach / metres + 1.0;
            const auto from = static_cast<int32_t>(
                    std::max<double>(box.min.lon, std::floor(west - reachLon)));
            const auto to =
                    static_cast<int32_t>(std::min<double>(box.max.lon, std::ceil(east + reachLon)));
            if (from > to) continue;
            if (!IsRowClear(stretch, box, row, from, to)) return false;
        }
        return true;
    }

    bool IsRowClear(const Stretch& stretch, const GridBox& box, int32_t row, int32_t from,
                    int32_t to) const {
        const CellVertex first = {CellKey(row, from >> kCellShift), 0};
        const uint64_t lastCell = CellKey(row, to >> kCellShift);
        for (auto it = std::lower_bound(mCells.begin(), mCells.end(), first);
             it != mCells.end() && it->cell <= lastCell; ++it) {
            if (IsInTheWay(stretch, box, it->vertex)) return false;
        }
        return true;
    }

    bool IsInTheWay(const Stretch& stretch, const GridBox& box, VertexId vertex) const {
        const GridPoint& p = mVertices.At(vertex);
        if (!box.Contains(p)) return false;
        const Arc& arc = mArcs[stretch.arc];
        if (vertex == arc[stretch.from] || vertex == arc[stretch.to]) return false;
        if (mArcOf[vertex] == stretch.arc && mPositionInArc[vertex] >= stretch.from &&
            mPositionInArc[vertex] <= stretch.to) {
            return false;
        }
        const GridPoint& a = stretch.a;
        const GridPoint& b = stretch.b;
        if (Cross(a, b, p) == 0 && GridBox{{std::min(a.lat, b.lat), std::min(a.lon, b.lon)},
                                           {std::max(a.lat, b.lat), std::max(a.lon, b.lon)}}
                                           .Contains(p)) {
            return true;
        }
        // p is between edge and stretch if a ray to the east crosses them an odd number of times.
        bool inside = false;
        const GridPoint* q = &b;
        const auto goTo = [&](const GridPoint& r) {
            if ((q->lat > p.lat) != (r.lat > p.lat) && (Cross(*q, r, p) > 0) == (r.lat > q->lat))
                inside = !inside;
            q = &r;
        };
        goTo(a);
        for (size_t i = stretch.from; i <= stretch.to; ++i)
            goTo(PointAt(stretch, i));
        goTo(b);
        return inside;
    }

    const Grid& mGrid;
    double mMetres;
    VertexTable mVertices;
    std::vector<CellVertex> mCells;  // All vertices, sorted by cell.
    std::vector<Arc> mArcs;
    std::vector<uint32_t> mArcOf;  // The arc of each vertex inside one; kNone for nodes.
    std::vector<uint32_t> mPositionInArc;
    std::map<std::pair<VertexId, VertexId>, uint32_t> mSingleEdges;
    std::map<std::pair<VertexId, VertexId>, int> mArcsBetween;
    std::vector<Place> mPlaces;
    std::vector<double> mLonMetres;              // Of a unit of longitude at each vertex.
    std::vector<Originals::Range> mOriginalsOf;  // Empty without originals.
};

}  // namespace

std::vector<MovedVertex> Simplify(std::vector<ZoneRings>* zones, const Grid& grid, double metres,
                                  const Originals* originals) {
    Simplifier simplifier(*zones, grid, metres, originals);
    simplifier.Run();
    for (ZoneRings& rings : *zones) {
        for (GridRing& ring : rings) {
            ring.erase(std::remove_if(ring.begin(), ring.end(),
                                      [&](const GridPoint& p) { return !simplifier.IsKept(p); }),
                       ring.end());
            for (GridPoint& p : ring)
                p = simplifier.PlaceOf(p);
            ring.shrink_to_fit();
        }
    }
    return simplifier.MovedVertices();
}

}  // namespace offlinetz
