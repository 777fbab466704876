#include "simplify.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "minimum_vertices.h"

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
    Simplifier(const std::vector<ZoneRings>& zones, const Grid& grid, double tolerance)
        : mGrid(grid), mTolerance(tolerance), mVertices(zones) {
        mKept.assign(mVertices.Count(), false);
        mArcOf.assign(mVertices.Count(), kNone);
        mPositionInArc.assign(mVertices.Count(), 0);
        IndexCells();
        CollectArcs(zones);
    }

    void Run() {
        for (size_t i = 0; i < mArcs.size(); ++i)
            SimplifyArc(static_cast<uint32_t>(i));
    }

    bool IsKept(const GridPoint& p) const { return mKept[mVertices.IdOf(p)]; }
    double GreatestDistance() const { return std::sqrt(mGreatestSquared); }

  private:
    struct CellVertex {
        uint64_t cell;
        VertexId vertex;

        friend bool operator<(const CellVertex& x, const CellVertex& y) {
            return x.cell != y.cell ? x.cell < y.cell : x.vertex < y.vertex;
        }
    };

    struct Stretch {
        uint32_t arc;
        size_t from;
        size_t to;
    };

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
        mArcs.push_back(std::move(arc));
    }

    void SimplifyArc(uint32_t index) {
        const Arc& arc = mArcs[index];
        const size_t last = arc.size() - 1;
        mKept[arc.front()] = true;
        mKept[arc.back()] = true;
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
        for (size_t i = 0; i + 1 < anchors.size(); ++i) {
            mKept[arc[anchors[i]]] = true;
            SimplifyStretch({index, anchors[i], anchors[i + 1]});
        }
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
            const Stretch stretch = {index, (*anchors)[i], (*anchors)[i + 1]};
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
        const GridPoint& a = PointAt(stretch, stretch.from);
        const GridPoint& b = PointAt(stretch, stretch.to);
        size_t farthest = stretch.from + 1;
        *squared = -1.0;
        for (size_t i = stretch.from + 1; i < stretch.to; ++i) {
            const double d = mGrid.SquaredMetresToSegment(PointAt(stretch, i), a, b);
            if (d > *squared) {
                *squared = d;
                farthest = i;
            }
        }
        return farthest;
    }

    void SimplifyStretch(const Stretch& whole) {
        std::vector<GridPoint> line;
        line.reserve(whole.to - whole.from + 1);
        for (size_t i = whole.from; i <= whole.to; ++i)
            line.push_back(PointAt(whole, i));
        const std::vector<size_t> kept =
                MinimumVertices(line, mGrid, mTolerance, [&](size_t from, size_t to) {
                    return IsClear({whole.arc, whole.from + from, whole.from + to});
                });
        for (size_t i = 0; i + 1 < kept.size(); ++i) {
            const Stretch stretch = {whole.arc, whole.from + kept[i], whole.from + kept[i + 1]};
            mKept[mArcs[whole.arc][stretch.to]] = true;
            if (stretch.to - stretch.from < 2) continue;
            double squared;
            FarthestPoint(stretch, &squared);
            mGreatestSquared = std::max(mGreatestSquared, squared);
        }
    }

    // Whether no vertex of any border lies on the straight edge of a stretch or between the two.
    bool IsClear(const Stretch& stretch) const {
        const GridPoint& a = PointAt(stretch, stretch.from);
        const GridPoint& b = PointAt(stretch, stretch.to);
        GridBox box = {a, a};
        for (size_t i = stretch.from + 1; i <= stretch.to; ++i) {
            const GridPoint& p = PointAt(stretch, i);
            box.min = {std::min(box.min.lat, p.lat), std::min(box.min.lon, p.lon)};
            box.max = {std::max(box.max.lat, p.lat), std::max(box.max.lon, p.lon)};
        }
        // A point between edge and stretch lies within the tolerance of the edge. So only cells
        // along the edge are searched, row by row, with some room for the change of scale with
        // latitude.
        const double reach = 1.1 * mTolerance;
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
        const GridPoint& a = PointAt(stretch, stretch.from);
        const GridPoint& b = PointAt(stretch, stretch.to);
        if (Cross(a, b, p) == 0 && GridBox{{std::min(a.lat, b.lat), std::min(a.lon, b.lon)},
                                           {std::max(a.lat, b.lat), std::max(a.lon, b.lon)}}
                                           .Contains(p)) {
            return true;
        }
        // p is between edge and stretch if a ray to the east crosses them an odd number of times.
        bool inside = false;
        const GridPoint* q = &b;
        for (size_t i = stretch.from; i <= stretch.to; ++i) {
            const GridPoint& r = PointAt(stretch, i);
            if ((q->lat > p.lat) != (r.lat > p.lat) && (Cross(*q, r, p) > 0) == (r.lat > q->lat)) {
                inside = !inside;
            }
            q = &r;
        }
        return inside;
    }

    const Grid& mGrid;
    double mTolerance;
    VertexTable mVertices;
    std::vector<CellVertex> mCells;  // All vertices, sorted by cell.
    std::vector<Arc> mArcs;
    std::vector<uint32_t> mArcOf;  // The arc of each vertex inside one; kNone for nodes.
    std::vector<uint32_t> mPositionInArc;
    std::map<std::pair<VertexId, VertexId>, uint32_t> mSingleEdges;
    std::map<std::pair<VertexId, VertexId>, int> mArcsBetween;
    std::vector<bool> mKept;
    double mGreatestSquared = 0.0;
};

}  // namespace

double Simplify(std::vector<ZoneRings>* zones, const Grid& grid, double tolerance) {
    Simplifier simplifier(*zones, grid, tolerance);
    simplifier.Run();
    for (ZoneRings& rings : *zones) {
        for (GridRing& ring : rings) {
            ring.erase(std::remove_if(ring.begin(), ring.end(),
                                      [&](const GridPoint& p) { return !simplifier.IsKept(p); }),
                       ring.end());
            ring.shrink_to_fit();
        }
    }
    return simplifier.GreatestDistance();
}

}  // namespace offlinetz
