#include "lookup_load.h"

#include <fmt/format.h>
#include <reader/format.h>
#include <reader/read_budget.h>
#include <reader/ring.h>

#include <algorithm>
#include <string>

#include "areas.h"
#include "database/decode.h"

namespace offlinetz {

namespace {

constexpr int64_t kBaseSteps = int64_t{1} << 30;
constexpr int64_t kStepsPerByte = 1024;
constexpr int64_t kStepsOfEntry = 16;
constexpr int64_t kStepsOfRing = 32;
constexpr int64_t kStepsOfLookup = 1024;
constexpr int64_t kMostHits = zonedetect::kMaxHits;
constexpr size_t kMostCandidates = size_t{1} << 22;

GridBox Intersection(const GridBox& a, const GridBox& b) {
    return {{std::max(a.min.lat, b.min.lat), std::max(a.min.lon, b.min.lon)},
            {std::min(a.max.lat, b.max.lat), std::min(a.max.lon, b.max.lon)}};
}

// Latitude and longitude in degrees.
std::string PlaceText(const GridPoint& p, int32_t scale) {
    return fmt::format("{:.5f} {:.5f}", DegreesOf(p.lat, scale, 90.0),
                       DegreesOf(p.lon, scale, 180.0));
}

}  // namespace

int64_t StepBudget(const ZDDatabase& database) {
    return kBaseSteps + kStepsPerByte * database.length;
}

LookupLoad::LookupLoad(const ZDDatabase& database, int32_t scale) : mDb(database), mScale(scale) {}

void LookupLoad::Add(const GridBox& box, const StoredRing& ring) {
    const GridBox world = {{-mScale, -mScale}, {mScale, mScale}};
    const GridBox inWorld = Intersection(box, world);
    mBytesMet.push_back({inWorld, int64_t{ring.end} - ring.position});
    mRingsMet.push_back({Intersection(inWorld, ring.bounds), 1});
    mRings.push_back(&ring);
}

int64_t LookupLoad::MostBytes() const {
    return zonedetect::ReadBudget::Bytes(mDb.length);
}

void LookupLoad::CheckLimits(const std::vector<StoredRing>& rings, Findings* findings) const {
    const Depths bytes = DepthsOf(mBytesMet);
    if (bytes.greatest > MostBytes()) {
        findings->Add(kBytes, {}, {},
                      fmt::format("a lookup at {} meets {} bytes of rings and reads at most {}",
                                  PlaceText(bytes.place, mScale), bytes.greatest, MostBytes()));
    }
    const Depths hits = DepthsOf(mRingsMet);
    // A point lies in at least as many bounding boxes of rings as in rings.
    if (hits.greatest > kMostHits) CheckHits(hits.place, rings, findings);
}

// Looks for a point that more than kMostHits rings contain. The candidates are the vertices, where
// most rings meet, and `deepest`, which lies in the most bounding boxes. Those in the most bounding
// boxes come first.
void LookupLoad::CheckHits(const GridPoint& deepest, const std::vector<StoredRing>& rings,
                           Findings* findings) const {
    std::vector<GridPoint> points = VerticesOf(rings);
    points.push_back(deepest);
    std::sort(points.begin(), points.end());
    points.erase(std::unique(points.begin(), points.end()), points.end());
    const std::vector<int64_t> depths = DepthsOf(mRingsMet, points).depths;
    std::vector<size_t> order;
    for (size_t i = 0; i < points.size(); ++i) {
        if (depths[i] > kMostHits) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return depths[a] > depths[b]; });
    int64_t steps = 0;
    for (const size_t i : order) {
        if (steps > StepBudget(mDb)) {
            findings->Add(kMaybeHits, {}, {},
                          fmt::format("up to {} rings contain the point {}", depths[i],
                                      PlaceText(points[i], mScale)));
            return;
        }
        const int64_t hits = HitsAt(points[i], &steps);
        if (hits > kMostHits) {
            findings->Add(
                    kHits, {}, {},
                    fmt::format("{} rings contain the point {}, and a lookup collects at most {}",
                                hits, PlaceText(points[i], mScale), zonedetect::kMaxHits));
            return;
        }
    }
}

// The vertices of all good rings, or an even sample of kMostCandidates of them.
std::vector<GridPoint> LookupLoad::VerticesOf(const std::vector<StoredRing>& rings) const {
    size_t all = 0;
    for (const StoredRing& ring : rings)
        all += ring.points;
    const size_t stride = all / kMostCandidates + 1;
    std::vector<GridPoint> vertices;
    GridRing points;
    size_t number = 0;
    for (const StoredRing& ring : rings) {
        uint32_t end;
        if (!ring.isGood || !DecodeRing(mDb, ring.position, &points, &end)) continue;
        for (const GridPoint& p : points) {
            if (number++ % stride == 0) vertices.push_back(p);
        }
    }
    return vertices;
}

// The number of entries whose rings contain the point. Adds the work to `*steps`.
int64_t LookupLoad::HitsAt(const GridPoint& p, int64_t* steps) const {
    int64_t hits = 0;
    for (size_t i = 0; i < mRingsMet.size(); ++i) {
        if (!mRingsMet[i].box.Contains(p)) continue;
        zonedetect::Cursor cursor = zonedetect::CursorAt(mDb, mRings[i]->position);
        const zonedetect::Point target = {p.lat, p.lon - zonedetect::kRingShift};
        if (zonedetect::ClassifyAgainstRing(&cursor, target, nullptr) != ZDLookupNotInZone) {
            ++hits;
        }
        *steps += kStepsOfRing + mRings[i]->end - mRings[i]->position;
    }
    *steps += static_cast<int64_t>(mRingsMet.size());
    return hits;
}

int64_t LookupLoad::MeanSteps(const std::vector<GridPoint>& points, size_t tableEntries) const {
    const std::vector<int64_t> bytes = DepthsOf(mBytesMet, points).depths;
    const std::vector<int64_t> rings = DepthsOf(mRingsMet, points).depths;
    int64_t steps = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        const int64_t hits = std::min(rings[i], kMostHits);
        // The reader compares each pair of the rings that it collects.
        steps += kStepsOfLookup + std::min(bytes[i], MostBytes()) + hits * hits / 4;
    }
    return steps / static_cast<int64_t>(points.size()) +
           kStepsOfEntry * static_cast<int64_t>(tableEntries);
}

}  // namespace offlinetz
