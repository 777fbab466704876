#include "source.h"

#include <fmt/format.h>
#include <simdjson.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>

namespace offlinetz {

namespace {

namespace dom = simdjson::dom;

constexpr size_t kMinRingPositions = 4;  // Three points and the first one again.
// A mended polygon may differ from what its crossing rings enclose by this share of the area,
// or by a square of a hundred metres: more than that is not a slip of the pen.
constexpr double kMendShare = 1e-3;
constexpr double kMendSquareDegrees = 1e-6;

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

// A whole file, unpacked where it is gzip.
simdjson::padded_string ReadFile(const std::string& path) {
    errno = 0;
    gzFile file = gzopen(path.c_str(), "rb");
    if (file == nullptr) Fail(path, errno != 0 ? std::strerror(errno) : "out of memory");
    std::string text;
    std::vector<char> buffer(size_t{1} << 20);
    int got;
    while ((got = gzread(file, buffer.data(), static_cast<unsigned>(buffer.size()))) > 0) {
        text.append(buffer.data(), static_cast<size_t>(got));
    }
    int code = Z_OK;
    const std::string reason = gzerror(file, &code);
    const int closed = gzclose(file);
    if (got < 0 || code != Z_OK || closed != Z_OK) {
        Fail(path, "cannot be read: " + (reason.empty() ? "the file is cut short" : reason));
    }
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    std::string_view json = text;
    if (json.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        json.remove_prefix(kByteOrderMark.size());
    }
    return simdjson::padded_string(json);
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

GeometryPtr ReadRing(const dom::array& positions, const Feature& feature, size_t* points) {
    std::vector<double> xy;
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
    *points += count - 1;
    GEOSCoordSequence* sequence = GEOSCoordSeq_copyFromBuffer(
            xy.data(), static_cast<unsigned>(count), /*hasZ=*/0, /*hasM=*/0);
    if (sequence == nullptr) Fail(feature.Where(), gLastGeometryError);
    return Checked(GEOSGeom_createLinearRing(sequence), feature.Where());
}

GeometryPtr ReadPolygon(const dom::element& rings, const Feature& feature, size_t* points) {
    dom::array array;
    if (rings.get(array) || array.size() == 0) {
        Fail(feature.Where(), "a polygon is not an array of rings");
    }
    GeometryPtr shell;
    std::vector<GEOSGeometry*> holes;
    for (const dom::element ring : array) {
        dom::array positions;
        if (ring.get(positions)) Fail(feature.Where(), "a ring is not an array of positions");
        GeometryPtr geometry = ReadRing(positions, feature, points);
        if (shell == nullptr) {
            shell = std::move(geometry);
        } else {
            holes.push_back(geometry.release());
        }
    }
    return Checked(GEOSGeom_createPolygon(shell.release(), holes.data(),
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
GeometryPtr Mend(GeometryPtr polygon, const Feature& feature,
                 const std::function<void(const std::string&)>& warn) {
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

using ZoneParts = std::map<std::string, std::vector<GeometryPtr>>;

// Adds the polygons within `geometry` (a mended polygon may have become several, or none).
void AddPolygons(GeometryPtr geometry, std::vector<GeometryPtr>* parts) {
    const int type = GEOSGeomTypeId(geometry.get());
    if (type == GEOS_POLYGON) {
        if (GEOSisEmpty(geometry.get()) == 0) parts->push_back(std::move(geometry));
        return;
    }
    const int count = GEOSGetNumGeometries(geometry.get());
    for (int i = 0; i < count; ++i) {
        const GEOSGeometry* part = GEOSGetGeometryN(geometry.get(), i);
        if (GEOSGeomTypeId(part) == GEOS_POLYGON && GEOSisEmpty(part) == 0) {
            parts->emplace_back(GEOSGeom_clone(part));
        }
    }
}

void ReadFeature(const dom::element& element, Feature feature, Source* source, ZoneParts* zones,
                 const std::function<void(const std::string&)>& warn) {
    std::string_view tzid;
    if (element.at_pointer("/properties/tzid").get(tzid) || tzid.empty()) {
        Fail(feature.Where(), "has no tzid");
    }
    if (std::any_of(tzid.begin(), tzid.end(), [](char c) {
            return c == '"' || static_cast<unsigned char>(c) < ' ' || c == '\x7F';
        })) {
        Fail(feature.Where(), "its tzid holds a double-quote or control character");
    }
    feature.tzid = tzid;
    if (IsSeaZone(tzid)) {
        ++source->seaFeatures;
        return;
    }
    ++source->features;

    std::string_view type;
    dom::array coordinates;
    if (element.at_pointer("/geometry/type").get(type) ||
        element.at_pointer("/geometry/coordinates").get(coordinates)) {
        Fail(feature.Where(), "has no geometry");
    }
    std::vector<GeometryPtr>& parts = (*zones)[feature.tzid];
    const auto add = [&](const dom::element& rings) {
        AddPolygons(Mend(ReadPolygon(rings, feature, &source->points), feature, warn), &parts);
    };
    if (type == "Polygon") {
        add(element.at_pointer("/geometry/coordinates"));
    } else if (type == "MultiPolygon") {
        for (const dom::element polygon : coordinates)
            add(polygon);
    } else {
        Fail(feature.Where(),
             fmt::format("its geometry is a {}, not a Polygon or MultiPolygon", type));
    }
}

// One valid geometry for all polygons of a zone: where they meet, the line between them goes.
GeometryPtr Unite(std::vector<GeometryPtr> parts, const std::string& tzid) {
    if (parts.size() == 1) return std::move(parts.front());
    std::vector<GEOSGeometry*> raw;
    raw.reserve(parts.size());
    for (GeometryPtr& part : parts)
        raw.push_back(part.release());
    const GeometryPtr collection =
            Checked(GEOSGeom_createCollection(GEOS_GEOMETRYCOLLECTION, raw.data(),
                                              static_cast<unsigned>(raw.size())),
                    tzid);
    return Checked(GEOSUnaryUnion(collection.get()), tzid);
}

}  // namespace

void StartGeometry() {
    initGEOS(OnGeometryNotice, OnGeometryMessage);
}

bool IsSeaZone(std::string_view tzid) {
    return tzid.substr(0, 7) == "Etc/GMT";
}

Source ReadSource(const std::vector<std::string>& paths,
                  const std::function<void(const std::string&)>& warn,
                  const std::function<void(const char*, size_t, size_t)>& progress) {
    Source source;
    ZoneParts parts;
    for (const std::string& path : paths) {
        const simdjson::padded_string text = ReadFile(path);
        dom::parser parser;
        dom::element document;
        if (const auto error = parser.parse(text).get(document)) {
            Fail(path, fmt::format("is not JSON: {}", simdjson::error_message(error)));
        }
        std::string_view type;
        dom::array features;
        if (document["type"].get(type) || type != "FeatureCollection" ||
            document["features"].get(features)) {
            Fail(path, "is not a GeoJSON FeatureCollection");
        }
        size_t index = 0;
        for (const dom::element element : features) {
            ReadFeature(element, {path, index, {}}, &source, &parts, warn);
            // An array's size is capped at 2^24 - 1 in the parser; more features only make
            // the progress late.
            progress("reading", ++index, std::max(index, features.size()));
        }
    }
    size_t done = 0;
    for (auto& [tzid, polygons] : parts) {
        GeometryPtr area = polygons.empty() ? nullptr : Unite(std::move(polygons), tzid);
        if (area == nullptr || GEOSisEmpty(area.get()) == 1) {
            throw InputError(fmt::format("{}: {} has no area", fmt::join(paths, ", "), tzid));
        }
        source.zones.push_back({tzid, std::move(area)});
        progress("uniting", ++done, parts.size());
    }
    if (source.zones.empty()) {
        throw InputError(fmt::format("{}: no land zone in it", fmt::join(paths, ", ")));
    }
    return source;
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
