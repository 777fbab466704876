#include "minimum_vertices.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <tuple>
#include <utility>

namespace offlinetz {

namespace {

// The wedge test uses a tolerance this many metres larger. Its rounding errors are a hundredth of
// that once around the world, so it never rejects an edge that the exact test accepts.
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

    // Removes the directions that do not pass within `metres` of the point at `offset`; its units
    // are `latMetres` and `lonMetres` long. Returns whether any direction is left.
    bool Narrow(const Direction& offset, double latMetres, double lonMetres, double metres) {
        const double y = offset.lat * latMetres;
        const double x = offset.lon * lonMetres;
        const double squared = x * x + y * y - metres * metres;
        if (squared <= 0.0) return true;
        // The tangents to the circle around that point. Metres become units by a division by each
        // scale. Multiplied by both scales, the direction is the same without a division.
        const double length = std::sqrt(squared);
        const Direction right = {(y * length - x * metres) * lonMetres,
                                 (x * length + y * metres) * latMetres};
        const Direction left = {(y * length + x * metres) * lonMetres,
                                (x * length - y * metres) * latMetres};
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

// The cheapest path found from the first stop to another: its cost, and the stop before its end.
struct Path {
    uint32_t edges = 0;
    uint32_t bytes = 0;
    int64_t doubleArea = 0;
    size_t from = 0;

    // Orders by cost; of equal ones, the path with the shorter last edge comes first.
    friend bool operator<(const Path& x, const Path& y) {
        return std::tie(x.edges, x.bytes, x.doubleArea, y.from) <
               std::tie(y.edges, y.bytes, y.doubleArea, x.from);
    }
};

// Finds the cheapest path in the graph of allowed edges between the points of a line.
class PathSearch {
  public:
    PathSearch(const std::vector<GridPoint>& line, const Grid& grid, double tolerance,
               const std::function<bool(size_t, size_t)>& isClear)
        : mLine(line), mGrid(grid), mTolerance(tolerance), mIsClear(isClear) {
        int64_t doubleArea = 0;
        for (size_t i = 0; i < line.size(); ++i) {
            mLonMetres.push_back(grid.LongitudeMetres(line[i].lat));
            if (i > 0) doubleArea += Cross(line[0], line[i - 1], line[i]);
            mDoubleAreas.push_back(doubleArea);
        }
    }

    // The stops on the cheapest path from the first to the last. Stops are positions in the line;
    // the edge from each to the next must be allowed.
    std::vector<size_t> CheapestPath(const std::vector<size_t>& stops) {
        std::vector<Path> paths(stops.size());
        for (size_t to = 1; to < stops.size(); ++to)
            paths[to] = CheapestPathTo(to, stops, paths);
        std::vector<size_t> kept = {stops.back()};
        for (size_t stop = stops.size() - 1; stop > 0; stop = paths[stop].from)
            kept.push_back(stops[paths[stop].from]);
        std::reverse(kept.begin(), kept.end());
        return kept;
    }

  private:
    Path CheapestPathTo(size_t to, const std::vector<size_t>& stops,
                        const std::vector<Path>& paths) {
        ListPathsTo(to, stops, paths);
        // Testing an edge costs more than all else, and the cheapest path nearly always passes, so
        // paths are tested in order of cost. The path from the stop before `to` is among them, so
        // they never run out.
        for (;;) {
            const auto best = std::min_element(mPaths.begin(), mPaths.end());
            if (best->from + 1 == to || IsAllowed(stops[best->from], stops[to])) return *best;
            *best = mPaths.back();
            mPaths.pop_back();
        }
    }

    // Sets mPaths to the paths to a stop, without those whose last edge certainly passes a point
    // too far away.
    void ListPathsTo(size_t to, const std::vector<size_t>& stops, const std::vector<Path>& paths) {
        mPaths.clear();
        const GridPoint& end = mLine[stops[to]];
        Wedge wedge;
        size_t stop = to - 1;
        for (size_t i = stops[to] - 1;; --i) {
            const Direction offset = {static_cast<double>(mLine[i].lat - end.lat),
                                      static_cast<double>(mLine[i].lon - end.lon)};
            if (i == stops[stop]) {
                if (wedge.Contains(offset))
                    mPaths.push_back(Extend(paths[stop], stop, i, stops[to]));
                if (stop == 0 || to - stop == kReach) return;
                --stop;
            }
            if (!wedge.Narrow(offset, mGrid.LatitudeMetres(), mLonMetres[i], mTolerance + kSlack)) {
                return;
            }
        }
    }

    // The path to `stop`, extended by the edge between two positions.
    Path Extend(const Path& path, size_t stop, size_t from, size_t to) const {
        const GridPoint& a = mLine[from];
        const GridPoint& b = mLine[to];
        const int64_t between = mDoubleAreas[to] - mDoubleAreas[from] - Cross(mLine[0], a, b);
        return {path.edges + 1,
                path.bytes + StoredBytes(b.lat - a.lat) + StoredBytes(b.lon - a.lon),
                path.doubleArea + std::abs(between), stop};
    }

    bool IsAllowed(size_t from, size_t to) const {
        for (size_t i = from + 1; i < to; ++i) {
            if (mGrid.SquaredMetresToSegment(mLine[i], mLine[from], mLine[to], mLonMetres[i]) >
                mTolerance * mTolerance) {
                return false;
            }
        }
        return mIsClear(from, to);
    }

    const std::vector<GridPoint>& mLine;
    const Grid& mGrid;
    double mTolerance;
    const std::function<bool(size_t, size_t)>& mIsClear;
    std::vector<double> mLonMetres;     // Metres that a unit of longitude spans at each point.
    std::vector<int64_t> mDoubleAreas;  // Twice the area swept from the first point to each.
    std::vector<Path> mPaths;           // To the current stop, not yet rejected.
};

}  // namespace

std::vector<size_t> MinimumVertices(const std::vector<GridPoint>& line, const Grid& grid,
                                    double tolerance,
                                    const std::function<bool(size_t from, size_t to)>& isClear) {
    PathSearch search(line, grid, tolerance, isClear);
    std::vector<size_t> stops(line.size());
    std::iota(stops.begin(), stops.end(), size_t{0});
    for (;;) {
        std::vector<size_t> kept = search.CheapestPath(stops);
        if (kept.size() == stops.size()) return kept;
        stops = std::move(kept);
    }
}

}  // namespace offlinetz
