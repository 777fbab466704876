#include "rebuild_rings.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <tuple>

#include "output_limit.h"
#include "snap_rounding.h"

namespace offlinetz {

namespace {

// The use of an undirected edge (a < b) by one zone.
struct EdgeUse {
    GridPoint a;
    GridPoint b;
    uint32_t zone;
    int32_t net;  // Passes from a to b minus passes from b to a. The zone lies on their right.
};

EdgeUse MakeUse(const GridPoint& from, const GridPoint& to, uint32_t zone, int32_t net) {
    return from < to ? EdgeUse{from, to, zone, net} : EdgeUse{to, from, zone, -net};
}

std::vector<EdgeUse> UsesOf(const std::vector<ZoneRings>& zones) {
    std::vector<EdgeUse> uses;
    for (size_t zone = 0; zone < zones.size(); ++zone) {
        for (const GridRing& ring : zones[zone]) {
            for (size_t i = 0; i < ring.size(); ++i) {
                const GridPoint& to = ring[NextIndex(i, ring.size())];
                uses.push_back(MakeUse(ring[i], to, static_cast<uint32_t>(zone), 1));
            }
        }
    }
    return uses;
}

// Sorts the uses and merges those of one edge by one zone. Passes in both directions cancel out.
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
        }
        if (sum.net != 0) (*uses)[kept++] = sum;
        i = next;
    }
    uses->resize(kept);
}

// The distinct edges of sorted uses. Sets `*firstUses` to the index of the first use of each edge,
// and to the number of uses at the end.
std::vector<Edge> EdgesOf(const std::vector<EdgeUse>& uses, std::vector<size_t>* firstUses) {
    std::vector<Edge> edges;
    for (size_t i = 0; i < uses.size(); ++i) {
        if (!edges.empty() && edges.back().a == uses[i].a && edges.back().b == uses[i].b) continue;
        edges.push_back({uses[i].a, uses[i].b});
        firstUses->push_back(i);
    }
    firstUses->push_back(uses.size());
    return edges;
}

// The zones along two edges, each once.
std::vector<uint32_t> ZonesAlong(const std::vector<EdgeUse>& uses,
                                 const std::vector<size_t>& firstUses, const uint32_t (&edges)[2]) {
    std::vector<uint32_t> zones;
    for (const uint32_t edge : edges) {
        for (size_t u = firstUses[edge]; u < firstUses[edge + 1]; ++u)
            zones.push_back(uses[u].zone);
    }
    std::sort(zones.begin(), zones.end());
    zones.erase(std::unique(zones.begin(), zones.end()), zones.end());
    return zones;
}

// Bends the edges by snap rounding and returns the uses of their parts.
std::vector<EdgeUse> NodeEdges(const std::vector<EdgeUse>& uses, size_t maxPoints,
                               const ProgressCallback& progress, Originals* originals,
                               size_t* pointsAdded) {
    std::vector<size_t> firstUses;
    const std::vector<Edge> edges = EdgesOf(uses, &firstUses);
    std::vector<SnapPoint> snapPoints;
    try {
        snapPoints = SnapRound(edges, maxPoints, progress);
    } catch (const TooManySnapPoints& error) {
        throw OutputLimitError(error.at, ZonesAlong(uses, firstUses, error.edges));
    }
    *pointsAdded = snapPoints.size();
    if (originals != nullptr) {
        originals->Sort();
        for (const SnapPoint& snapPoint : snapPoints) {
            const Edge& edge = edges[snapPoint.edge];
            originals->AddBetween(edge.a, edge.b, snapPoint.at);
        }
        originals->Sort();
    }
    std::vector<EdgeUse> noded;
    VisitParts(edges, snapPoints, [&](size_t edge, const GridPoint& from, const GridPoint& to) {
        for (size_t u = firstUses[edge]; u < firstUses[edge + 1]; ++u) {
            noded.push_back(MakeUse(from, to, uses[u].zone, uses[u].net));
        }
    });
    Combine(&noded);
    return noded;
}

// --- Tracing rings -----------------------------------------------------------------------

struct DirectedEdge {
    GridPoint from;
    GridPoint to;

    friend bool operator<(const DirectedEdge& x, const DirectedEdge& y) {
        return std::tie(x.from, x.to) < std::tie(y.from, y.to);
    }
};

// Whether the direction to x comes before that to y when turning counterclockwise from the
// direction to `back`, all seen from `center`. The direction to `back` itself comes last.
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

// Joins a zone's edges to rings. Each ring passes each of its vertices once, and no two cross.
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

    // The unused edge out of `vertex` that bounds the same wedge of area as the edge from `before`:
    // the first one counterclockwise from the edge back. mEdges.size() if there is none.
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

    // Follows edges from `edge` until the path is back at its start. Each time the path reaches one
    // of its own vertices, the loop since then is a ring and leaves the path.
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

    std::vector<DirectedEdge> mEdges;  // Sorted: the edges out of a vertex follow each other.
    std::vector<bool> mUsed;
    std::vector<GridPoint> mVertices;
    std::vector<size_t> mFirstEdge;
    std::vector<size_t> mPathPosition;
};

// The edges that more than one ring passes.
std::vector<DirectedEdge> SharedEdges(const ZoneRings& rings) {
    std::vector<DirectedEdge> edges;
    for (const GridRing& ring : rings) {
        for (size_t i = 0; i < ring.size(); ++i) {
            edges.push_back({ring[i], ring[NextIndex(i, ring.size())]});
        }
    }
    std::sort(edges.begin(), edges.end());
    std::vector<DirectedEdge> shared;
    for (size_t i = 1; i < edges.size(); ++i) {
        if (!(edges[i - 1] < edges[i])) shared.push_back(edges[i]);
    }
    return shared;
}

// An edge of the ring that no other ring passes. A ring has none only if all its edges are parts of
// other rings; any edge will do then.
DirectedEdge OwnEdge(const GridRing& ring, const std::vector<DirectedEdge>& shared) {
    for (size_t i = 0; i < ring.size(); ++i) {
        const DirectedEdge edge = {ring[i], ring[NextIndex(i, ring.size())]};
        if (!std::binary_search(shared.begin(), shared.end(), edge)) return edge;
    }
    return {ring[0], ring[1]};
}

// The winding number of all other rings around each ring, clockwise, at the middle of its edge
// `own`. Only rings whose bounding box contains the ring's bounding box are counted; others cannot
// enclose it.
//
// A line sweeps north over the edges. The cost of a ring is the number of the zone's edges at the
// latitude of that middle, so a thousand islets beside each other cost little.
std::vector<int> WindingsAround(const ZoneRings& rings, const std::vector<DirectedEdge>& own) {
    struct Upright {  // An edge that is not level. Coordinates are in half units.
        GridPoint from;
        GridPoint to;
        size_t ring;
        size_t position = 0;  // In `active`.
    };
    enum Kind { kEnd, kBegin, kAsk };  // Events of one latitude are handled in this order.
    struct Event {
        int32_t lat;
        Kind kind;
        size_t index;  // The edge, or the ring for kAsk.
    };
    std::vector<GridBox> boxes;
    std::vector<Upright> edges;
    std::vector<Event> events;
    for (size_t ring = 0; ring < rings.size(); ++ring) {
        boxes.push_back(BoxOf(rings[ring]));
        events.push_back({own[ring].from.lat + own[ring].to.lat, kAsk, ring});
        for (size_t i = 0; i < rings[ring].size(); ++i) {
            const GridPoint& p = rings[ring][i];
            const GridPoint& q = rings[ring][NextIndex(i, rings[ring].size())];
            if (p.lat == q.lat) continue;
            events.push_back({2 * std::min(p.lat, q.lat), kBegin, edges.size()});
            events.push_back({2 * std::max(p.lat, q.lat), kEnd, edges.size()});
            edges.push_back({{2 * p.lat, 2 * p.lon}, {2 * q.lat, 2 * q.lon}, ring});
        }
    }
    std::sort(events.begin(), events.end(), [](const Event& x, const Event& y) {
        return std::tie(x.lat, x.kind) < std::tie(y.lat, y.kind);
    });
    std::vector<int> windings(rings.size());
    std::vector<size_t> active;
    for (const Event& event : events) {
        if (event.kind == kBegin) {
            edges[event.index].position = active.size();
            active.push_back(event.index);
        } else if (event.kind == kEnd) {
            const size_t position = edges[event.index].position;
            active[position] = active.back();
            edges[active[position]].position = position;
            active.pop_back();
        } else {
            const size_t ring = event.index;
            const GridPoint middle = {event.lat, own[ring].from.lon + own[ring].to.lon};
            for (const size_t e : active) {
                const Upright& edge = edges[e];
                if (edge.ring == ring || !boxes[edge.ring].Contains(boxes[ring])) continue;
                const int64_t side = Cross(edge.from, edge.to, middle);
                if (edge.to.lat > edge.from.lat && side > 0) --windings[ring];  // East of it.
                if (edge.to.lat < edge.from.lat && side < 0) ++windings[ring];
            }
        }
    }
    return windings;
}

// Keeps the rings that separate area from no area: exterior rings with winding number 0 around
// them, holes with winding number 1. The others are lobes that rounding turned inside out, or
// overlaps within the zone.
ZoneRings KeepBorders(ZoneRings rings) {
    for (GridRing& ring : rings) {
        std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end()), ring.end());
    }
    std::sort(rings.begin(), rings.end());
    rings.erase(std::unique(rings.begin(), rings.end()), rings.end());

    const std::vector<DirectedEdge> shared = SharedEdges(rings);
    std::vector<DirectedEdge> own;
    for (const GridRing& ring : rings)
        own.push_back(OwnEdge(ring, shared));
    const std::vector<int> windings = WindingsAround(rings, own);
    ZoneRings kept;
    for (size_t i = 0; i < rings.size(); ++i) {
        const bool isExterior = DoubleArea(rings[i]) < 0;
        if (windings[i] == (isExterior ? 0 : 1)) kept.push_back(std::move(rings[i]));
    }
    return kept;
}

}  // namespace

size_t RebuildRings(std::vector<ZoneRings>* zones, const ProgressCallback& progress,
                    Originals* originals, size_t maxPoints) {
    size_t pointsAdded = 0;
    std::vector<EdgeUse> uses = UsesOf(*zones);
    Combine(&uses);
    uses = NodeEdges(uses, maxPoints, progress, originals, &pointsAdded);

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
    return pointsAdded;
}

bool MeetInVerticesOnly(const std::vector<ZoneRings>& zones) {
    std::vector<EdgeUse> uses = UsesOf(zones);
    Combine(&uses);
    std::vector<size_t> firstUses;
    return !CrossingsExceed(EdgesOf(uses, &firstUses), 0);
}

}  // namespace offlinetz
