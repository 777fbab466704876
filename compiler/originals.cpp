#include "originals.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

namespace offlinetz {

namespace {

bool IsBefore(const Original& x, const Original& y) {
    return std::tie(x.vertex, x.lat, x.lon) < std::tie(y.vertex, y.lat, y.lon);
}

bool IsSame(const Original& x, const Original& y) {
    return !IsBefore(x, y) && !IsBefore(y, x);
}

struct Bounds {
    double min[2] = {1e9, 1e9};
    double max[2] = {-1e9, -1e9};

    explicit Bounds(const Originals::Range& range) {
        for (const Original& o : range) {
            const double at[2] = {o.Lat(), o.Lon()};
            for (int k = 0; k < 2; ++k) {
                min[k] = std::min(min[k], at[k]);
                max[k] = std::max(max[k], at[k]);
            }
        }
    }
};

// The number between the two that stands for the part `t` of the way.
double Between(double from, double to, double t) {
    return from + (to - from) * t;
}

}  // namespace

void Originals::Add(const GridPoint& vertex, double lat, double lon) {
    mAdded.push_back(
            {vertex, static_cast<float>(lat - vertex.lat), static_cast<float>(lon - vertex.lon)});
}

void Originals::AddBetween(const GridPoint& a, const GridPoint& b, const GridPoint& vertex) {
    const Range from = At(a);
    const Range to = At(b);
    if (from.size() == 0 || to.size() == 0) return;
    const double dLat = static_cast<double>(b.lat) - a.lat;
    const double dLon = static_cast<double>(b.lon) - a.lon;
    const double along = (vertex.lat - a.lat) * dLat + (vertex.lon - a.lon) * dLon;
    const double t = along / (dLat * dLat + dLon * dLon);
    if (from.size() * to.size() <= kMostPerVertex) {
        for (const Original& p : from) {
            for (const Original& q : to)
                Add(vertex, Between(p.Lat(), q.Lat(), t), Between(p.Lon(), q.Lon(), t));
        }
        return;
    }
    const Bounds p(from);
    const Bounds q(to);
    for (const double lat : {Between(p.min[0], q.min[0], t), Between(p.max[0], q.max[0], t)}) {
        for (const double lon : {Between(p.min[1], q.min[1], t), Between(p.max[1], q.max[1], t)})
            Add(vertex, lat, lon);
    }
}

void Originals::Sort() {
    mSorted.insert(mSorted.end(), mAdded.begin(), mAdded.end());
    mAdded = {};
    std::sort(mSorted.begin(), mSorted.end(), IsBefore);
    mSorted.erase(std::unique(mSorted.begin(), mSorted.end(), IsSame), mSorted.end());
    size_t kept = 0;
    for (size_t i = 0, next; i < mSorted.size(); i = next) {
        const GridPoint vertex = mSorted[i].vertex;
        for (next = i; next < mSorted.size() && mSorted[next].vertex == vertex;)
            ++next;
        if (next - i <= kMostPerVertex) {
            kept = static_cast<size_t>(
                    std::copy(mSorted.begin() + static_cast<std::ptrdiff_t>(i),
                              mSorted.begin() + static_cast<std::ptrdiff_t>(next),
                              mSorted.begin() + static_cast<std::ptrdiff_t>(kept)) -
                    mSorted.begin());
            continue;
        }
        const Bounds bounds({mSorted.data() + i, mSorted.data() + next});
        for (const double lat : {bounds.min[0], bounds.max[0]}) {
            for (const double lon : {bounds.min[1], bounds.max[1]})
                mSorted[kept++] = {vertex, static_cast<float>(lat - vertex.lat),
                                   static_cast<float>(lon - vertex.lon)};
        }
    }
    mSorted.resize(kept);
    mSorted.shrink_to_fit();
}

double Originals::GreatestDiagonal(const Grid& grid) const {
    const auto isNearer = [](const Original& x, const Original& y) {
        return std::abs(x.vertex.lat) < std::abs(y.vertex.lat);
    };
    const auto nearest = std::min_element(mSorted.begin(), mSorted.end(), isNearer);
    return nearest == mSorted.end() ? 0.0 : grid.UnitDiagonal(nearest->vertex.lat);
}

Originals::Range Originals::At(const GridPoint& vertex) const {
    struct ByVertex {
        bool operator()(const Original& o, const GridPoint& p) const { return o.vertex < p; }
        bool operator()(const GridPoint& p, const Original& o) const { return p < o.vertex; }
    };
    const auto [first, last] = std::equal_range(mSorted.begin(), mSorted.end(), vertex, ByVertex());
    return {mSorted.data() + (first - mSorted.begin()), mSorted.data() + (last - mSorted.begin())};
}

}  // namespace offlinetz
