#include "tile.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "database/encode.h"
#include "output_limit.h"
#include "segment_rtree.h"

namespace offlinetz {

namespace {

// The box of the world reaches this many units past the world's edges, for two reasons. The rings
// along the edges and the reader's shift stay inside it. And it divides into 64 equal parts in each
// direction, as the grid of the reader's spatial index does.
constexpr int32_t kWorldReach = 32;

// Distances from a tile's box in units of latitude and of longitude; both are the same in degrees.
// A tile keeps every edge that comes within kMargin of its box, whole. All other edges and the clip
// rectangle stay further away: the reader's rounding of crossings ends within six units.
constexpr GridPoint kMargin = {14, 7};
// Where closing paths run until the clip rectangle is known: outside the margin of every smaller
// tile.
constexpr GridPoint kClosingDistance = {28, 14};
constexpr int32_t kMinBoxUnits = 64;  // Boxes are not cut smaller, however many points they hold.
// A box made by at least this many halvings of the world may hold the full number of points of a
// tile. Each doubling of a box's sides (two halvings fewer) halves the number that it may hold. The
// reason: a halving costs every box the same, a clip rectangle, but saves more for a large box,
// because lookups in more area then read fewer points.
constexpr int kFullTileHalvings = 21;
constexpr size_t kAlwaysAllowedPoints = 16;  // Any box may hold these.

GridBox Grown(const GridBox& box, const GridPoint& by) {
    return {{box.min.lat - by.lat, box.min.lon - by.lon},
            {box.max.lat + by.lat, box.max.lon + by.lon}};
}

// --- Clipping rings ----------------------------------------------------------------------

// The eight regions around a box, counterclockwise from east. The odd ones are the corners, in the
// order of CornersOf.
enum Region { kEast, kNorthEast, kNorth, kNorthWest, kWest, kSouthWest, kSouth, kSouthEast };

int RegionOf(const GridPoint& p, const GridBox& box) {
    const int x = p.lon > box.max.lon ? 1 : (p.lon < box.min.lon ? -1 : 0);
    const int y = p.lat > box.max.lat ? 1 : (p.lat < box.min.lat ? -1 : 0);
    static constexpr int kRegions[3][3] = {
            {kSouthWest, kSouth, kSouthEast}, {kWest, -1, kEast}, {kNorthWest, kNorth, kNorthEast}};
    return kRegions[y + 1][x + 1];
}

// The angle, seen from `box`, by which an edge that does not touch the box turns around it: the
// number of regions it advances counterclockwise, so in eighths of a turn.
int EighthsAround(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    const int difference = (RegionOf(q, box) - RegionOf(p, box)) & 7;
    if (difference == 0) return 0;
    if (ShareSide(p, q, box)) return difference <= 2 ? difference : difference - 8;
    const GridPoint center = {box.min.lat + (box.max.lat - box.min.lat) / 2,
                              box.min.lon + (box.max.lon - box.min.lon) / 2};
    return Cross(p, q, center) > 0 ? difference : difference - 8;
}

constexpr int kNoCorner = -1;

// A point of a clipped ring: a vertex of the zone's border, or a corner of a closing path.
struct Step {
    GridPoint at;
    int corner = kNoCorner;  // Index into CornersOf.
};
using Path = std::vector<Step>;  // Closed.

// The vertices of a ring, counted from one of them, around the ring's end. Edge i leads from vertex
// i to the next.
struct RotatedRing {
    const Path& ring;
    size_t start;

    size_t Size() const { return ring.size(); }
    const GridPoint& At(size_t i) const { return ring[(start + i) % ring.size()].at; }
    bool Touches(size_t edge, const GridBox& box) const {
        return TouchesBox(At(edge), At(edge + 1), box);
    }
};

// The ring from its first edge that touches `box`, or from its beginning if none does.
RotatedRing StartAtBox(const Path& ring, const GridBox& box) {
    for (RotatedRing rotated = {ring, 0}; rotated.start < ring.size(); ++rotated.start) {
        if (rotated.Touches(0, box)) return rotated;
    }
    return {ring, 0};
}

// Consecutive edges of a ring that stay away from a box.
struct FarRun {
    size_t firstEdge;
    size_t edges = 0;
    int eighths = 0;  // The sum of EighthsAround over the edges.
};

// The maximal runs of edges that do not touch `keep`, in order.
std::vector<FarRun> FarRunsOf(const RotatedRing& ring, const GridBox& keep) {
    std::vector<FarRun> runs;
    bool isNear = true;
    for (size_t i = 0; i < ring.Size(); ++i) {
        const bool wasNear = isNear;
        isNear = ring.Touches(i, keep);
        if (isNear) continue;
        if (wasNear) runs.push_back({i});
        ++runs.back().edges;
        runs.back().eighths += EighthsAround(ring.At(i), ring.At(i + 1), keep);
    }
    return runs;
}

// Appends the corners of a box that a path around it passes. The path begins in `region` and turns
// by `eighths`.
void AppendClosingPath(int region, int eighths, const std::array<GridPoint, 4>& corners,
                       Path* path) {
    for (int i = 1; i < std::abs(eighths); ++i) {
        const int passed = (region + (eighths > 0 ? i : -i)) & 7;
        if (passed % 2 == 0) continue;  // A side.
        const int corner = passed / 2;
        path->push_back({corners[static_cast<size_t>(corner)], corner});
    }
}

// A ring, clipped to the surroundings of a box.
struct ClippedRing {
    Path path;                    // Empty if no edge comes near the box.
    int winding = 0;              // If `path` is empty: the ring's counterclockwise winding number.
    bool hasClosingPath = false;  // Whether a closing path replaces a part of the ring.
};

// Clips a ring: replaces each run of at least two edges away from `box` by a closing path that
// turns around the box by the same angle. The first closing path makes `extraTurns`
// counterclockwise turns more. At each point of the box the winding number changes by `extraTurns`,
// if there is a closing path, and not at all otherwise.
ClippedRing ClipRing(const Path& ring, const GridBox& box, int extraTurns) {
    const GridBox keep = Grown(box, kMargin);
    const auto corners = CornersOf(Grown(box, kClosingDistance));
    const RotatedRing rotated = StartAtBox(ring, keep);
    const std::vector<FarRun> runs = FarRunsOf(rotated, keep);
    ClippedRing clipped;
    if (runs.size() == 1 && runs[0].edges == ring.size()) {
        clipped.winding = runs[0].eighths / 8;
        return clipped;
    }
    size_t next = 0;
    const auto appendVerticesTo = [&](size_t last) {
        for (; next <= last; ++next)
            clipped.path.push_back({rotated.At(next), kNoCorner});
    };
    for (const FarRun& run : runs) {
        if (run.edges == 1) continue;  // A single edge stays: no closing path is shorter.
        appendVerticesTo(run.firstEdge);
        const int turned = clipped.hasClosingPath ? 0 : 8 * extraTurns;
        AppendClosingPath(RegionOf(rotated.At(run.firstEdge), keep), run.eighths + turned, corners,
                          &clipped.path);
        clipped.hasClosingPath = true;
        next = run.firstEdge + run.edges;
    }
    appendVerticesTo(ring.size() - 1);
    return clipped;
}

// --- The clip rectangle ------------------------------------------------------------------

// The sides of a box counterclockwise: side i leads from corner i of CornersOf to the next.
constexpr BoxSide kSides[4] = {
        {&GridPoint::lat, 1}, {&GridPoint::lon, -1}, {&GridPoint::lat, -1}, {&GridPoint::lon, 1}};

// The clip rectangle of a tile: only edges that the tile keeps meet it. All sides grow by the same
// distance in degrees; each stops at the first other edge, or at the world's edge.
GridBox ClipRectangleOf(const GridBox& tile, const SegmentRTree& borders, const GridBox& world) {
    const GridBox keep = Grown(tile, kMargin);
    GridBox rectangle = keep;
    bool isDone[4] = {false, false, false, false};
    const auto areDone = [&] { return std::count(isDone, isDone + 4, true) == 4; };
    for (GridPoint reach = kMargin; !areDone();) {
        reach = {2 * reach.lat, 2 * reach.lon};
        for (const size_t i : {0u, 3u, 2u, 1u}) {  // Clockwise from north.
            if (isDone[i]) continue;
            const BoxSide& side = kSides[i];
            const int32_t wanted = side.Of(tile) + side.sign * reach.*side.axis;
            const int32_t edge = side.Of(world);
            const int32_t limit = side.sign > 0 ? std::min(wanted, edge) : std::max(wanted, edge);
            const bool grows = side.sign * limit > side.sign * side.Of(rectangle);
            const bool isStopped = grows && borders.Grow(&rectangle, side, limit, keep);
            isDone[i] = isStopped || limit == edge;
        }
    }
    return rectangle;
}

// Which sides of the clip rectangle rings run along.
struct SideSet {
    bool has[4] = {false, false, false, false};

    bool IsFull() const { return has[0] && has[1] && has[2] && has[3]; }
    // Adds the side between two corners, if they are neighbours.
    void Add(int from, int to) {
        if (((to - from) & 3) == 1) has[from] = true;
        if (((from - to) & 3) == 1) has[to] = true;
    }
    void Add(const Path& path) {
        for (size_t i = 0; i < path.size(); ++i) {
            const Step& next = path[NextIndex(i, path.size())];
            if (path[i].corner != kNoCorner && next.corner != kNoCorner) {
                Add(path[i].corner, next.corner);
            }
        }
    }
};

struct ZonePath {
    uint32_t zone;
    Path path;
};

// Whether a vertex lies just beyond a side of the clip rectangle: one unit away, and between the
// side's corners. Two edges from such a vertex to the corners do as well as the side itself.
bool IsJustBeyond(const GridPoint& p, const GridBox& rectangle, const BoxSide& side) {
    int32_t GridPoint::*const across = side.CrossAxis();
    return p.*across >= rectangle.min.*across && p.*across <= rectangle.max.*across &&
           p.*side.axis == side.Of(rectangle) + side.sign;
}

// Adds the sides along which rings lead from a vertex just beyond to both corners. Where borders
// leave the tile there, one zone closes toward one corner and another zone toward the other.
void AddJoinedSides(const std::vector<ZonePath>& paths, const GridBox& rectangle, SideSet* sides) {
    for (int side = 0; side < 4; ++side) {
        std::set<GridPoint> joined[2];  // To the side's first and second corner.
        for (const ZonePath& p : paths) {
            for (size_t i = 0; i < p.path.size(); ++i) {
                const Step& a = p.path[i];
                const Step& b = p.path[NextIndex(i, p.path.size())];
                if ((a.corner == kNoCorner) == (b.corner == kNoCorner)) continue;
                const GridPoint& vertex = a.corner == kNoCorner ? a.at : b.at;
                const int corner = a.corner == kNoCorner ? b.corner : a.corner;
                const int end = (corner - side) & 3;
                if (end <= 1 && IsJustBeyond(vertex, rectangle, kSides[side])) {
                    joined[end].insert(vertex);
                }
            }
        }
        for (const GridPoint& vertex : joined[0]) {
            if (joined[1].count(vertex) > 0) sides->has[side] = true;
        }
    }
}

// The corners of the shortest path that leads from `corner` along all missing sides and back:
// without `corner` at its beginning, with it at its end.
std::vector<int> PathAlongMissing(const SideSet& sides, int corner) {
    // Counterclockwise as far as the last missing side, or clockwise, or both in part.
    int bestForward = 4;
    int bestBackward = 0;
    for (int forward = 0; forward <= 4; ++forward) {
        int backward = 0;
        for (int k = forward; k < 4; ++k) {
            if (!sides.has[(corner + k) & 3]) backward = std::max(backward, 4 - k);
        }
        if (forward + backward < bestForward + bestBackward) {
            bestForward = forward;
            bestBackward = backward;
        }
    }
    std::vector<int> path;
    for (const auto& [length, direction] :
         {std::pair(bestForward, 1), std::pair(bestBackward, -1)}) {
        for (int k = 1; k <= length; ++k)
            path.push_back((corner + direction * k) & 3);
        for (int k = length - 1; k >= 0; --k)
            path.push_back((corner + direction * k) & 3);
    }
    return path;
}

// A step of a path after which another closing path can be inserted.
struct Anchor {
    Path* path = nullptr;  // Null: there is none.
    size_t position = 0;
    int corner = 0;  // Where the closing path begins and ends.
};

// The anchor that takes the fewest points, the first one of equals: a corner that a ring has, or a
// vertex outside `keep`. `lengths` are those of the closing paths from each corner.
Anchor FindAnchor(std::vector<ZonePath>* paths, const GridBox& keep, const size_t (&lengths)[4]) {
    Anchor best;
    size_t bestPoints = SIZE_MAX;
    for (ZonePath& p : *paths) {
        for (size_t i = 0; i < p.path.size(); ++i) {
            const Step& step = p.path[i];
            const bool isCorner = step.corner != kNoCorner;
            if (!isCorner && keep.Contains(step.at)) continue;
            // From a vertex, the corner of its own region or one at the end of its side: the path
            // there and back stays outside `keep`.
            const int region = RegionOf(step.at, keep);
            const int corner =
                    isCorner ? step.corner : (region % 2 == 1 ? region / 2 : (region / 2) % 4);
            const size_t points = lengths[corner] + (isCorner ? 0 : 2);
            if (points >= bestPoints) continue;
            best = {&p.path, i, corner};
            bestPoints = points;
        }
    }
    return best;
}

// Adds closing paths along the sides of the clip rectangle that no ring runs along: after the best
// anchor, else as a ring of its own that encloses nothing.
void CloseMissingSides(const GridBox& tile, const GridBox& rectangle,
                       std::vector<ZonePath>* paths) {
    SideSet sides;
    for (const ZonePath& p : *paths)
        sides.Add(p.path);
    AddJoinedSides(*paths, rectangle, &sides);
    if (sides.IsFull()) return;

    std::vector<int> pathsFrom[4];
    size_t lengths[4];
    for (int corner = 0; corner < 4; ++corner) {
        pathsFrom[corner] = PathAlongMissing(sides, corner);
        lengths[corner] = pathsFrom[corner].size();
    }
    const Anchor anchor = FindAnchor(paths, Grown(tile, kMargin), lengths);
    Path closing;
    for (const int corner : pathsFrom[anchor.corner])
        closing.push_back({{}, corner});
    if (anchor.path == nullptr) {
        paths->push_back({TableEntry::kNoZone, std::move(closing)});
        return;
    }
    const Step from = (*anchor.path)[anchor.position];
    if (from.corner == kNoCorner) {  // To the corner first, and back to the vertex at last.
        closing.insert(closing.begin(), {{}, anchor.corner});
        closing.push_back(from);
    }
    anchor.path->insert(anchor.path->begin() + static_cast<std::ptrdiff_t>(anchor.position) + 1,
                        closing.begin(), closing.end());
}

// --- Tiles -------------------------------------------------------------------------------

// What a box holds: the rings that come near it, and the zones that cover it whole.
struct Content {
    std::vector<ZonePath> paths;    // By zone.
    std::map<uint32_t, int> cover;  // How many times each zone covers the box; never 0.

    size_t Points() const {
        size_t points = 0;
        for (const ZonePath& p : paths)
            points += p.path.size();
        return points;
    }
    void Cover(uint32_t zone, int times) {
        if (times == 0) return;
        const auto it = cover.emplace(zone, 0).first;
        if ((it->second += times) == 0) cover.erase(it);
    }
};

class Tiler {
  public:
    Tiler(const std::vector<ZoneRings>& zones, const Grid& grid, size_t maxPoints,
          uint64_t maxBytes, const ProgressCallback& progress)
        : mBorders(zones),
          mWorld({{-grid.Scale(), -grid.Scale()}, {grid.Scale(), grid.Scale()}}),
          mMaxPoints(maxPoints),
          mMaxBytes(maxBytes),
          mProgress(progress) {}

    // Makes the tiles of a box that `halvings` halvings of the world made.
    void Divide(const GridBox& box, int halvings, Content content) {
        const int32_t height = box.max.lat - box.min.lat;
        const int32_t width = box.max.lon - box.min.lon;
        if (IsTile(content.Points(), halvings) || std::max(height, width) < kMinBoxUnits) {
            AddTile(box, content);
            return;
        }
        GridBox low = box;
        GridBox high = box;
        if (height > width) {
            low.max.lat = box.min.lat + height / 2;
            high.min.lat = low.max.lat + 1;
        } else {
            low.max.lon = box.min.lon + width / 2;
            high.min.lon = low.max.lon + 1;
        }
        for (const GridBox& half : {low, high}) {
            Content part;
            part.cover = content.cover;
            for (const ZonePath& whole : content.paths) {
                ClippedRing clipped = ClipRing(whole.path, half, 0);
                if (clipped.path.empty()) {
                    part.Cover(whole.zone, -clipped.winding);
                } else {
                    part.paths.push_back({whole.zone, std::move(clipped.path)});
                }
            }
            Divide(half, halvings + 1, std::move(part));
        }
    }

    std::vector<TableEntry> TakeEntries() { return std::move(mEntries); }

  private:
    bool IsTile(size_t points, int halvings) const {
        if (points > mMaxPoints) return false;
        const int missing = std::max(kFullTileHalvings - halvings, 0);
        return points <= kAlwaysAllowedPoints ||
               points * points <= mMaxPoints * mMaxPoints >> missing;
    }

    void AddTile(const GridBox& box, const Content& content) {
        const GridBox rectangle = ClipRectangleOf(box, mBorders, mWorld);
        const auto corners = CornersOf(rectangle);
        std::map<uint32_t, int> cover = content.cover;
        std::vector<ZonePath> paths;
        for (const ZonePath& whole : content.paths) {
            // If a zone covers the tile except for holes, the clip rectangle as its exterior ring
            // becomes part of the closing path of the first such hole.
            const auto covered = cover.find(whole.zone);
            const int turns = covered != cover.end() ? -covered->second : 0;
            ClippedRing clipped = ClipRing(whole.path, box, turns);
            if (turns != 0 && clipped.hasClosingPath) cover.erase(covered);
            paths.push_back({whole.zone, std::move(clipped.path)});
        }
        for (const auto& [zone, times] : cover) {
            Path whole;
            for (int corner = 0; corner < 4; ++corner)
                whole.push_back({{}, times > 0 ? 3 - corner : corner});
            for (int i = std::abs(times); i > 0; --i)
                paths.push_back({zone, whole});
        }
        CloseMissingSides(box, rectangle, &paths);
        std::stable_sort(paths.begin(), paths.end(),
                         [](const ZonePath& x, const ZonePath& y) { return x.zone < y.zone; });
        for (const ZonePath& p : paths) {
            GridRing ring;
            ring.reserve(p.path.size());
            for (const Step& step : p.path) {
                ring.push_back(step.corner != kNoCorner ? corners[static_cast<size_t>(step.corner)]
                                                        : step.at);
            }
            mEntries.push_back({p.zone, box, std::move(ring)});
            mBytes += LeastStoredBytes(mEntries.back());
        }
        CheckSize(paths.size());
        mProgress("tiling", mEntries.size(), 0);
    }

    // Throws OutputLimitError if the entries so far take more than mMaxBytes. The latest tile has
    // `count` entries.
    void CheckSize(size_t count) {
        if (count > mMostEntries) {
            mMostEntries = count;
            mFirstOfMost = mEntries.size() - count;
        }
        if (mBytes <= mMaxBytes) return;
        const GridBox& box = mEntries[mFirstOfMost].box;
        std::vector<uint32_t> zones;
        for (size_t i = mFirstOfMost; i < mFirstOfMost + mMostEntries; ++i) {
            const uint32_t zone = mEntries[i].zone;
            if (zone != TableEntry::kNoZone && (zones.empty() || zones.back() != zone))
                zones.push_back(zone);
        }
        throw OutputLimitError({box.min.lat + (box.max.lat - box.min.lat) / 2,
                                box.min.lon + (box.max.lon - box.min.lon) / 2},
                               std::move(zones));
    }

    const SegmentRTree mBorders;
    const GridBox mWorld;
    const size_t mMaxPoints;
    const uint64_t mMaxBytes;
    const ProgressCallback& mProgress;
    std::vector<TableEntry> mEntries;
    uint64_t mBytes = 0;      // The least that the entries take in the file.
    size_t mMostEntries = 0;  // The greatest number of entries of one tile, ...
    size_t mFirstOfMost = 0;  // ... and the index of the first of them.
};

std::vector<TableEntry> WholeRings(const std::vector<ZoneRings>& zones) {
    std::vector<TableEntry> entries;
    for (size_t zone = 0; zone < zones.size(); ++zone) {
        for (const GridRing& ring : zones[zone]) {
            GridBox box = BoxOf(ring);
            box.min.lon -= zonedetect::kRingShift;  // The box must hold the stored ring too.
            entries.push_back({static_cast<uint32_t>(zone), box, ring});
        }
    }
    return entries;
}

}  // namespace

std::vector<TableEntry> TileWorld(const std::vector<ZoneRings>& zones, const Grid& grid,
                                  size_t maxPoints, const ProgressCallback& progress,
                                  uint64_t maxBytes) {
    if (maxPoints == 0) return WholeRings(zones);
    Content content;
    for (size_t zone = 0; zone < zones.size(); ++zone) {
        for (const GridRing& ring : zones[zone]) {
            Path path;
            path.reserve(ring.size());
            for (const GridPoint& p : ring)
                path.push_back({p, kNoCorner});
            content.paths.push_back({static_cast<uint32_t>(zone), std::move(path)});
        }
    }
    const int32_t low = -grid.Scale() - kWorldReach;
    const int32_t high = grid.Scale() + kWorldReach - 1;
    Tiler tiler(zones, grid, maxPoints, maxBytes, progress);
    tiler.Divide({{low, low}, {high, high}}, 0, std::move(content));
    return tiler.TakeEntries();
}

}  // namespace offlinetz
