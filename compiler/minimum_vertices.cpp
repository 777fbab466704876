#include "minimum_vertices.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <tuple>
#include <utility>

namespace offlinetz {

namespace {

// The wedge test uses a distance this many metres larger. Its rounding errors are a hundredth of
// that once around the world, so it never rejects an edge that passes all points.
constexpr double kSlack = 1e-6;

struct Direction {
    double lat;
    double lon;
};

// Whether `x` lies within half a turn counterclockwise of `from`.
bool IsLeftOf(const Direction& from, const Direction& x) {
    return from.lon * x.lat - from.lat * x.lon >= 0.0;
}

// The directions in which a ray from a point passes all points of a set within a distance.
class Wedge {
  public:
    bool Contains(const Direction& x) const { return mIsWhole || IsBetween(mRight, x, mLeft); }

    // Removes directions that do not pass within `metres` of all points of the rectangle that
    // reaches `reach` each way around the point at `offset`; their units are `latMetres` and
    // `lonMetres` long. Returns whether any direction is left.
    bool Narrow(const Direction& offset, const Direction& reach, double latMetres, double lonMetres,
                double metres) {
        // Seen from here, one corner of the rectangle is the leftmost, and the opposite one the
        // rightmost. Directions may lead as far to the right as the tangent to the circle around
        // the left corner, and the other way round.
        const double y = offset.lat * latMetres;
        const double x = offset.lon * lonMetres;
        const double toLeftY = std::copysign(reach.lat * latMetres, x);
        const double toRightX = std::copysign(reach.lon * lonMetres, y);
        const double leftY = y + toLeftY;
        const double leftX = x - toRightX;
        const double rightY = y - toLeftY;
        const double rightX = x + toRightX;
        const double leftSquared = leftX * leftX + leftY * leftY - metres * metres;
        const double rightSquared = rightX * rightX + rightY * rightY - metres * metres;
        if (leftSquared <= 0.0 || rightSquared <= 0.0) return true;
        // Metres become units by a division by each scale. Multiplied by both scales, the direction
        // is the same without a division.
        const double leftLength = std::sqrt(leftSquared);
        const double rightLength = std::sqrt(rightSquared);
        const Direction right = {(leftY * leftLength - leftX * metres) * lonMetres,
                                 (leftX * leftLength + leftY * metres) * latMetres};
        const Direction left = {(rightY * rightLength + rightX * metres) * lonMetres,
                                (rightX * rightLength - rightY * metres) * latMetres};
        if (mIsWhole) {
            mIsWhole = false;
            mRight = right;
            mLeft = left;
            return true;
        }
        const bool rightIsIn = Contains(right);
        const bool leftIsIn = Contains(left);
        if (!rightIsIn && !IsBetween(right, mRight, left)) return false;
        if (!leftIsIn && !IsBetween(right, mLeft, left)) return false;
        if (rightIsIn) mRight = right;
        if (leftIsIn) mLeft = left;
        return true;
    }

  private:
    // Whether `x` is between two directions that are less than half a turn apart.
    static bool IsBetween(const Direction& right, const Direction& x, const Direction& left) {
        return IsLeftOf(right, x) && IsLeftOf(x, left);
    }

    bool mIsWhole = true;
    Direction mRight = {0.0, 0.0};
    Direction mLeft = {0.0, 0.0};
};

// The bytes that the database takes for a difference of coordinates, as a sign-magnitude varint.
uint32_t StoredBytes(int32_t difference) {
    uint32_t bytes = 1;
    for (int32_t magnitude = std::abs(difference); magnitude >= 1 << 6; magnitude >>= 7)
        ++bytes;
    return bytes;
}

// The cheapest path found from the first vertex to another: its cost, and the vertex before its
// end.
struct Path {
    uint32_t edges = kUnreached;
    uint32_t bytes = 0;
    int64_t doubleArea = 0;
    size_t from = 0;

    static constexpr uint32_t kUnreached = UINT32_MAX;

    // Orders by cost; of equal ones, the path with the shorter last edge comes first.
    friend bool operator<(const Path& x, const Path& y) {
        return std::tie(x.edges, x.bytes, x.doubleArea, y.from) <
               std::tie(y.edges, y.bytes, y.doubleArea, x.from);
    }
};

// Finds the cheapest path in the graph of allowed edges.
class PathSearch {
  public:
    PathSearch(const LineToSimplify& line, const Grid& grid, const EdgeTest& isAllowed)
        : mLine(line), mGrid(grid), mIsAllowed(isAllowed) {
        int64_t doubleArea = 0;
        for (size_t i = 0; i < line.points.size(); ++i) {
            mLonMetres.push_back(grid.LongitudeMetres(line.points[i].lat));
            if (i > 0) doubleArea += Cross(line.points[0], line.points[i - 1], line.points[i]);
            mDoubleAreas.push_back(doubleArea);
        }
    }

    // The cheapest path from the first to the last of some vertices, which are sorted by position.
    std::vector<LineVertex> CheapestPath(const std::vector<LineVertex>& vertices) {
        std::vector<Path> paths(vertices.size());
        paths[0].edges = 0;
        for (size_t to = 1; to < vertices.size(); ++to)
            paths[to] = CheapestPathTo(to, vertices, paths);
        std::vector<LineVertex> kept = {vertices.back()};
        for (size_t v = vertices.size() - 1; v > 0; v = paths[v].from)
            kept.push_back(vertices[paths[v].from]);
        std::reverse(kept.begin(), kept.end());
        return kept;
    }

  private:
    Path CheapestPathTo(size_t to, const std::vector<LineVertex>& vertices,
                        const std::vector<Path>& paths) {
        ListReachable(to, vertices, paths);
        // Testing an edge costs more than all else, and the cheapest path nearly always passes, so
        // paths are tested in order of cost. Those with the fewest edges come first.
        while (!mReachable.empty()) {
            uint32_t fewest = Path::kUnreached;
            for (const size_t from : mReachable)
                fewest = std::min(fewest, paths[from].edges);
            mPaths.clear();
            size_t others = 0;
            for (const size_t from : mReachable) {
                if (paths[from].edges == fewest) {
                    mPaths.push_back(Extend(paths[from], from, vertices[from], vertices[to]));
                } else {
                    mReachable[others++] = from;
                }
            }
            mReachable.resize(others);
            while (!mPaths.empty()) {
                const auto best = std::min_element(mPaths.begin(), mPaths.end());
                if (IsAllowed(vertices[best->from], vertices[to])) return *best;
                *best = mPaths.back();
                mPaths.pop_back();
            }
        }
        return {};
    }

    bool IsAllowed(const LineVertex& from, const LineVertex& to) const {
        const bool isOfLine = from.position + 1 == to.position &&
                              from.at == mLine.points[from.position] &&
                              to.at == mLine.points[to.position];
        return isOfLine || mIsAllowed(from, to);
    }

    // Sets mReachable to the vertices before `to` from which an edge may lead there: without those
    // from where it certainly passes a point too far away.
    void ListReachable(size_t to, const std::vector<LineVertex>& vertices,
                       const std::vector<Path>& paths) {
        mReachable.clear();
        const LineVertex& end = vertices[to];
        size_t next = to;  // The vertices from this one on were looked at.
        while (next > 0 && vertices[next - 1].position == end.position)
            --next;
        Wedge wedge;
        size_t reached = 0;
        for (size_t i = end.position; next > 0;) {
            --i;
            if (vertices[next - 1].position == i) {
                for (; next > 0 && vertices[next - 1].position == i; --next) {
                    const GridPoint& at = vertices[next - 1].at;
                    if (paths[next - 1].edges != Path::kUnreached && at != end.at &&
                        wedge.Contains(OffsetOf(at, end.at)))
                        mReachable.push_back(next - 1);
                }
                if (++reached == kReach) return;
            }
            const Direction offset = OffsetOf(mLine.points[i], end.at);
            for (size_t k = mLine.firstPassing[i]; k < mLine.firstPassing[i + 1]; ++k) {
                const Direction passed = {offset.lat + mLine.passing[k].lat,
                                          offset.lon + mLine.passing[k].lon};
                if (!wedge.Narrow(passed, {mLine.reachLat, mLine.reachLon}, mGrid.LatitudeMetres(),
                                  mLonMetres[i], mLine.metres + kSlack)) {
                    return;
                }
            }
        }
    }

    static Direction OffsetOf(const GridPoint& p, const GridPoint& from) {
        return {static_cast<double>(p.lat - from.lat), static_cast<double>(p.lon - from.lon)};
    }

    // The path to `from`, which is vertex `index`, extended by the edge to `to`.
    Path Extend(const Path& path, size_t index, const LineVertex& from,
                const LineVertex& to) const {
        // The area between the line, the edge, and the ways between their ends.
        const GridPoint& origin = mLine.points[0];
        const int64_t between = mDoubleAreas[to.position] - mDoubleAreas[from.position] +
                                Cross(origin, mLine.points[to.position], to.at) +
                                Cross(origin, to.at, from.at) +
                                Cross(origin, from.at, mLine.points[from.position]);
        return {path.edges + 1,
                path.bytes + StoredBytes(to.at.lat - from.at.lat) +
                        StoredBytes(to.at.lon - from.at.lon),
                path.doubleArea + std::abs(between), index};
    }

    const LineToSimplify& mLine;
    const Grid& mGrid;
    const EdgeTest& mIsAllowed;
    std::vector<double> mLonMetres;     // Metres that a unit of longitude spans at each point.
    std::vector<int64_t> mDoubleAreas;  // Twice the area swept from the first point to each.
    std::vector<size_t> mReachable;     // For the current vertex: where its edge may begin,
    std::vector<Path> mPaths;           // and the cheapest paths with such an edge.
};

}  // namespace

std::vector<LineVertex> MinimumVertices(const LineToSimplify& line, const Grid& grid,
                                        const EdgeTest& isAllowed) {
    PathSearch search(line, grid, isAllowed);
    std::vector<LineVertex> vertices;
    for (size_t i = 0; i < line.points.size(); ++i) {
        for (size_t k = line.firstPlace[i]; k < line.firstPlace[i + 1]; ++k)
            vertices.push_back({i, line.places[k]});
    }
    for (;;) {
        std::vector<LineVertex> kept = search.CheapestPath(vertices);
        if (kept.size() == vertices.size()) return kept;
        vertices = std::move(kept);
    }
}

}  // namespace offlinetz
