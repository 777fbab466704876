#include "check_tiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <tuple>
#include <utility>

#include "areas.h"

namespace offlinetz {

namespace {

struct Tile {
    GridBox box;
    uint32_t position;  // Of its first entry: the byte in the file ...
    size_t entry;       // ... and the index in the box table.
};

// One tile for each bounding box that is not empty.
std::vector<Tile> TilesOf(const std::vector<DecodedEntry>& entries) {
    using BoxKey = std::tuple<int32_t, int32_t, int32_t, int32_t>;
    std::map<BoxKey, Tile> tiles;
    for (size_t i = 0; i < entries.size(); ++i) {
        const GridBox& box = entries[i].box;
        if (box.min.lat > box.max.lat || box.min.lon > box.max.lon) continue;
        tiles.emplace(BoxKey(box.min.lat, box.min.lon, box.max.lat, box.max.lon),
                      Tile{box, entries[i].position, i});
    }
    std::vector<Tile> all;
    all.reserve(tiles.size());
    for (const auto& [key, tile] : tiles)
        all.push_back(tile);
    return all;
}

// A sweep line that goes north over the tiles. The tiles that the line meets form a row, ordered
// from west to east.
class TileSweep {
  public:
    TileSweep(int32_t scale, Findings* findings)
        : mScale(scale), mLat(-int64_t{scale}), mFindings(findings) {}

    void Run(const std::vector<Tile>& tiles) {
        struct Event {
            int64_t lat;
            bool isEnter;
            const Tile* tile;
        };
        std::vector<Event> events;
        for (const Tile& tile : tiles) {
            events.push_back({tile.box.min.lat, true, &tile});
            events.push_back({int64_t{tile.box.max.lat} + 1, false, &tile});
        }
        // At one latitude tiles leave before others enter.
        std::sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
            return std::tie(a.lat, a.isEnter) < std::tie(b.lat, b.isEnter);
        });
        for (const Event& event : events) {
            MoveTo(event.lat);
            if (event.isEnter) {
                Enter(*event.tile);
            } else {
                Leave(*event.tile);
            }
        }
        MoveTo(int64_t{mScale} + 1);
    }

    bool HasOverlap() const { return mHasOverlap; }

  private:
    // Several tiles may have one western side if they overlap.
    using RowKey = std::pair<int32_t, size_t>;  // Western side, entry.

    static RowKey KeyOf(const Tile& tile) { return {tile.box.min.lon, tile.entry}; }

    // The grid points of a row of the world that the tile contains.
    int64_t WidthOf(const Tile& tile) const {
        const int64_t west = std::max(tile.box.min.lon, -mScale);
        const int64_t east = std::min(tile.box.max.lon, mScale);
        return std::max<int64_t>(east - west + 1, 0);
    }

    // The row holds for the latitudes from mLat to before `lat`: reports it if it has a gap.
    void MoveTo(int64_t lat) {
        if (lat <= mLat) return;
        const int64_t worldWidth = 2 * int64_t{mScale} + 1;
        if (mLat <= mScale && mCovered < worldWidth) ReportGap();
        mLat = lat;
    }

    void Enter(const Tile& tile) {
        if (OverlapsRow(tile)) ReportOverlap(tile);
        mRow.emplace(KeyOf(tile), &tile);
        mCovered += WidthOf(tile);
    }

    void Leave(const Tile& tile) {
        mRow.erase(KeyOf(tile));
        mCovered -= WidthOf(tile);
    }

    // Whether the tile overlaps its neighbours in the row: the one that begins at or east of its
    // western side, or the one that begins west of it.
    bool OverlapsRow(const Tile& tile) const {
        const auto east = mRow.lower_bound({tile.box.min.lon, 0});
        if (east != mRow.end() && east->first.first <= tile.box.max.lon) return true;
        return east != mRow.begin() && std::prev(east)->second->box.max.lon >= tile.box.min.lon;
    }

    void ReportGap() {
        mFindings->Add(kNoTile, {}, {},
                       fmt::format("points at latitude {:.4f} lie in no tile",
                                   DegreesOf(static_cast<int32_t>(mLat), mScale, 90.0)));
    }

    void ReportOverlap(const Tile& tile) {
        mHasOverlap = true;
        mFindings->Add(kTwoTiles, tile.position, tile.entry, "a tile overlaps another tile");
    }

    int32_t mScale;
    int64_t mLat;  // Latitudes south of it are checked.
    Findings* mFindings;
    std::map<RowKey, const Tile*> mRow;
    int64_t mCovered = 0;  // The sum of WidthOf over the row.
    bool mHasOverlap = false;
};

}  // namespace

bool CheckTiles(const std::vector<DecodedEntry>& entries, int32_t scale, Findings* findings) {
    const std::vector<Tile> tiles = TilesOf(entries);
    TileSweep sweep(scale, findings);
    sweep.Run(tiles);
    return !sweep.HasOverlap();
}

}  // namespace offlinetz
