#include "mend.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <tuple>

namespace offlinetz {

namespace {

constexpr int kMaxRounds = 50;
// The use of an undirected edge (a < b) by one zone.
struct EdgeUse {
    GridPoint a;
    GridPoint b;
    uint32_t zone;
    int32_t net;  // Passes from a to b less those from b to a; the zone lies on their right.
    bool fresh;   // Made in the latest round; only fresh edges can cross anything.
};

struct Segment {
    GridPoint a;
    GridPoint b;
    size_t firstUse;
    size_t useCount;
    bool fresh;
};

struct Split {
    uint32_t segment;
    GridPoint at;
};

EdgeUse MakeUse(const GridPoint& from, const GridPoint& to, uint32_t zone, int32_t net,
                bool fresh) {
    return from < to ? EdgeUse{from, to, zone, net, fresh} : EdgeUse{to, from, zone, -net, fresh};
}

std::vector<EdgeUse> UsesOf(const std::vector<ZoneRings>& zones) {
    std::vector<EdgeUse> uses;
    for (size_t zone = 0; zone < zones.size(); ++zone) {
        for (const GridRing& ring : zones[zone]) {
            for (size_t i = 0; i < ring.size(); ++i) {
                const GridPoint& to = ring[i + 1 < ring.size() ? i + 1 : 0];
                uses.push_back(MakeUse(ring[i], to, static_cast<uint32_t>(zone), 1, true));
            }
        }
    }
    return uses;
}

// One record an edge and zone; what a zone passes both ways cancels.
void Combine(std::vector<EdgeUse>* uses) {
    std::sort(uses->begin(), uses->end(), [](const EdgeUse& x, const EdgeUse& y) {
        return std::tie(x.a, x.b, x.zone) < std::tie(y.a, y.b, y.zone);
    });
    size_t kept = 0;
    for (size_t i = 0; i < uses->size();) {
        EdgeUse sum = (*uses)[i];
        size_t next = i + 1;
        for (; next < uses->size() && (*uses)[next].a == sum.a && (*uses)[next].b == sum.b &&
               (*uses)[next].zone == sum.zone;
             ++next) {
            sum.net += (*uses)[next].net;
            // Fresh only if every part is: an old edge has been compared already.
            sum.fresh = sum.fresh && (*uses)[next].fresh;
        }
        if (sum.net != 0) (*uses)[kept++] = sum;
        i = next;
    }
    uses->resize(kept);
}

std::vector<Segment> SegmentsOf(const std::vector<EdgeUse>& uses) {
    std::vector<Segment> segments;
    for (size_t i = 0; i < uses.size(); ++i) {
        if (!segments.empty() && segments.back().a == uses[i].a && segments.back().b == uses[i].b) {
            ++segments.back().useCount;
            segments.back().fresh = segments.back().fresh && uses[i].fresh;
        } else {
            segments.push_back({uses[i].a, uses[i].b, i, 1, uses[i].fresh});
        }
    }
    return segments;
}

// --- Comparing edges that share a cell ---------------------------------------------------

struct CellEntry {
    uint64_t cell;
    uint32_t segment;

    friend bool operator<(const CellEntry& x, const CellEntry& y) {
        return x.cell != y.cell ? x.cell < y.cell : x.segment < y.segment;
    }
};

// Enters a segment in every cell that it may touch, row by row.
void EnterCells(const Segment& s, uint32_t index, std::vector<CellEntry>* entries) {
    constexpr int32_t kCell = 1 << kCellShift;
    const int32_t firstRow = s.a.lat >> kCellShift;  // a < b, so a is not the more northern.
    const int32_t lastRow = s.b.lat >> kCellShift;
    const int32_t west = std::min(s.a.lon, s.b.lon);
    const int32_t east = std::max(s.a.lon, s.b.lon);
    for (int32_t row = firstRow; row <= lastRow; ++row) {
        int32_t from = west;
        int32_t to = east;
        if (firstRow != lastRow) {
            const double slope =
                    static_cast<double>(s.b.lon - s.a.lon) / static_cast<double>(s.b.lat - s.a.lat);
            const double bottom = std::max<double>(row * kCell, s.a.lat) - s.a.lat;
            const double top = std::min<double>((row + 1) * kCell, s.b.lat) - s.a.lat;
            const double x0 = s.a.lon + slope * bottom;
            const double x1 = s.a.lon + slope * top;
            from = std::max(west, static_cast<int32_t>(std::floor(std::min(x0, x1))) - 1);
            to = std::min(east, static_cast<int32_t>(std::ceil(std::max(x0, x1))) + 1);
        }
        for (int32_t column = from >> kCellShift; column <= to >> kCellShift; ++column) {
            entries->push_back({CellKey(row, column), index});
        }
    }
}

bool BoxesMeet(const Segment& s, const Segment& t) {
    return s.a.lat <= t.b.lat && t.a.lat <= s.b.lat &&
           std::min(s.a.lon, s.b.lon) <= std::max(t.a.lon, t.b.lon) &&
           std::min(t.a.lon, t.b.lon) <= std::max(s.a.lon, s.b.lon);
}

// Whether p, on the line through s, lies within s and is neither of its ends.
bool IsInnerPoint(const Segment& s, const GridPoint& p) {
    return p != s.a && p != s.b && p.lat >= s.a.lat && p.lat <= s.b.lat &&
           p.lon >= std::min(s.a.lon, s.b.lon) && p.lon <= std::max(s.a.lon, s.b.lon);
}

int SignOf(int64_t value) {
    return (value > 0) - (value < 0);
}

// The grid point nearest to where s and t cross.
GridPoint CrossingPoint(const Segment& s, int64_t sideOfA, int64_t sideOfB) {
    const double t = static_cast<double>(sideOfA) /
                     (static_cast<double>(sideOfA) - static_cast<double>(sideOfB));
    return {s.a.lat + static_cast<int32_t>(std::floor(t * (s.b.lat - s.a.lat) + 0.5)),
            s.a.lon + static_cast<int32_t>(std::floor(t * (s.b.lon - s.a.lon) + 0.5))};
}

// Calls `split(0 or 1, point)` for each point in which s (0) or t (1) must be split so that the
// two only meet in ends.
template <typename SplitFunction>
void ComparePair(const Segment& s, const Segment& t, SplitFunction split) {
    if (!BoxesMeet(s, t)) return;
    const int64_t ta = Cross(s.a, s.b, t.a);
    const int64_t tb = Cross(s.a, s.b, t.b);
    if (SignOf(ta) * SignOf(tb) > 0) return;
    const int64_t sa = Cross(t.a, t.b, s.a);
    const int64_t sb = Cross(t.a, t.b, s.b);
    if (SignOf(sa) * SignOf(sb) > 0) return;
    if (ta != 0 && tb != 0 && sa != 0 && sb != 0) {
        const GridPoint at = CrossingPoint(s, sa, sb);
        if (at != s.a && at != s.b) split(0, at);
        if (at != t.a && at != t.b) split(1, at);
        return;
    }
    if (ta == 0 && IsInnerPoint(s, t.a)) split(0, t.a);
    if (tb == 0 && IsInnerPoint(s, t.b)) split(0, t.b);
    if (sa == 0 && IsInnerPoint(t, s.a)) split(1, s.a);
    if (sb == 0 && IsInnerPoint(t, s.b)) split(1, s.b);
}

// Calls `split(segment, point)` for every split that a pair of segments needs, in a fixed order.
template <typename SplitFunction>
void ComparePairs(const std::vector<Segment>& segments, SplitFunction split) {
    std::vector<CellEntry> entries;
    entries.reserve(segments.size() + segments.size() / 2);
    for (size_t i = 0; i < segments.size(); ++i) {
        EnterCells(segments[i], static_cast<uint32_t>(i), &entries);
    }
    std::sort(entries.begin(), entries.end());
    for (size_t begin = 0, end = 0; begin < entries.size(); begin = end) {
        while (end < entries.size() && entries[end].cell == entries[begin].cell)
            ++end;
        for (size_t i = begin; i < end; ++i) {
            const Segment& s = segments[entries[i].segment];
            for (size_t j = i + 1; j < end; ++j) {
                const Segment& t = segments[entries[j].segment];
                if (!s.fresh && !t.fresh) continue;
                ComparePair(s, t, [&](int which, const GridPoint& at) {
                    split(entries[which == 0 ? i : j].segment, at);
                });
            }
        }
    }
}

// Replaces each split segment by the chain through its split points.
void ApplySplits(const std::vector<Segment>& segments, std::vector<Split>* splits,
                 std::vector<EdgeUse>* uses) {
    const auto along = [&](const Split& x) {
        const Segment& s = segments[x.segment];
        return (int64_t{x.at.lat} - s.a.lat) * (s.b.lat - s.a.lat) +
               (int64_t{x.at.lon} - s.a.lon) * (s.b.lon - s.a.lon);
    };
    std::sort(splits->begin(), splits->end(), [&](const Split& x, const Split& y) {
        if (x.segment != y.segment) return x.segment < y.segment;
        const int64_t dx = along(x);
        const int64_t dy = along(y);
        return dx != dy ? dx < dy : x.at < y.at;
    });
    std::vector<EdgeUse> made;
    for (EdgeUse& use : *uses)
        use.fresh = false;
    for (size_t begin = 0, end = 0; begin < splits->size(); begin = end) {
        const Segment& s = segments[(*splits)[begin].segment];
        std::vector<GridPoint> chain = {s.a};
        for (; end < splits->size() && (*splits)[end].segment == (*splits)[begin].segment; ++end) {
            if ((*splits)[end].at != chain.back()) chain.push_back((*splits)[end].at);
        }
        chain.push_back(s.b);
        for (size_t u = s.firstUse; u < s.firstUse + s.useCount; ++u) {
            EdgeUse& use = (*uses)[u];
            for (size_t i = 0; i + 1 < chain.size(); ++i) {
                made.push_back(MakeUse(chain[i], chain[i + 1], use.zone, use.net, true));
            }
            use.net = 0;  // Combine drops it.
        }
    }
    uses->insert(uses->end(), made.begin(), made.end());
}

// --- Tracing rings -----------------------------------------------------------------------

struct DirectedEdge {
    GridPoint from;
    GridPoint to;

    friend bool operator<(const DirectedEdge& x, const DirectedEdge& y) {
        return std::tie(x.from, x.to) < std::tie(y.from, y.to);
    }
};

// Whether direction x comes before direction y when turning counterclockwise from `back`
// (all seen from `center`); the direction `back` itself comes last.
bool TurnsBefore(const GridPoint& center, const GridPoint& back, const GridPoint& x,
                 const GridPoint& y) {
    const auto half = [&](const GridPoint& p) {  // 0: within 180 degrees after back; 1: later.
        const int64_t side = Cross(center, back, p);
        if (side != 0) return side > 0 ? 0 : 1;
        const int64_t dot = (int64_t{back.lat} - center.lat) * (p.lat - center.lat) +
                            (int64_t{back.lon} - center.lon) * (p.lon - center.lon);
        return dot < 0 ? 0 : 2;  // Opposite to back: the end of the first half.
    };
    const int hx = half(x);
    const int hy = half(y);
    if (hx != hy) return hx < hy;
    return Cross(center, x, y) > 0;
}

// Joins a zone's edges to rings that pass each vertex once and do not cross each other.
class RingTracer {
  public:
    explicit RingTracer(std::vector<DirectedEdge> edges) : mEdges(std::move(edges)) {
        std::sort(mEdges.begin(), mEdges.end());
        mUsed.assign(mEdges.size(), false);
        for (size_t i = 0; i < mEdges.size(); ++i) {
            if (i == 0 || mEdges[i].from != mEdges[i - 1].from) {
                mVertices.push_back(mEdges[i].from);
                mFirstEdge.push_back(i);
            }
        }
        mFirstEdge.push_back(mEdges.size());
        mPathPosition.assign(mVertices.size(), kNotOnPath);
    }

    ZoneRings Trace() {
        ZoneRings rings;
        for (size_t i = 0; i < mEdges.size(); ++i) {
            if (!mUsed[i]) TraceFrom(i, &rings);
        }
        return rings;
    }

  private:
    static constexpr size_t kNotOnPath = std::numeric_limits<size_t>::max();

    size_t VertexOf(const GridPoint& p) const {
        return static_cast<size_t>(std::lower_bound(mVertices.begin(), mVertices.end(), p) -
                                   mVertices.begin());
    }

    // The unused edge out of `vertex` that bounds the same wedge of area as the edge from
    // `before`: the first one counterclockwise from the way back.
    size_t NextEdge(size_t vertex, const GridPoint& before) const {
        size_t best = mEdges.size();
        for (size_t e = mFirstEdge[vertex]; e < mFirstEdge[vertex + 1]; ++e) {
            if (mUsed[e]) continue;
            if (best == mEdges.size() ||
                TurnsBefore(mVertices[vertex], before, mEdges[e].to, mEdges[best].to)) {
                best = e;
            }
        }
        return best;
    }

    // Follows edges from `edge` until its start has no loop left; each time the path comes back
    // to one of its vertices, the loop behind it is a ring.
    void TraceFrom(size_t edge, ZoneRings* rings) {
        std::vector<size_t> path;
        size_t vertex = VertexOf(mEdges[edge].from);
        mPathPosition[vertex] = 0;
        path.push_back(vertex);
        for (;;) {
            mUsed[edge] = true;
            vertex = VertexOf(mEdges[edge].to);
            const size_t position = mPathPosition[vertex];
            if (position == kNotOnPath) {
                mPathPosition[vertex] = path.size();
                path.push_back(vertex);
            } else {
                GridRing ring;
                for (size_t i = position; i < path.size(); ++i) {
                    ring.push_back(mVertices[path[i]]);
                    if (i > position) mPathPosition[path[i]] = kNotOnPath;
                }
                rings->push_back(std::move(ring));
                path.resize(position + 1);
                if (position == 0) break;
            }
            edge = NextEdge(vertex, mVertices[path[path.size() - 2]]);
            if (edge == mEdges.size()) throw std::logic_error("a ring does not close");
        }
        mPathPosition[path.front()] = kNotOnPath;
    }

    std::vector<DirectedEdge> mEdges;  // Sorted, so those out of a vertex stand together.
    std::vector<bool> mUsed;
    std::vector<GridPoint> mVertices;
    std::vector<size_t> mFirstEdge;
    std::vector<size_t> mPathPosition;
};

// How often `ring` winds clockwise around the middle of the edge a-b.
int WindingAround(const GridRing& ring, const GridPoint& a, const GridPoint& b) {
    const GridPoint middle = {a.lat + b.lat, a.lon + b.lon};  // In half units.
    int winding = 0;
    for (size_t i = 0; i < ring.size(); ++i) {
        const GridPoint& next = ring[i + 1 < ring.size() ? i + 1 : 0];
        const GridPoint p = {2 * ring[i].lat, 2 * ring[i].lon};
        const GridPoint q = {2 * next.lat, 2 * next.lon};
        if ((p.lat > middle.lat) == (q.lat > middle.lat)) continue;
        const int64_t side = Cross(p, q, middle);
        if (q.lat > p.lat && side > 0) --winding;  // Upward, east of the middle.
        if (q.lat < p.lat && side < 0) ++winding;
    }
    return winding;
}

// The edges that more than one ring passes.
std::vector<DirectedEdge> SharedEdges(const ZoneRings& rings) {
    std::vector<DirectedEdge> edges;
    for (const GridRing& ring : rings) {
        for (size_t i = 0; i < ring.size(); ++i) {
            edges.push_back({ring[i], ring[i + 1 < ring.size() ? i + 1 : 0]});
        }
    }
    std::sort(edges.begin(), edges.end());
    std::vector<DirectedEdge> shared;
    for (size_t i = 1; i < edges.size(); ++i) {
        if (!(edges[i - 1] < edges[i])) shared.push_back(edges[i]);
    }
    return shared;
}

// An edge of the ring that no other passes; of rings that are not alike each has one, unless it
// is pieced together from parts of others, where any will do.
DirectedEdge OwnEdge(const GridRing& ring, const std::vector<DirectedEdge>& shared) {
    for (size_t i = 0; i < ring.size(); ++i) {
        const DirectedEdge edge = {ring[i], ring[i + 1 < ring.size() ? i + 1 : 0]};
        if (!std::binary_search(shared.begin(), shared.end(), edge)) return edge;
    }
    return {ring[0], ring[1]};
}

// Keeps the rings that part area from no area: an outline with none of the zone around it, a
// hole with exactly one outline around it. The others are lobes that rounding turned inside
// out, or overlaps within the zone.
ZoneRings KeepBorders(ZoneRings rings) {
    for (GridRing& ring : rings) {
        std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end()), ring.end());
    }
    std::sort(rings.begin(), rings.end());
    rings.erase(std::unique(rings.begin(), rings.end()), rings.end());

    const std::vector<DirectedEdge> shared = SharedEdges(rings);
    std::vector<GridBox> boxes;
    std::vector<bool> clockwise;
    for (const GridRing& ring : rings) {
        boxes.push_back(BoxOf(ring));
        clockwise.push_back(DoubleArea(ring) < 0);
    }
    std::vector<bool> isBorder;
    for (size_t i = 0; i < rings.size(); ++i) {
        const DirectedEdge edge = OwnEdge(rings[i], shared);
        int around = 0;
        for (size_t j = 0; j < rings.size(); ++j) {
            if (j == i || !boxes[j].Contains(boxes[i])) continue;
            around += WindingAround(rings[j], edge.from, edge.to);
        }
        isBorder.push_back(around == (clockwise[i] ? 0 : 1));
    }
    ZoneRings kept;
    for (size_t i = 0; i < rings.size(); ++i) {
        if (isBorder[i]) kept.push_back(std::move(rings[i]));
    }
    return kept;
}

}  // namespace

void MendOnGrid(std::vector<ZoneRings>* zones,
                const std::function<void(int round, size_t splits)>& progress) {
    std::vector<EdgeUse> uses = UsesOf(*zones);
    Combine(&uses);
    for (int round = 1;; ++round) {
        const std::vector<Segment> segments = SegmentsOf(uses);
        std::vector<Split> splits;
        ComparePairs(segments, [&splits](uint32_t segment, const GridPoint& at) {
            splits.push_back({segment, at});
        });
        progress(round, splits.size());
        if (splits.empty()) break;
        if (round == kMaxRounds) throw std::runtime_error("the borders do not settle on the grid");
        ApplySplits(segments, &splits, &uses);
        Combine(&uses);
    }

    std::vector<std::vector<DirectedEdge>> edges(zones->size());
    for (const EdgeUse& use : uses) {
        for (int32_t i = 0; i < std::abs(use.net); ++i) {
            edges[use.zone].push_back(use.net > 0 ? DirectedEdge{use.a, use.b}
                                                  : DirectedEdge{use.b, use.a});
        }
    }
    for (size_t zone = 0; zone < zones->size(); ++zone) {
        (*zones)[zone] = KeepBorders(RingTracer(std::move(edges[zone])).Trace());
    }
}

size_t CountCrossings(const std::vector<ZoneRings>& zones) {
    std::vector<EdgeUse> uses = UsesOf(zones);
    Combine(&uses);
    size_t crossings = 0;
    ComparePairs(SegmentsOf(uses), [&crossings](uint32_t, const GridPoint&) { ++crossings; });
    return crossings;
}

}  // namespace offlinetz
