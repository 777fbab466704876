#include "zones.h"

#include <reader/read_budget.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

#include "database/answer.h"

namespace offlinetz {

namespace {

constexpr size_t kProgressInterval = 1024;

struct Edge {
    GridPoint from;
    GridPoint to;

    friend bool operator<(const Edge& a, const Edge& b) {
        return a.from != b.from ? a.from < b.from : a.to < b.to;
    }
};

// Cuts a path into rings and adds them to the zone: each time the path returns to a point, the part
// since then is a ring. The edges that remain of an open path are counted as loose.
void CutIntoRings(const std::vector<GridPoint>& path, InspectedZone* zone) {
    std::vector<GridPoint> open;
    std::map<GridPoint, size_t> places;
    for (const GridPoint& p : path) {
        const auto [place, isNew] = places.emplace(p, open.size());
        if (!isNew) {
            const auto first = open.begin() + static_cast<std::ptrdiff_t>(place->second);
            zone->rings.emplace_back(first, open.end());
            for (auto cut = first; cut != open.end(); ++cut)
                places.erase(*cut);
            open.erase(first, open.end());
            places.emplace(p, open.size());
        }
        open.push_back(p);
    }
    zone->looseEdges += open.size() - 1;
}

// Joins edges into paths, and the paths into rings: follows edges until no unused one leads on.
void CloseRings(std::vector<Edge> edges, InspectedZone* zone) {
    std::sort(edges.begin(), edges.end());
    // For the first edge from each point: how many edges from that point have been used.
    std::vector<size_t> taken(edges.size(), 0);
    const auto firstFrom = [&](const GridPoint& p) {
        return static_cast<size_t>(
                std::lower_bound(edges.begin(), edges.end(), p,
                                 [](const Edge& e, const GridPoint& at) { return e.from < at; }) -
                edges.begin());
    };
    for (size_t start = 0; start < edges.size(); ++start) {
        const size_t first = firstFrom(edges[start].from);
        if (start < first + taken[first]) continue;
        std::vector<GridPoint> path = {edges[start].from};
        for (size_t from = first; from < edges.size() && edges[from].from == path.back();
             from = firstFrom(path.back())) {
            const size_t next = from + taken[from];
            if (next == edges.size() || edges[next].from != path.back()) break;
            ++taken[from];
            path.push_back(edges[next].to);
        }
        CutIntoRings(path, zone);
    }
    for (const GridRing& ring : zone->rings)
        zone->points += ring.size();
}

}  // namespace

InspectedDatabase InspectZones(const ZDDatabase& database, const ProgressCallback& progress) {
    InspectedDatabase inspected;
    inspected.entries = DecodeTable(database, &inspected.tableEnd);
    zonedetect::ReadBudget budget(database.length, kLookupsOfInspection);
    int64_t edgesLeft = zonedetect::ReadBudget::Bytes(database.length);
    std::map<uint32_t, std::pair<InspectedZone, std::vector<Edge>>> zones;
    GridRing ring;
    for (size_t i = 0; i < inspected.entries.size(); ++i) {
        const DecodedEntry& entry = inspected.entries[i];
        if (i % kProgressInterval == 0) progress("reading", i, inspected.entries.size());
        const bool isInside = entry.record < database.polygonDataOffset;
        uint32_t end;
        if (!isInside) continue;
        const bool isGood = DecodeRing(database, entry.ring, &ring, &end);
        budget.Spend(end > entry.ring ? end - entry.ring : 0);
        if (budget.IsSpent() || edgesLeft < 0) {
            throw std::runtime_error(
                    "entries share rings, or rings share bytes, too often for all to be read");
        }
        if (!isGood) continue;
        auto& [zone, edges] = zones[entry.record];
        ++zone.entries;
        zone.entryPoints += ring.size();
        zone.ringBytes += end - entry.ring;
        const size_t before = edges.size();
        for (size_t p = 0; p < ring.size(); ++p) {
            if (entry.box.Contains(ring[p]))
                edges.push_back({ring[p], ring[NextIndex(p, ring.size())]});
        }
        edgesLeft -= static_cast<int64_t>(edges.size() - before);
    }
    for (auto& [record, pair] : zones) {
        auto& [zone, edges] = pair;
        uint32_t end;
        std::string stored;
        zone.record = record;
        zone.isNamed = DecodeRecord(database, record, &budget, &stored, &end);
        if (budget.IsSpent())
            throw std::runtime_error("records share bytes too often for all to be read");
        zone.tzid = WithoutQuotes(stored);
        CloseRings(std::move(edges), &zone);
        inspected.zones.push_back(std::move(zone));
    }
    std::stable_sort(
            inspected.zones.begin(), inspected.zones.end(),
            [](const InspectedZone& a, const InspectedZone& b) { return a.tzid < b.tzid; });
    return inspected;
}

}  // namespace offlinetz
