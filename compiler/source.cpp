#include "source.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <map>

#include "antimeridian.h"
#include "input_text.h"
#include "text_rules.h"

namespace offlinetz {

namespace {

namespace dom = simdjson::dom;

constexpr size_t kMinRingPositions = 4;  // Three points and the first one again.
// A mended polygon may differ from what its crossing rings enclose by this share of the area,
// or by a square of a hundred metres: more than that is not a slip of the pen.
constexpr double kMendShare = 1e-3;
constexpr double kMendSquareDegrees = 1e-6;

using Warn = std::function<void(const std::string&)>;

std::string gLastGeometryError;

__attribute__((format(printf, 1, 2))) void OnGeometryMessage(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    gLastGeometryError = text;
}

void OnGeometryNotice(const char*, ...) {}

[[noreturn]] void Fail(const std::string& where, const std::string& reason) {
    throw InputError(where + ": " + reason);
}

GeometryPtr Checked(GEOSGeometry* geometry, const std::string& where) {
    if (geometry == nullptr) Fail(where, gLastGeometryError);
    return GeometryPtr(geometry);
}

struct Feature {
    const std::string& path;
    size_t index;
    std::string tzid;

    std::string Where() const {
        return tzid.empty() ? fmt::format("{}: feature {}", path, index)
                            : fmt::format("{}: feature {} ({})", path, index, tzid);
    }
};

Positions ReadRing(const dom::element& element, const Feature& feature) {
    dom::array positions;
    if (element.get(positions)) Fail(feature.Where(), "a ring is not an array of positions");
    Positions xy;
    xy.reserve(2 * positions.size());
    for (const dom::element position : positions) {
        dom::array pair;
        double lon;
        double lat;
        if (position.get(pair) || pair.size() < 2 || pair.at(0).get(lon) || pair.at(1).get(lat)) {
            Fail(feature.Where(), "a position is not an array of longitude and latitude");
        }
        if (!(std::fabs(lon) <= 180.0) || !(std::fabs(lat) <= 90.0)) {
            Fail(feature.Where(), fmt::format("a ring leaves the world at {}, {} (longitude, "
                                              "latitude)",
                                              lon, lat));
        }
        xy.push_back(lon);
        xy.push_back(lat);
    }
    const size_t count = xy.size() / 2;
    if (count < kMinRingPositions) {
        Fail(feature.Where(), fmt::format("a ring has {} positions; a closed ring has at least "
                                          "three points and the first one again",
                                          count));
    }
    if (xy[0] != xy[xy.size() - 2] || xy[1] != xy[xy.size() - 1]) {
        Fail(feature.Where(), fmt::format("a ring is open: it starts at {}, {} and ends at {}, {}",
                                          xy[0], xy[1], xy[xy.size() - 2], xy[xy.size() - 1]));
    }
    return xy;
}

// What the geometry library takes over.
template <typename Iterator>
std::vector<GEOSGeometry*> Release(Iterator begin, Iterator end) {
    std::vector<GEOSGeometry*> raw;
    std::transform(begin, end, std::back_inserter(raw),
                   [](GeometryPtr& geometry) { return geometry.release(); });
    return raw;
}

// A polygon of an outline and what it leaves out.
GeometryPtr MakePolygon(const Positions* rings, size_t count, const Feature& feature) {
    std::vector<GeometryPtr> made;
    for (size_t i = 0; i < count; ++i) {
        GEOSCoordSequence* sequence = GEOSCoordSeq_copyFromBuffer(
                rings[i].data(), static_cast<unsigned>(rings[i].size() / 2), /*hasZ=*/0,
                /*hasM=*/0);
        if (sequence == nullptr) Fail(feature.Where(), gLastGeometryError);
        made.push_back(Checked(GEOSGeom_createLinearRing(sequence), feature.Where()));
    }
    std::vector<GEOSGeometry*> holes = Release(made.begin() + 1, made.end());
    return Checked(GEOSGeom_createPolygon(made[0].release(), holes.data(),
                                          static_cast<unsigned>(holes.size())),
                   feature.Where());
}

double AreaOf(const GEOSGeometry* geometry) {
    double area = 0.0;
    GEOSArea(geometry, &area);
    return area;
}

// A valid polygon for one whose rings cross: what its rings enclose, as long as that is nearly
// the same area with and without the crossing.
GeometryPtr Mend(GeometryPtr polygon, const Feature& feature, const Warn& warn) {
    char* text = nullptr;
    GEOSGeometry* place = nullptr;
    const char valid = GEOSisValidDetail(polygon.get(), 0, &text, &place);
    const std::string reason = text != nullptr ? text : "invalid";
    GEOSFree(text);
    const GeometryPtr location(place);
    if (valid == 1) return polygon;

    double x = 0.0;
    double y = 0.0;
    if (location != nullptr && GEOSisEmpty(location.get()) == 0) {
        GEOSGeomGetX(location.get(), &x);
        GEOSGeomGetY(location.get(), &y);
    }
    const std::string what = fmt::format("{} at {}, {}", reason, x, y);
    GEOSMakeValidParams* params = GEOSMakeValidParams_create();
    GEOSMakeValidParams_setMethod(params, GEOS_MAKE_VALID_STRUCTURE);
    GEOSMakeValidParams_setKeepCollapsed(params, 0);
    GEOSGeometry* made = GEOSMakeValidWithParams(polygon.get(), params);
    GEOSMakeValidParams_destroy(params);
    GeometryPtr mended = Checked(made, feature.Where());
    const double before = std::fabs(AreaOf(polygon.get()));
    const double change = std::fabs(AreaOf(mended.get()) - before);
    if (change > std::max(before * kMendShare, kMendSquareDegrees)) {
        Fail(feature.Where(), what + "; mending it would change its area");
    }
    warn(fmt::format("{}: {}; mended", feature.Where(), what));
    return mended;
}

// The polygons of a zone, and the feature that named it first.
struct ZoneParts {
    std::string where;
    std::vector<GeometryPtr> polygons;
};

bool IsValid(const GeometryPtr& polygon) {
    return GEOSisValid(polygon.get()) == 1;
}

// Whether rings with edges around the world make a valid polygon only if they cross there.
bool AreRatherCrossing(std::vector<Positions> rings, const Feature& feature) {
    if (IsValid(MakePolygon(rings.data(), rings.size(), feature))) return false;
    std::string ignored;
    return std::all_of(rings.begin(), rings.end(), [&](Positions& ring) {
        return Unwrap(&ring, &ignored) && IsValid(MakePolygon(&ring, 1, feature));
    });
}

// The polygon of an outline and holes of which some cross the antimeridian.
GeometryPtr ReadAcrossAntimeridian(std::vector<Positions> rings, bool allCross,
                                   const Feature& feature, const Warn& warn) {
    GeometryPtr polygon;
    for (Positions& ring : rings) {
        std::string reason;
        if ((allCross || CountLongEdges(ring).crossing > 0) && !Unwrap(&ring, &reason)) {
            Fail(feature.Where(), reason);
        }
        const GeometryPtr area = Mend(MakePolygon(&ring, 1, feature), feature, warn);
        GeometryPtr cut = Checked(CutAtAntimeridian(area.get()).release(), feature.Where());
        // Outline and hole may have been unwrapped to different sides; cut, they fit.
        polygon = polygon == nullptr
                          ? std::move(cut)
                          : Checked(GEOSDifference(polygon.get(), cut.get()), feature.Where());
    }
    return polygon;
}

// The valid polygon, or several, of an array of rings. Adds up their points; sets `*crosses` where
// they cross the antimeridian.
GeometryPtr ReadPolygon(const dom::element& element, const Feature& feature, const Warn& warn,
                        size_t* points, bool* crosses) {
    dom::array array;
    if (element.get(array) || array.size() == 0) {
        Fail(feature.Where(), "a polygon is not an array of rings");
    }
    std::vector<Positions> rings;
    LongEdges edges;
    for (const dom::element ring : array) {
        rings.push_back(ReadRing(ring, feature));
        *points += rings.back().size() / 2 - 1;
        const LongEdges more = CountLongEdges(rings.back());
        edges.crossing += more.crossing;
        edges.aroundTheWorld += more.aroundTheWorld;
    }
    const bool allCross =
            edges.crossing == 0 && edges.aroundTheWorld > 0 && AreRatherCrossing(rings, feature);
    if (edges.crossing == 0 && !allCross) {
        return Mend(MakePolygon(rings.data(), rings.size(), feature), feature, warn);
    }
    *crosses = true;
    return ReadAcrossAntimeridian(std::move(rings), allCross, feature, warn);
}

// The tzid of a feature.
std::string ReadTzid(const dom::element& element, const Feature& feature,
                     const SourceOptions& options) {
    if (!element.is_object()) Fail(feature.Where(), "is not an object");
    const std::string& name = options.tzidProperty;
    dom::element property;
    if (element["properties"][name].get(property) || property.is_null()) {
        Fail(feature.Where(), "has no " + name);
    }
    std::string_view tzid;
    if (property.get(tzid)) Fail(feature.Where(), fmt::format("its {} is not a text", name));
    if (tzid.size() > options.maxTzidBytes) {
        Fail(feature.Where(), fmt::format("its {} has {} bytes; the database holds up to {}", name,
                                          tzid.size(), options.maxTzidBytes));
    }
    if (const char* fault = FaultOfIdentifier(tzid)) {
        Fail(feature.Where(), fmt::format("its {} {}", name, fault));
    }
    return std::string(tzid);
}

// The arrays of rings in a feature's geometry.
std::vector<dom::element> ReadPolygons(const dom::element& element, const Feature& feature) {
    dom::element geometry;
    if (element.at_pointer("/geometry").get(geometry) || geometry.is_null()) {
        Fail(feature.Where(), "has no geometry");
    }
    std::string_view type;
    if (geometry.at_pointer("/type").get(type)) Fail(feature.Where(), "its geometry has no type");
    const bool isOne = type == "Polygon";
    if (!isOne && type != "MultiPolygon") {
        constexpr std::string_view kOthers[] = {"Point", "MultiPoint", "LineString",
                                                "MultiLineString", "GeometryCollection"};
        const bool isKnown =
                std::find(std::begin(kOthers), std::end(kOthers), type) != std::end(kOthers);
        // A text of someone's own may hold what a terminal obeys.
        Fail(feature.Where(),
             fmt::format("its geometry is {}, not a Polygon or MultiPolygon",
                         isKnown ? fmt::format("a {}", type) : "of no known type"));
    }
    dom::element coordinates;
    dom::array polygons;
    if (geometry.at_pointer("/coordinates").get(coordinates) || coordinates.get(polygons)) {
        Fail(feature.Where(), "its geometry has no coordinates");
    }
    if (isOne) return {coordinates};
    std::vector<dom::element> each;
    for (const dom::element polygon : polygons)
        each.push_back(polygon);
    return each;
}

void ReadFeature(const dom::element& element, Feature feature, const SourceOptions& options,
                 const Warn& warn, Source* source, std::map<std::string, ZoneParts>* zones) {
    feature.tzid = ReadTzid(element, feature, options);
    if (IsSeaZone(feature.tzid)) {
        ++source->seaFeatures;
        return;
    }
    std::vector<GeometryPtr> parts;
    size_t points = 0;
    bool crosses = false;
    for (const dom::element& rings : ReadPolygons(element, feature)) {
        AddPolygons(ReadPolygon(rings, feature, warn, &points, &crosses), &parts);
    }
    if (crosses) {
        warn(feature.Where() +
             ": crosses the antimeridian on edges of more than 180 degrees of "
             "longitude; cut there (an edge meant to go the long way needs a "
             "point in between)");
    }
    ++source->features;
    source->points += points;
    ZoneParts& zone = (*zones)[feature.tzid];
    if (zone.where.empty()) zone.where = feature.Where();
    std::move(parts.begin(), parts.end(), std::back_inserter(zone.polygons));
}

// Older files may name a reference system. Numbers of another one than GeoJSON's would be taken for
// degrees without a word.
void RequireWgs84(const std::string& path, const dom::element& document) {
    dom::element crs;
    if (document["crs"].get(crs) || crs.is_null()) return;
    std::string_view name;
    if (crs.at_pointer("/properties/name").get(name)) name = "unknown";
    for (const std::string_view known : {"CRS84", "EPSG:4326", "EPSG::4326"}) {
        if (name.size() >= known.size() && name.substr(name.size() - known.size()) == known) return;
    }
    Fail(path, fmt::format("its crs is {}; only longitude and latitude of WGS 84 are read", name));
}

// `where` names the text.
dom::element ParseJson(std::string_view text, const std::string& where, dom::parser* parser) {
    dom::element document;
    if (const auto error = parser->parse(text.data(), text.size()).get(document)) {
        const std::string place = PlaceOfJsonError(text);
        Fail(where, fmt::format("is not JSON{}{}: {}", place.empty() ? "" : " ", place,
                                simdjson::error_message(error)));
    }
    return document;
}

// Whether a file is a sequence of features, and not a broken text of another kind.
bool BeginWithFeature(const std::vector<std::string_view>& texts, dom::parser* parser) {
    dom::element first;
    std::string_view type;
    return !texts.empty() && !parser->parse(texts[0].data(), texts[0].size()).get(first) &&
           !first["type"].get(type) && type == "Feature";
}

dom::array ReadFeatures(const std::string& path, const dom::element& document) {
    std::string_view type;
    dom::array features;
    if (document["type"].get(type) || type != "FeatureCollection" ||
        document["features"].get(features)) {
        Fail(path, "is not a GeoJSON FeatureCollection");
    }
    RequireWgs84(path, document);
    return features;
}

}  // namespace

void StartGeometry() {
    initGEOS(OnGeometryNotice, OnGeometryMessage);
}

bool IsSeaZone(std::string_view tzid) {
    return tzid.substr(0, 7) == "Etc/GMT";
}

InputError::InputError(const std::vector<std::string>& lines)
    : mLines(fmt::format("{}", fmt::join(lines, "\n"))) {}

Source ReadSource(const std::vector<std::string>& paths, const Warn& warn,
                  const std::function<void(const char*, size_t, size_t)>& progress,
                  const SourceOptions& options) {
    Source source;
    std::map<std::string, ZoneParts> parts;
    std::vector<std::string> errors;
    const auto onBadFeature = [&](const InputError& error) {
        if (options.skipBad) {
            ++source.badFeatures;
            warn(fmt::format("{}; left out", error.what()));
        } else {
            errors.emplace_back(error.what());
        }
    };
    for (const std::string& path : paths) {
        try {
            const std::string text = ReadText(path, options.maxInputBytes);
            dom::parser parser;
            size_t index = 0;
            const auto read = [&](const auto& element, size_t all) {
                const Feature feature = {path, index, {}};
                try {
                    ReadFeature(element(feature), feature, options, warn, &source, &parts);
                } catch (const InputError& error) {
                    onBadFeature(error);
                }
                ++index;
                // An array's size is capped at 2^24 - 1 in the parser; more features only make
                // the progress late.
                progress("reading", index, std::max(index, all));
            };
            dom::element document;
            std::string_view type;
            if (parser.parse(text).get(document)) {
                const std::vector<std::string_view> texts = SplitFeatures(text);
                if (!BeginWithFeature(texts, &parser)) ParseJson(text, path, &parser);
                for (const std::string_view one : texts) {
                    read([&](const Feature& f) { return ParseJson(one, f.Where(), &parser); },
                         texts.size());
                }
            } else if (!document["type"].get(type) && type == "Feature") {
                read([&](const Feature&) { return document; }, 1);
            } else {
                const dom::array features = ReadFeatures(path, document);
                for (const dom::element element : features)
                    read([&](const Feature&) { return element; }, features.size());
            }
        } catch (const InputError& error) {
            errors.emplace_back(error.what());
        }
    }
    size_t done = 0;
    for (auto& [tzid, zone] : parts) {
        try {
            if (zone.polygons.empty()) Fail(zone.where, "its zone has no area");
            GeometryPtr area = Checked(Unite(std::move(zone.polygons)).release(), zone.where);
            source.zones.push_back({tzid, std::move(area), zone.where});
        } catch (const InputError& error) {
            onBadFeature(error);
        }
        progress("uniting", ++done, parts.size());
    }
    if (!errors.empty()) throw InputError(errors);
    if (source.zones.empty()) {
        throw InputError(fmt::format("{}: no land zone in it", fmt::join(paths, ", ")));
    }
    return source;
}

void AddPolygons(GeometryPtr geometry, std::vector<GeometryPtr>* polygons) {
    if (GEOSGeomTypeId(geometry.get()) == GEOS_POLYGON) {
        if (GEOSisEmpty(geometry.get()) == 0) polygons->push_back(std::move(geometry));
        return;
    }
    const int count = GEOSGetNumGeometries(geometry.get());
    for (int i = 0; i < count; ++i) {
        const GEOSGeometry* part = GEOSGetGeometryN(geometry.get(), i);
        if (GEOSGeomTypeId(part) == GEOS_POLYGON && GEOSisEmpty(part) == 0) {
            polygons->emplace_back(GEOSGeom_clone(part));
        }
    }
}

GeometryPtr Unite(std::vector<GeometryPtr> polygons) {
    if (polygons.size() == 1) return std::move(polygons.front());
    std::vector<GEOSGeometry*> raw = Release(polygons.begin(), polygons.end());
    const GeometryPtr collection(GEOSGeom_createCollection(GEOS_GEOMETRYCOLLECTION, raw.data(),
                                                           static_cast<unsigned>(raw.size())));
    return GeometryPtr(collection == nullptr ? nullptr : GEOSUnaryUnion(collection.get()));
}

void VisitRings(const GEOSGeometry* area, const RingVisitor& visit) {
    const auto visitRing = [&visit](const GEOSGeometry* ring, bool isHole) {
        const GEOSCoordSequence* sequence = GEOSGeom_getCoordSeq(ring);
        unsigned count = 0;
        GEOSCoordSeq_getSize(sequence, &count);
        std::vector<double> xy(2 * size_t{count});
        GEOSCoordSeq_copyToBuffer(sequence, xy.data(), /*hasZ=*/0, /*hasM=*/0);
        char isCounterClockwise = 0;
        GEOSCoordSeq_isCCW(sequence, &isCounterClockwise);
        xy.resize(xy.size() - 2);
        visit(xy, isHole, isCounterClockwise == 0);
    };
    const int polygons = GEOSGetNumGeometries(area);
    for (int i = 0; i < polygons; ++i) {
        const GEOSGeometry* polygon = GEOSGetGeometryN(area, i);
        if (GEOSGeomTypeId(polygon) != GEOS_POLYGON) continue;
        visitRing(GEOSGetExteriorRing(polygon), false);
        const int holes = GEOSGetNumInteriorRings(polygon);
        for (int h = 0; h < holes; ++h)
            visitRing(GEOSGetInteriorRingN(polygon, h), true);
    }
}

}  // namespace offlinetz
