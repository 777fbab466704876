#include "differences.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "areas.h"

namespace offlinetz {

namespace {

// A removed and an added zone are one renamed zone if they share this part of the area of each.
constexpr double kSameArea = 0.9;

GeometryPtr Checked(GEOSGeometry* geometry) {
    if (geometry == nullptr) {
        ThrowIfGeometryLacksMemory();
        throw std::runtime_error("its areas cannot be compared");
    }
    return GeometryPtr(geometry);
}

// A canonical form: each ring starts at its least point, and the rings are sorted.
ZoneRings Normalized(ZoneRings rings) {
    for (GridRing& ring : rings)
        std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end()), ring.end());
    std::sort(rings.begin(), rings.end());
    return rings;
}

// All rings of each identifier, which several records may have.
std::map<std::string, ZoneRings> RingsByName(const InspectedDatabase& database) {
    std::map<std::string, ZoneRings> rings;
    for (const InspectedZone& zone : database.zones) {
        ZoneRings& all = rings[zone.tzid];
        all.insert(all.end(), zone.rings.begin(), zone.rings.end());
    }
    return rings;
}

// A polygon of the area that a zone lost or gained.
struct Piece {
    std::string zone;
    GeometryPtr area;
};
using Pieces = std::vector<Piece>;

void AddPieces(const std::string& zone, GeometryPtr area, Pieces* pieces) {
    std::vector<GeometryPtr> polygons;
    AddPolygons(std::move(area), &polygons);
    for (GeometryPtr& polygon : polygons)
        pieces->push_back({zone, std::move(polygon)});
}

BoxTree<Piece> TreeOf(const Pieces& pieces) {
    BoxTree<Piece> tree;
    for (const Piece& piece : pieces)
        tree.Insert(piece.area.get(), &piece);
    return tree;
}

using AreasByPair = std::map<std::pair<std::string, std::string>, std::vector<GeometryPtr>>;

// Adds the parts of `pieces` that no piece of `others` covers: changes to no zone if `isLost`, else
// from no zone.
void AddRest(const Pieces& pieces, const Pieces& others, bool isLost, AreasByPair* areas) {
    const BoxTree<Piece> tree = TreeOf(others);
    for (const Piece& piece : pieces) {
        GeometryPtr rest = Checked(GEOSGeom_clone(piece.area.get()));
        for (const Piece* other : tree.Query(piece.area.get()))
            rest = Checked(GEOSDifference(rest.get(), other->area.get()));
        const std::string none;
        AddPolygons(std::move(rest),
                    &(*areas)[isLost ? std::pair(piece.zone, none) : std::pair(none, piece.zone)]);
    }
}

Change MakeChange(const std::pair<std::string, std::string>& zones,
                  std::vector<GeometryPtr> polygons) {
    std::vector<GEOSGeometry*> parts = ReleaseAll(std::move(polygons));
    Change change;
    change.from = zones.first;
    change.to = zones.second;
    change.area = Checked(GEOSGeom_createCollection(GEOS_MULTIPOLYGON, parts.data(),
                                                    static_cast<unsigned>(parts.size())));
    change.km2 = SquareKilometres(change.area.get());
    GEOSGeom_getXMin(change.area.get(), &change.box[0]);
    GEOSGeom_getYMin(change.area.get(), &change.box[1]);
    GEOSGeom_getXMax(change.area.get(), &change.box[2]);
    GEOSGeom_getYMax(change.area.get(), &change.box[3]);
    const GeometryPtr inside = Checked(GEOSPointOnSurface(change.area.get()));
    GEOSGeomGetY(inside.get(), &change.sample[0]);
    GEOSGeomGetX(inside.get(), &change.sample[1]);
    return change;
}

// The changes by pair of zones: where lost and gained pieces intersect, and what remains of each.
std::vector<Change> MakeChanges(const Pieces& lost, const Pieces& gained) {
    AreasByPair areas;
    const BoxTree<Piece> tree = TreeOf(gained);
    for (const Piece& from : lost) {
        for (const Piece* to : tree.Query(from.area.get())) {
            AddPolygons(Checked(GEOSIntersection(from.area.get(), to->area.get())),
                        &areas[{from.zone, to->zone}]);
        }
    }
    AddRest(lost, gained, true, &areas);
    AddRest(gained, lost, false, &areas);
    std::vector<Change> changes;
    for (auto& [zones, polygons] : areas) {
        // There are no polygons if the areas only touch.
        if (!polygons.empty()) changes.push_back(MakeChange(zones, std::move(polygons)));
    }
    std::stable_sort(changes.begin(), changes.end(),
                     [](const Change& a, const Change& b) { return a.km2 > b.km2; });
    return changes;
}

}  // namespace

Differences Compare(const InspectedDatabase& oldOne, int32_t oldScale,
                    const InspectedDatabase& newOne, int32_t newScale,
                    const ProgressCallback& progress) {
    const std::map<std::string, ZoneRings> oldRings = RingsByName(oldOne);
    const std::map<std::string, ZoneRings> newRings = RingsByName(newOne);
    std::set<std::string> names;
    for (const auto* rings : {&oldRings, &newRings}) {
        for (const auto& [name, ignored] : *rings)
            names.insert(name);
    }
    Differences differences;
    Pieces lost;
    Pieces gained;
    std::map<std::string, double> oldArea;
    std::map<std::string, double> newArea;
    size_t done = 0;
    for (const std::string& name : names) {
        progress("comparing", done++, names.size());
        const auto before = oldRings.find(name);
        const auto after = newRings.find(name);
        const bool wasThere = before != oldRings.end();
        const bool isThere = after != newRings.end();
        if (wasThere && isThere && oldScale == newScale &&
            Normalized(before->second) == Normalized(after->second)) {
            continue;
        }
        GeometryPtr was = AreaOf(wasThere ? before->second : ZoneRings(), oldScale);
        GeometryPtr is = AreaOf(isThere ? after->second : ZoneRings(), newScale);
        if (!wasThere) {
            differences.added.push_back(name);
            newArea[name] = SquareKilometres(is.get());
            AddPieces(name, std::move(is), &gained);
        } else if (!isThere) {
            differences.removed.push_back(name);
            oldArea[name] = SquareKilometres(was.get());
            AddPieces(name, std::move(was), &lost);
        } else {
            AddPieces(name, Checked(GEOSDifference(was.get(), is.get())), &lost);
            AddPieces(name, Checked(GEOSDifference(is.get(), was.get())), &gained);
        }
    }
    differences.changes = MakeChanges(lost, gained);
    for (const Change& change : differences.changes) {
        const auto before = oldArea.find(change.from);
        const auto after = newArea.find(change.to);
        if (before != oldArea.end() && after != newArea.end() &&
            change.km2 >= kSameArea * std::max(before->second, after->second)) {
            differences.renamed.emplace_back(change.from, change.to);
        }
    }
    for (const auto& [from, to] : differences.renamed) {
        const auto drop = [](std::vector<std::string>* all, const std::string& name) {
            all->erase(std::remove(all->begin(), all->end(), name), all->end());
        };
        drop(&differences.removed, from);
        drop(&differences.added, to);
    }
    return differences;
}

}  // namespace offlinetz
