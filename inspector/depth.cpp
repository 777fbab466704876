#include "depth.h"

#include <algorithm>
#include <cstddef>
#include <tuple>

namespace offlinetz {

namespace {

// A segment tree that holds a sum for each place of a row. A weight is added to an interval of
// places at once.
class Sums {
  public:
    explicit Sums(size_t places) {
        while (mPlaces < places)
            mPlaces *= 2;
        mNodes.resize(2 * mPlaces);
    }

    // Adds the weight to the places from `begin` to before `end`.
    void Add(size_t begin, size_t end, int64_t weight) { Add(1, 0, mPlaces, begin, end, weight); }

    int64_t Greatest() const { return mNodes[1].greatest; }

    size_t PlaceOfGreatest() const {
        size_t node = 1;
        while (node < mPlaces)
            node = 2 * node + (mNodes[2 * node].greatest < mNodes[2 * node + 1].greatest ? 1 : 0);
        return node - mPlaces;
    }

    int64_t At(size_t place) const {
        int64_t sum = 0;
        for (size_t node = place + mPlaces; node > 0; node /= 2)
            sum += mNodes[node].own;
        return sum;
    }

  private:
    struct Node {
        int64_t own = 0;       // Added to all places of the node.
        int64_t greatest = 0;  // The greatest sum of its places, without weights of its ancestors.
    };

    // The node covers `size` places from `first` on.
    void Add(size_t node, size_t first, size_t size, size_t begin, size_t end, int64_t weight) {
        if (begin >= first + size || end <= first) return;
        Node& sum = mNodes[node];
        if (begin <= first && first + size <= end) {
            sum.own += weight;
            sum.greatest += weight;
            return;
        }
        Add(2 * node, first, size / 2, begin, end, weight);
        Add(2 * node + 1, first + size / 2, size / 2, begin, end, weight);
        sum.greatest = sum.own + std::max(mNodes[2 * node].greatest, mNodes[2 * node + 1].greatest);
    }

    size_t mPlaces = 1;
    std::vector<Node> mNodes;  // The root is 1; a node has the children 2 * node and 2 * node + 1.
};

enum class Step { kEnd, kBegin, kAsk };  // In this order at one latitude.

struct Event {
    int64_t lat;
    Step step;
    size_t index;  // Of the box or the point.
};

}  // namespace

Depths DepthsOf(const std::vector<WeightedBox>& boxes, const std::vector<GridPoint>& points) {
    std::vector<int64_t> lons;  // The longitudes at which sums may change.
    std::vector<Event> events;
    for (size_t i = 0; i < boxes.size(); ++i) {
        const GridBox& box = boxes[i].box;
        if (box.min.lat > box.max.lat || box.min.lon > box.max.lon) continue;
        lons.push_back(box.min.lon);
        lons.push_back(int64_t{box.max.lon} + 1);
        events.push_back({box.min.lat, Step::kBegin, i});
        events.push_back({int64_t{box.max.lat} + 1, Step::kEnd, i});
    }
    for (size_t i = 0; i < points.size(); ++i)
        events.push_back({points[i].lat, Step::kAsk, i});
    std::sort(lons.begin(), lons.end());
    lons.erase(std::unique(lons.begin(), lons.end()), lons.end());
    std::sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
        return std::tie(a.lat, a.step, a.index) < std::tie(b.lat, b.step, b.index);
    });
    // The place of `lon`: the number of elements of `lons` at or west of it.
    const auto placeOf = [&](int64_t lon) {
        return static_cast<size_t>(std::upper_bound(lons.begin(), lons.end(), lon) - lons.begin());
    };
    Depths result;
    result.depths.resize(points.size());
    Sums sums(lons.size() + 1);
    for (const Event& event : events) {
        if (event.step == Step::kAsk) {
            result.depths[event.index] = sums.At(placeOf(points[event.index].lon));
            continue;
        }
        const WeightedBox& box = boxes[event.index];
        const int64_t sign = event.step == Step::kBegin ? 1 : -1;
        sums.Add(placeOf(box.box.min.lon), placeOf(int64_t{box.box.max.lon} + 1),
                 sign * box.weight);
        if (sums.Greatest() > result.greatest) {
            result.greatest = sums.Greatest();
            result.place = {static_cast<int32_t>(event.lat),
                            static_cast<int32_t>(lons[sums.PlaceOfGreatest() - 1])};
        }
    }
    return result;
}

}  // namespace offlinetz
