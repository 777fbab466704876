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

// The world's box reaches past its edges, so that the reader's shift and the rings there stay
// inside, and is cut into 64 whole parts each way, as the reader's directory begins.
constexpr int32_t kWorldReach = 32;

// Distances from a tile's box, in units of latitude and of longitude, which count the same in
// degrees. Edges that come within the margin are kept, whole; all others, and the fence, stay
// outside it: the reader's rounding of crossings ends within six units.
constexpr GridPoint kMargin = {14, 7};
// Where detours run until the fence is known: out of the margin of every smaller tile.
constexpr GridPoint kDetour = {28, 14};
constexpr int32_t kMinBoxUnits = 64;  // Boxes are not cut smaller, however many points they hold.
// A box that so many halvings of the world made, or more, may hold all the points of a tile; one of
// twice the sides half as many. What a halving saves is the points times the area that need not
// read them, and what it costs is the same for all boxes, a fence.
constexpr int kFullTileHalvings = 21;
constexpr size_t kFewestTilePoints = 16;  // Any box may hold these.

GridBox Grown(const GridBox& box, const GridPoint& by) {
    return {{box.min.lat - by.lat, box.min.lon - by.lon},
            {box.max.lat + by.lat, box.max.lon + by.lon}};
}

// --- Rings around a box ------------------------------------------------------------------

// The eight regions around a box, counterclockwise from east; odd ones are the corners, in the
// order of CornersOf.
enum Region { kEast, kNorthEast, kNorth, kNorthWest, kWest, kSouthWest, kSouth, kSouthEast };

int RegionOf(const GridPoint& p, const GridBox& box) {
    const int x = p.lon > box.max.lon ? 1 : (p.lon < box.min.lon ? -1 : 0);
    const int y = p.lat > box.max.lat ? 1 : (p.lat < box.min.lat ? -1 : 0);
    static constexpr int kRegions[3][3] = {
            {kSouthWest, kSouth, kSouthEast}, {kWest, -1, kEast}, {kNorthWest, kNorth, kNorthEast}};
    return kRegions[y + 1][x + 1];
}

// The eighths of a turn around `box`, counterclockwise, that an edge makes which does not touch
// it.
int TurnOf(const GridPoint& p, const GridPoint& q, const GridBox& box) {
    const int difference = (RegionOf(q, box) - RegionOf(p, box)) & 7;
    if (difference == 0) return 0;
    if (ShareSide(p, q, box)) return difference <= 2 ? difference : difference - 8;
    const GridPoint center = {box.min.lat + (box.max.lat - box.min.lat) / 2,
                              box.min.lon + (box.max.lon - box.min.lon) / 2};
    return Cross(p, q, center) > 0 ? difference : difference - 8;
}

constexpr int kNoCorner = -1;

// A point of a ring around a tile: a vertex of the zone's border, or a corner of a detour.
struct Step {
    GridPoint at;
    int corner = kNoCorner;  // Index into CornersOf.
};
using Path = std::vector<Step>;  // Closed.

// What is left of a ring around a box.
struct Reduced {
    Path path;               // Empty when no edge comes near the box.
    int winding = 0;         // For an empty path: its counterclockwise windings around the box.
    bool hasDetour = false;  // Whether the path leaves the border anywhere.
};

// Replaces each stretch of edges away from `box` by a detour around it that turns as often, the
// first one by `extraTurns` counterclockwise turns more.
Reduced Reduce(const Path& path, const GridBox& box, int extraTurns) {
    const GridBox keep = Grown(box, kMargin);
    const auto corners = CornersOf(Grown(box, kDetour));
    const size_t count = path.size();
    const auto at = [&](size_t i) -> const GridPoint& { return path[i % count].at; };
    const auto touches = [&](size_t i) { return TouchesBox(at(i), at(i + 1), keep); };

    Reduced reduced;
    size_t start = 0;
    while (start < count && !touches(start))
        ++start;
    if (start == count) {
        int turn = 0;
        for (size_t i = 0; i < count; ++i)
            turn += TurnOf(at(i), at(i + 1), keep);
        reduced.winding = turn / 8;
        return reduced;
    }
    for (size_t i = start; i < start + count;) {
        reduced.path.push_back({at(i), kNoCorner});
        if (touches(i)) {
            ++i;
            continue;
        }
        const int region = RegionOf(at(i), keep);
        const size_t stretchStart = i;
        int turn = 0;
        for (; i < start + count && !touches(i); ++i)
            turn += TurnOf(at(i), at(i + 1), keep);
        // A single edge stays as it is; it is its own shortest detour.
        if (i == stretchStart + 1) continue;
        if (!reduced.hasDetour) turn += 8 * extraTurns;
        reduced.hasDetour = true;
        const int step = turn > 0 ? 1 : -1;
        for (int t = step; t != turn && turn != 0; t += step) {
            const int passed = (region + t) & 7;
            if (passed % 2 == 0) continue;
            const int corner = passed / 2;
            reduced.path.push_back({corners[static_cast<size_t>(corner)], corner});
        }
    }
    return reduced;
}

// --- The fence ---------------------------------------------------------------------------

// A rectangle around a tile that no edge meets but those that the tile keeps, as large as degrees
// alike on all sides make it, and the sides from there on.
GridBox FenceOf(const GridBox& tile, const SegmentRTree& borders, const GridBox& world) {
    const GridBox keep = Grown(tile, kMargin);
    GridBox fence = keep;
    // Sides that met an edge or the world's edge.
    bool isDone[4] = {false, false, false, false};
    const auto isOpen = [&] { return std::count(isDone, isDone + 4, true) < 4; };
    for (int64_t reach = 2 * kMargin.lat; isOpen(); reach *= 2) {
        const auto to = [](int64_t side, int64_t by, int32_t edge) {
            const int64_t moved = side + by;
            return static_cast<int32_t>(by > 0 ? std::min<int64_t>(moved, edge)
                                               : std::max<int64_t>(moved, edge));
        };
        const struct {
            Side side;
            const int32_t& now;
            int32_t limit;
            int32_t edge;
        } sides[4] = {{Side::kNorth, fence.max.lat, to(tile.max.lat, reach, world.max.lat),
                       world.max.lat},
                      {Side::kEast, fence.max.lon, to(tile.max.lon, reach / 2, world.max.lon),
                       world.max.lon},
                      {Side::kSouth, fence.min.lat, to(tile.min.lat, -reach, world.min.lat),
                       world.min.lat},
                      {Side::kWest, fence.min.lon, to(tile.min.lon, -reach / 2, world.min.lon),
                       world.min.lon}};
        for (size_t i = 0; i < 4; ++i) {
            if (isDone[i]) continue;
            const bool isUpward = sides[i].side == Side::kNorth || sides[i].side == Side::kEast;
            const bool grows =
                    isUpward ? sides[i].limit > sides[i].now : sides[i].limit < sides[i].now;
            const bool isStopped =
                    grows && borders.Grow(&fence, sides[i].side, sides[i].limit, keep);
            isDone[i] = isStopped || sides[i].limit == sides[i].edge;
        }
    }
    return fence;
}

// Which sides of the fence rings run along. Side i leads from corner i to the next one
// counterclockwise.
struct SideSet {
    bool has[4] = {false, false, false, false};

    bool IsFull() const { return has[0] && has[1] && has[2] && has[3]; }
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

// Whether a vertex lies just beyond a side of the fence: one unit away, and between its corners.
// Two edges that lead from there to the corners run along the side like the side itself.
bool IsJustBeyond(const GridPoint& p, const GridBox& fence, int side) {
    const bool isVertical = side % 2 == 1;  // West or east.
    if (isVertical ? p.lat < fence.min.lat || p.lat > fence.max.lat
                   : p.lon < fence.min.lon || p.lon > fence.max.lon) {
        return false;
    }
    switch (side) {
        case 0:
            return p.lat == fence.max.lat + 1;
        case 1:
            return p.lon == fence.min.lon - 1;
        case 2:
            return p.lat == fence.min.lat - 1;
        default:
            return p.lon == fence.max.lon + 1;
    }
}

// The sides along which rings lead from a vertex just beyond to both corners: there borders leave
// the tile, one zone closes on one hand and another one on the other.
void AddJoinedSides(const std::vector<ZonePath>& paths, const GridBox& fence, SideSet* sides) {
    for (int side = 0; side < 4; ++side) {
        std::set<GridPoint> joined[2];  // To the side's first and second corner.
        for (const ZonePath& p : paths) {
            for (size_t i = 0; i < p.path.size(); ++i) {
                const Step& a = p.path[i];
                const Step& b = p.path[NextIndex(i, p.path.size())];
                if ((a.corner == kNoCorner) == (b.corner == kNoCorner)) continue;
                const GridPoint& vertex = a.corner == kNoCorner ? a.at : b.at;
                const int corner = a.corner == kNoCorner ? b.corner : a.corner;
                const int hand = (corner - side) & 3;
                if (hand <= 1 && IsJustBeyond(vertex, fence, side)) joined[hand].insert(vertex);
            }
        }
        for (const GridPoint& vertex : joined[0]) {
            if (joined[1].count(vertex) > 0) sides->has[side] = true;
        }
    }
}

// The corners of a way from `corner` along the sides that are missing and back, without `corner` at
// its beginning, with it at its end.
std::vector<int> WayAlong(const SideSet& sides, int corner) {
    // As far counterclockwise as the last missing side, or clockwise, or both in part: the
    // shortest.
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
    std::vector<int> way;
    for (const auto& [length, direction] :
         {std::pair(bestForward, 1), std::pair(bestBackward, -1)}) {
        for (int k = 1; k <= length; ++k)
            way.push_back((corner + direction * k) & 3);
        for (int k = length - 1; k >= 0; --k)
            way.push_back((corner + direction * k) & 3);
    }
    return way;
}

// --- Tiles -------------------------------------------------------------------------------

// What is in a box: rings that come near it, and how often zones cover it whole.
struct Content {
    std::vector<ZonePath> paths;    // By zone.
    std::map<uint32_t, int> cover;  // Zones with another number than 0.

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

    // `halvings`: of the world, that made the box.
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
                Reduced reduced = Reduce(whole.path, half, 0);
                if (reduced.path.empty()) {
                    part.Cover(whole.zone, -reduced.winding);
                } else {
                    part.paths.push_back({whole.zone, std::move(reduced.path)});
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
        return points <= kFewestTilePoints || points * points <= mMaxPoints * mMaxPoints >> missing;
    }

    void AddTile(const GridBox& box, const Content& content) {
        const GridBox fence = FenceOf(box, mBorders, mWorld);
        const auto corners = CornersOf(fence);
        std::map<uint32_t, int> cover = content.cover;
        std::vector<ZonePath> paths;
        for (const ZonePath& whole : content.paths) {
            // A zone that covers the tile but for a ring near it, a hole, becomes one ring with it.
            const auto covered = cover.find(whole.zone);
            const int turns = covered != cover.end() ? -covered->second : 0;
            Reduced reduced = Reduce(whole.path, box, turns);
            if (turns != 0 && reduced.hasDetour) cover.erase(covered);
            paths.push_back({whole.zone, std::move(reduced.path)});
        }
        for (const auto& [zone, times] : cover) {
            Path frame;
            for (int corner = 0; corner < 4; ++corner)
                frame.push_back({{}, times > 0 ? 3 - corner : corner});
            for (int i = std::abs(times); i > 0; --i)
                paths.push_back({zone, frame});
        }
        AddFence(box, fence, &paths);
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

    // Looks at the latest tile, which has so many entries.
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

    // Completes the fence where the rings leave sides of it open: from a corner that a ring has,
    // else from a vertex beyond the margin, else as a ring of its own that encloses nothing.
    static void AddFence(const GridBox& box, const GridBox& fence, std::vector<ZonePath>* paths) {
        SideSet sides;
        for (const ZonePath& p : *paths)
            sides.Add(p.path);
        AddJoinedSides(*paths, fence, &sides);
        if (sides.IsFull()) return;

        const GridBox keep = Grown(box, kMargin);
        Path* best = nullptr;
        size_t bestPosition = 0;
        std::vector<int> bestWay;
        size_t bestPoints = SIZE_MAX;
        for (ZonePath& p : *paths) {
            for (size_t i = 0; i < p.path.size(); ++i) {
                const Step& step = p.path[i];
                const bool isCorner = step.corner != kNoCorner;
                if (!isCorner && keep.Contains(step.at)) continue;
                // The corner of the vertex's own region, or one at the end of its side: the way
                // there and back stays outside.
                const int region = RegionOf(step.at, keep);
                const int corner =
                        isCorner ? step.corner : (region % 2 == 1 ? region / 2 : (region / 2) % 4);
                std::vector<int> way = WayAlong(sides, corner);
                const size_t points = way.size() + (isCorner ? 0 : 2);
                if (points >= bestPoints) continue;
                best = &p.path;
                bestPosition = i;
                bestPoints = points;
                bestWay = std::move(way);
                if (!isCorner) bestWay.insert(bestWay.begin(), corner);
            }
        }
        Path detour;
        if (best == nullptr) {
            for (const int corner : WayAlong(sides, 0))
                detour.push_back({{}, corner});
            paths->push_back({TableEntry::kNoZone, std::move(detour)});
            return;
        }
        const Step from = (*best)[bestPosition];
        for (const int corner : bestWay)
            detour.push_back({{}, corner});
        if (from.corner == kNoCorner) detour.push_back(from);
        best->insert(best->begin() + static_cast<std::ptrdiff_t>(bestPosition) + 1, detour.begin(),
                     detour.end());
    }

    const SegmentRTree mBorders;
    const GridBox mWorld;
    const size_t mMaxPoints;
    const uint64_t mMaxBytes;
    const ProgressCallback& mProgress;
    std::vector<TableEntry> mEntries;
    uint64_t mBytes = 0;      // That the entries take at least.
    size_t mMostEntries = 0;  // Of one tile, ...
    size_t mFirstOfMost = 0;  // ... and the first of these.
};

std::vector<TableEntry> WholeRings(const std::vector<ZoneRings>& zones) {
    std::vector<TableEntry> entries;
    for (size_t zone = 0; zone < zones.size(); ++zone) {
        for (const GridRing& ring : zones[zone]) {
            GridBox box = BoxOf(ring);
            box.min.lon -=
                    zonedetect::kRingShift;  // The box also holds the ring where it is stored.
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
