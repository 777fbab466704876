#include <reader/exact_floats.h>  // Must be the first include.

#include "antimeridian.h"

#include <algorithm>

#include "database.h"
#include "exact_answers.h"
#include "tile_edges.h"

namespace offlinetz {

namespace {

using zonedetect::Point;
using zonedetect::RunTree;
using Ids = std::vector<int32_t>;

// Places are taken so far from the edge of the world: beyond all vertices but those on the edge,
// and with an error of less than a millimetre.
constexpr double kInside = 0x1p-20;

// A leaf with more ends of stretches is none of an honest database.
constexpr size_t kMostEnds = 65536;

// The answers along one side of the antimeridian: each from its latitude up to the next.
struct Stretch {
    double south;
    Ids answer;
};

class Side {
  public:
    Side(const offlinetz_database& database, bool isEast)
        : mDatabase(database),
          mScale(database.units.Scale()),
          mLon(isEast ? mScale - kInside : kInside - mScale),
          mBudget(database.reader->length, kBudgetLookups),
          mAnswers(database, &mBudget) {}

    // Returns false if a ring cannot be decoded or the budget is spent.
    bool Find(std::vector<Stretch>* stretches) {
        const auto end = static_cast<int32_t>(mScale);
        for (int32_t lat = -end; lat < end;) {
            const Point point = {lat, mLon < 0.0 ? -end : end};
            if (!mDatabase.index.Tree().World().Contains(point)) break;
            const RunTree::Part leaf = LeafAt(point);
            const int32_t next = std::min(leaf.area.maxLat + 1, end);
            if (!AddStretches(point, next)) return false;
            lat = next;
        }
        *stretches = std::move(mStretches);
        return true;
    }

  private:
    RunTree::Part LeafAt(const Point& point) const {
        const RunTree& tree = mDatabase.index.Tree();
        RunTree::Part part = tree.Whole();
        while (!tree.IsLeaf(part)) {
            RunTree::Part next = part;
            tree.Divide(part, [&](const RunTree::Part& smaller) {
                if (smaller.area.Contains(point)) next = smaller;
            });
            part = next;
        }
        return part;
    }

    // Adds the stretches in a leaf: between the latitudes where edges cross the side.
    bool AddStretches(const Point& from, int32_t north) {
        const ZoneIndex& index = mDatabase.index;
        const RunTree::Runs runs = index.RunsAt(from);
        std::vector<double> ends = {static_cast<double>(from.lat), static_cast<double>(north)};
        for (uint32_t i = 0; i < runs.count; ++i) {
            const ZoneIndex::Step* const first = index.StepsFrom(runs.At(i));
            if (first->IsAnswer()) continue;
            if (!ForEachRing(index, first, [&](const ZoneIndex::Step& step) {
                    return ForEachBlock(
                                   *mDatabase.reader, step.Place(), &mBudget,
                                   [&](const EdgeBlock& block) { AddCrossings(block, &ends); }) &&
                           ends.size() < kMostEnds;
                })) {
                return false;
            }
        }
        std::sort(ends.begin() + 1, ends.end());
        for (size_t i = 0; i + 1 < ends.size(); ++i) {
            if (ends[i] >= ends[i + 1]) continue;
            ZoneSet answer;
            if (!mAnswers.At({0.5 * (ends[i] + ends[i + 1]), mLon}, &answer)) return false;
            Ids ids(answer.ids, answer.ids + answer.count);
            if (mStretches.empty() || mStretches.back().answer != ids)
                mStretches.push_back({ends[i], std::move(ids)});
        }
        return true;
    }

    void AddCrossings(const EdgeBlock& block, std::vector<double>* ends) const {
        const double south = (*ends)[0];
        const double north = (*ends)[1];
        for (size_t i = 0; i < block.edges; ++i) {
            const auto from = static_cast<double>(block.lon[i]);
            const auto to = static_cast<double>(block.lon[i + 1]);
            if ((from < mLon) == (to < mLon)) continue;
            const auto lat = static_cast<double>(block.lat[i]);
            const double by = static_cast<double>(block.lat[i + 1]) - lat;
            const double crossing = lat + by * ((mLon - from) / (to - from));
            if (crossing > south && crossing < north) ends->push_back(crossing);
        }
    }

    const offlinetz_database& mDatabase;
    const double mScale;
    const double mLon;
    zonedetect::ReadBudget mBudget;
    ExactAnswers mAnswers;
    std::vector<Stretch> mStretches;
};

}  // namespace

bool FindAntimeridianParts(const offlinetz_database& database,
                           std::vector<AntimeridianPart>* parts) {
    std::vector<Stretch> sides[2];
    if (!Side(database, true).Find(&sides[0]) || !Side(database, false).Find(&sides[1]))
        return false;
    const double end = database.units.Scale();
    size_t at[2] = {0, 0};
    while (at[0] < sides[0].size() && at[1] < sides[1].size()) {
        const Stretch& east = sides[0][at[0]];
        const Stretch& west = sides[1][at[1]];
        double norths[2];
        for (const size_t side : {0u, 1u}) {
            const bool isLast = at[side] + 1 == sides[side].size();
            norths[side] = isLast ? end : sides[side][at[side] + 1].south;
        }
        const double north = std::min(norths[0], norths[1]);
        if (east.answer != west.answer)
            parts->push_back({std::max(east.south, west.south), north, {east.answer, west.answer}});
        for (const size_t side : {0u, 1u}) {
            if (norths[side] == north) ++at[side];
        }
    }
    return true;
}

}  // namespace offlinetz
