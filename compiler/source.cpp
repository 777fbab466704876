#include "source.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <new>
#include <optional>

#include "antimeridian.h"
#include "database/grid.h"
#include "database/text_rules.h"
#include "input_text.h"
#include "snap_rounding.h"
#include "sphere_area.h"

namespace offlinetz {

namespace {

namespace dom = simdjson::dom;

constexpr size_t kMinRingPositions = 4;  // Three points and the first one again.
// A mended polygon may differ from what its crossing rings enclose by this share of its area, or by
// a square of a hundred metres: that is a slip of the pen. All polygons of a feature of which
// mending changes more may together differ by this share of the feature's area.
constexpr double kRepairShare = 1e-3;
constexpr double kRepairSquareDegrees = 1e-6;
// Rings that cross themselves and each other more often than so many times a point are not mended:
// what that takes grows with the crossings, of which there may be as many as pairs of edges.
constexpr size_t kMaxCrossingsPerPoint = 8;
// Units a degree in which crossings are counted, about 5 cm each; three turns of longitude fit.
constexpr double kUnitsPerDegree = 1 << 21;

using Warn = std::function<void(const std::string&)>;

[[noreturn]] void Fail(const std::string& where, const std::string& reason) {
    throw InputError(where + ": " + reason);
}

// With what the geometry library said last.
[[noreturn]] void FailInGeometry(const std::string& where) {
    ThrowIfGeometryLacksMemory();
    Fail(where, LastGeometryError());
}

GeometryPtr Checked(GEOSGeometry* geometry, const std::string& where) {
    if (geometry == nullptr) FailInGeometry(where);
    return GeometryPtr(geometry);
}

struct Feature {
    const std::string& path;
    size_t index;
    std::string tzid;
    std::optional<size_t> polygon;  // Which one of several.

    std::string Where() const {
        std::string where = fmt::format("{}: feature {}", path, index);
        if (!tzid.empty()) where += fmt::format(" ({})", tzid);
        if (polygon.has_value()) where += fmt::format(" polygon {}", *polygon);
        return where;
    }
};

// A polygon of a feature as it was read.
struct PolygonPart {
    GeometryPtr area;      // Valid; may be several polygons, or empty.
    size_t points = 0;     // Of its rings.
    bool crosses = false;  // The antimeridian, so it was cut there.
    std::string slip;      // What was mended and where, empty where nothing was.
    // What mending changed where that was more than a slip of the pen.
    double changedSquareDegrees = 0.0;
    double changedKm2 = 0.0;
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

// A polygon of an outline and what it leaves out.
GeometryPtr MakePolygon(const Positions* rings, size_t count, const Feature& feature) {
    std::vector<GeometryPtr> made;
    for (size_t i = 0; i < count; ++i) {
        GEOSCoordSequence* sequence = GEOSCoordSeq_copyFromBuffer(
                rings[i].data(), static_cast<unsigned>(rings[i].size() / 2), /*hasZ=*/0,
                /*hasM=*/0);
        if (sequence == nullptr) FailInGeometry(feature.Where());
        made.push_back(Checked(GEOSGeom_createLinearRing(sequence), feature.Where()));
    }
    GeometryPtr outline = std::move(made.front());
    made.erase(made.begin());
    std::vector<GEOSGeometry*> holes = ReleaseAll(std::move(made));
    return Checked(GEOSGeom_createPolygon(outline.release(), holes.data(),
                                          static_cast<unsigned>(holes.size())),
                   feature.Where());
}

double AreaOf(const GEOSGeometry* geometry) {
    double area = 0.0;
    GEOSArea(geometry, &area);
    return area;
}

bool CrossTooOften(const GEOSGeometry* polygon) {
    const auto toGrid = [](const std::vector<double>& xy, size_t i) {
        return GridPoint{static_cast<int32_t>(xy[i + 1] * kUnitsPerDegree),
                         static_cast<int32_t>(xy[i] * kUnitsPerDegree)};
    };
    std::vector<Edge> edges;
    VisitRings(polygon, [&](const std::vector<double>& xy, bool, bool) {
        for (size_t i = 0; i < xy.size(); i += 2) {
            const Edge edge = {toGrid(xy, i), toGrid(xy, i + 2 < xy.size() ? i + 2 : 0)};
            if (edge.a != edge.b) edges.push_back(edge);
        }
    });
    return CrossingsExceed(edges, kMaxCrossingsPerPoint * edges.size());
}

// A valid polygon for one whose rings cross: what its rings enclose. Adds to `part` what was
// mended.
GeometryPtr MakeValid(GeometryPtr polygon, const Feature& feature, PolygonPart* part) {
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
    const std::string slip = fmt::format("{} at {}, {}", reason, x, y);
    if (CrossTooOften(polygon.get())) {
        Fail(feature.Where(), slip + "; its edges cross too often to be mended");
    }
    if (part->slip.empty()) part->slip = slip;
    GEOSMakeValidParams* params = GEOSMakeValidParams_create();
    GEOSMakeValidParams_setMethod(params, GEOS_MAKE_VALID_STRUCTURE);
    GEOSMakeValidParams_setKeepCollapsed(params, 0);
    GEOSGeometry* made = GEOSMakeValidWithParams(polygon.get(), params);
    GEOSMakeValidParams_destroy(params);
    GeometryPtr mended = Checked(made, feature.Where());
    const double before = std::fabs(AreaOf(polygon.get()));
    const double change = std::fabs(AreaOf(mended.get()) - before);
    if (change > std::max(before * kRepairShare, kRepairSquareDegrees)) {
        part->changedSquareDegrees += change;
        part->changedKm2 +=
                std::fabs(SquareKilometres(mended.get()) - SquareKilometres(polygon.get()));
    }
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
                                   const Feature& feature, PolygonPart* part) {
    GeometryPtr polygon;
    for (Positions& ring : rings) {
        std::string reason;
        if ((allCross || CountLongEdges(ring).crossing > 0) && !Unwrap(&ring, &reason)) {
            Fail(feature.Where(), reason);
        }
        const GeometryPtr area = MakeValid(MakePolygon(&ring, 1, feature), feature, part);
        GeometryPtr cut = Checked(CutAtAntimeridian(area.get()).release(), feature.Where());
        // Outline and hole may have been unwrapped to different sides; cut, they fit.
        polygon = polygon == nullptr
                          ? std::move(cut)
                          : Checked(GEOSDifference(polygon.get(), cut.get()), feature.Where());
    }
    return polygon;
}

[[noreturn]] void FailForLongEdge(const Positions& ring, size_t position, const Feature& feature) {
    const double* p = &ring[2 * position];
    Fail(feature.Where(),
         fmt::format("the edge from {}, {} to {}, {} (longitude, latitude) spans {} degrees of "
                     "longitude; --cross-antimeridian has such edges cross the antimeridian, a "
                     "point in between has one go the long way",
                     p[0], p[1], p[2], p[3], std::fabs(p[2] - p[0])));
}

// The polygon of an array of rings.
PolygonPart ReadPolygon(const dom::element& element, const Feature& feature,
                        bool crossAntimeridian) {
    dom::array array;
    if (element.get(array) || array.size() == 0) {
        Fail(feature.Where(), "a polygon is not an array of rings");
    }
    PolygonPart part;
    std::vector<Positions> rings;
    LongEdges edges;
    for (const dom::element ring : array) {
        rings.push_back(ReadRing(ring, feature));
        part.points += rings.back().size() / 2 - 1;
        const LongEdges more = CountLongEdges(rings.back());
        if (more.crossing > 0 && !crossAntimeridian) {
            FailForLongEdge(rings.back(), more.firstCrossing, feature);
        }
        edges.crossing += more.crossing;
        edges.aroundTheWorld += more.aroundTheWorld;
    }
    const bool allCross =
            edges.crossing == 0 && edges.aroundTheWorld > 0 && AreRatherCrossing(rings, feature);
    part.crosses = edges.crossing > 0 || allCross;
    part.area = part.crosses ? ReadAcrossAntimeridian(std::move(rings), allCross, feature, &part)
                             : MakeValid(MakePolygon(rings.data(), rings.size(), feature), feature,
                                         &part);
    return part;
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

// Something bad in the input.
struct Fault {
    std::string line;           // Where and what.
    std::optional<double> km2;  // Its area, where that is known.
};

// The polygons of a feature that can be used; adds the others to `faults`.
std::vector<PolygonPart> ReadParts(const dom::element& element, Feature feature,
                                   bool crossAntimeridian, const Warn& warn,
                                   std::vector<Fault>* faults) {
    const std::vector<dom::element> polygons = ReadPolygons(element, feature);
    std::vector<PolygonPart> parts(polygons.size());
    double area = 0.0;
    double changed = 0.0;
    for (size_t i = 0; i < polygons.size(); ++i) {
        if (polygons.size() > 1) feature.polygon = i;
        try {
            parts[i] = ReadPolygon(polygons[i], feature, crossAntimeridian);
            area += AreaOf(parts[i].area.get());
            changed += parts[i].changedSquareDegrees;
        } catch (const InputError& error) {
            faults->push_back({error.what(), std::nullopt});
        }
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        PolygonPart& part = parts[i];
        if (part.slip.empty()) continue;
        if (polygons.size() > 1) feature.polygon = i;
        const std::string line = feature.Where() + ": " + part.slip;
        if (part.changedSquareDegrees == 0.0) {
            warn(line + "; mended");
        } else if (changed <= kRepairShare * area) {
            warn(fmt::format("{}; mended, which changes its area by {:.2f} km2", line,
                             part.changedKm2));
        } else {
            faults->push_back({fmt::format("{}; mending it would change its area by {:.2f} km2",
                                           line, part.changedKm2),
                               SquareKilometres(part.area.get())});
            part = PolygonPart();
        }
    }
    parts.erase(std::remove_if(parts.begin(), parts.end(),
                               [](const PolygonPart& part) { return part.area == nullptr; }),
                parts.end());
    return parts;
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

// What the parser gave. Throws std::bad_alloc for lack of memory, after which the parser must not
// be used again: it would write through a null pointer.
simdjson::error_code Take(simdjson::simdjson_result<dom::element> parsed, dom::element* document) {
    const auto error = parsed.get(*document);
    if (error == simdjson::MEMALLOC) throw std::bad_alloc();
    return error;
}

// `where` names the text.
dom::element ParseJson(std::string_view text, const std::string& where, dom::parser* parser) {
    dom::element document;
    if (const auto error = Take(parser->parse(text.data(), text.size()), &document)) {
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
    return !texts.empty() && !Take(parser->parse(texts[0].data(), texts[0].size()), &first) &&
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

// Collects the zones of all features, and what is bad in them.
class SourceReader {
  public:
    SourceReader(const SourceOptions& options, const Warn& warn) : mOptions(options), mWarn(warn) {}

    void AddError(const std::string& line) { mErrors.push_back(line); }

    // `element(feature)` is the feature's JSON, or throws InputError.
    template <typename ElementFunction>
    void Read(const Feature& feature, const ElementFunction& element) {
        std::vector<Fault> faults;
        try {
            if (ReadFeature(element(feature), feature, &faults)) {
                mSource.leftOut.polygons += faults.size();
            } else {
                ++mSource.leftOut.features;
            }
        } catch (const InputError& error) {
            ++mSource.leftOut.features;
            faults.push_back({error.what(), std::nullopt});
        }
        for (const Fault& fault : faults)
            LeaveOut(fault);
    }

    // Unites the polygons of each zone. Throws InputError with all that is bad, unless that is to
    // be left out.
    Source Finish(const ProgressCallback& progress) {
        size_t done = 0;
        for (auto& [tzid, zone] : mZones) {
            try {
                if (zone.polygons.empty()) Fail(zone.where, "its zone has no area");
                GeometryPtr area = Checked(Unite(std::move(zone.polygons)).release(), zone.where);
                mSource.zones.push_back({tzid, std::move(area), zone.where});
            } catch (const InputError& error) {
                ++mSource.leftOut.zones;
                LeaveOut({error.what(), zone.polygons.empty() ? std::optional(0.0) : std::nullopt});
            }
            progress("uniting", ++done, mZones.size());
        }
        if (!mErrors.empty()) throw InputError(mErrors);
        return std::move(mSource);
    }

  private:
    void LeaveOut(const Fault& fault) {
        if (!mOptions.skipBad) {
            AddError(fault.line);
            return;
        }
        if (fault.km2.has_value()) {
            mSource.leftOut.km2 += *fault.km2;
            mWarn(fmt::format("{}; left out, {:.2f} km2", fault.line, *fault.km2));
        } else {
            ++mSource.leftOut.ofUnknownArea;
            mWarn(fault.line + "; left out");
        }
    }

    // Whether any of the feature can be used, or nothing is wrong with it.
    bool ReadFeature(const dom::element& element, Feature feature, std::vector<Fault>* faults) {
        feature.tzid = ReadTzid(element, feature, mOptions);
        if (IsSeaZone(feature.tzid)) {
            ++mSource.seaFeatures;
            return true;
        }
        std::vector<PolygonPart> parts =
                ReadParts(element, feature, mOptions.crossAntimeridian, mWarn, faults);
        if (parts.empty() && !faults->empty()) return false;
        if (std::any_of(parts.begin(), parts.end(),
                        [](const PolygonPart& part) { return part.crosses; })) {
            mWarn(feature.Where() +
                  ": crosses the antimeridian on edges of more than 180 degrees of "
                  "longitude; cut there");
        }
        ++mSource.features;
        ZoneParts& zone = mZones[feature.tzid];
        if (zone.where.empty()) zone.where = feature.Where();
        for (PolygonPart& part : parts) {
            mSource.points += part.points;
            AddPolygons(std::move(part.area), &zone.polygons);
        }
        return true;
    }

    const SourceOptions& mOptions;
    const Warn& mWarn;
    Source mSource;
    std::map<std::string, ZoneParts> mZones;
    std::vector<std::string> mErrors;
};

// Reads one file. Throws InputError where it is no GeoJSON of features.
void ReadFile(const std::string& path, uint64_t maxBytes, const ProgressCallback& progress,
              SourceReader* reader) {
    const std::string text = ReadText(path, maxBytes);
    dom::parser parser;
    size_t index = 0;
    const auto read = [&](const auto& element, size_t all) {
        reader->Read({path, index, {}, {}}, element);
        ++index;
        // An array's size is capped at 2^24 - 1 in the parser; more features only make the
        // progress late.
        progress("reading", index, std::max(index, all));
    };
    dom::element document;
    std::string_view type;
    if (Take(parser.parse(text), &document)) {
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
}

}  // namespace

bool IsSeaZone(std::string_view tzid) {
    return tzid.substr(0, 7) == "Etc/GMT";
}

Source ReadSource(const std::vector<std::string>& paths, const Warn& warn,
                  const ProgressCallback& progress, const SourceOptions& options) {
    SourceReader reader(options, warn);
    for (const std::string& path : paths) {
        try {
            ReadFile(path, options.maxInputBytes, progress, &reader);
        } catch (const InputError& error) {
            reader.AddError(error.what());
        }
    }
    Source source = reader.Finish(progress);
    if (source.zones.empty()) {
        throw InputError(fmt::format("{}: no land zone in it", fmt::join(paths, ", ")));
    }
    return source;
}

}  // namespace offlinetz
