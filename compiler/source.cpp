#include "source.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>

#include "database/text_rules.h"
#include "input_polygon.h"
#include "input_text.h"
#include "sphere_area.h"
#include "unnamed_features.h"

namespace offlinetz {

namespace {

namespace dom = simdjson::dom;

using Warn = std::function<void(const std::string&)>;

// Names a feature in messages.
struct Feature {
    const std::string& path;
    size_t index;                   // In its file, from 0.
    std::string tzid;               // Empty until it is known.
    std::optional<size_t> polygon;  // One polygon of several.

    std::string Where() const {
        std::string where = fmt::format("{}: feature {}", path, index);
        if (!tzid.empty()) where += fmt::format(" ({})", tzid);
        if (polygon.has_value()) where += fmt::format(" polygon {}", *polygon);
        return where;
    }
};

// The polygons of a zone so far.
struct ZoneParts {
    std::string where;  // The first feature of the zone.
    std::vector<GeometryPtr> polygons;
};

// The member of a feature that names its zone: a property, or else a member of the feature itself,
// such as "id". GeoJSON itself defines "type", so "type" names no zone.
std::optional<dom::element> FindIdentifier(const dom::element& feature, const std::string& name) {
    dom::element found;
    if (!feature["properties"][name].get(found) && !found.is_null()) return found;
    if (name != "type" && !feature[name].get(found) && !found.is_null()) return found;
    return std::nullopt;
}

// The identifier as text. Throws InputError if a database cannot hold it.
std::string ReadTzid(const dom::element& identifier, const Feature& feature,
                     const SourceOptions& options) {
    const std::string& name = options.tzidProperty;
    std::string_view tzid;
    if (identifier.get(tzid)) {
        ThrowInputError(feature.Where(), fmt::format("its {} is not a text", name));
    }
    if (tzid.size() > options.maxTzidBytes) {
        ThrowInputError(feature.Where(), fmt::format("its {} has {} bytes; the database holds up "
                                                     "to {}",
                                                     name, tzid.size(), options.maxTzidBytes));
    }
    if (const char* fault = FaultOfIdentifier(tzid)) {
        ThrowInputError(feature.Where(), fmt::format("its {} {}", name, fault));
    }
    return std::string(tzid);
}

// The arrays of rings in a feature's geometry.
std::vector<dom::element> FindPolygons(const dom::element& element, const Feature& feature) {
    dom::element geometry;
    if (element.at_pointer("/geometry").get(geometry) || geometry.is_null()) {
        ThrowInputError(feature.Where(), "has no geometry");
    }
    std::string_view type;
    if (geometry.at_pointer("/type").get(type))
        ThrowInputError(feature.Where(), "its geometry has no type");
    const bool isOne = type == "Polygon";
    if (!isOne && type != "MultiPolygon") {
        constexpr std::string_view kOthers[] = {"Point", "MultiPoint", "LineString",
                                                "MultiLineString", "GeometryCollection"};
        // Any other type may be any text, so it is not quoted.
        const bool isKnown =
                std::find(std::begin(kOthers), std::end(kOthers), type) != std::end(kOthers);
        ThrowInputError(feature.Where(),
                        fmt::format("its geometry is {}, not a Polygon or MultiPolygon",
                                    isKnown ? fmt::format("a {}", type) : "of no known type"));
    }
    dom::element coordinates;
    dom::array polygons;
    if (geometry.at_pointer("/coordinates").get(coordinates) || coordinates.get(polygons)) {
        ThrowInputError(feature.Where(), "its geometry has no coordinates");
    }
    if (isOne) return {coordinates};
    std::vector<dom::element> each;
    for (const dom::element polygon : polygons)
        each.push_back(polygon);
    return each;
}

// A feature, polygon or zone that cannot be used.
struct Fault {
    std::string line;           // Where and what.
    std::optional<double> km2;  // Its area, if that is known.
};

// The sums that decide whether repairs changed a feature too much, in square degrees.
struct RepairSums {
    double area = 0.0;
    double changed = 0.0;
};

// Warns of the repair of a polygon. Returns a fault instead if the repairs of its feature changed
// too much.
std::optional<Fault> JudgeRepair(const InputPolygon& polygon, const Feature& feature,
                                 const RepairSums& sums, const Warn& warn) {
    const std::string line = feature.Where() + ": " + polygon.repair;
    if (polygon.changedSquareDegrees == 0.0) {
        warn(line + "; repaired");
    } else if (sums.changed <= kRepairShare * sums.area) {
        warn(fmt::format("{}; repaired, which changes its area by {:.2f} km2", line,
                         polygon.changedKm2));
    } else {
        return Fault{fmt::format("{}; repairing it would change its area by {:.2f} km2", line,
                                 polygon.changedKm2),
                     SquareKilometres(polygon.area.get())};
    }
    return std::nullopt;
}

// The polygons of a feature that can be used. Adds the others to `faults`.
std::vector<InputPolygon> ReadPolygons(const dom::element& element, Feature feature,
                                       bool crossAntimeridian, const Warn& warn,
                                       std::vector<Fault>* faults) {
    const std::vector<dom::element> elements = FindPolygons(element, feature);
    std::vector<std::optional<InputPolygon>> polygons(elements.size());
    RepairSums sums;
    for (size_t i = 0; i < elements.size(); ++i) {
        if (elements.size() > 1) feature.polygon = i;
        try {
            polygons[i] = ReadPolygon(elements[i], feature.Where(), crossAntimeridian);
            sums.area += SquareDegrees(polygons[i]->area.get());
            sums.changed += polygons[i]->changedSquareDegrees;
        } catch (const InputError& error) {
            faults->push_back({error.what(), std::nullopt});
        }
    }
    std::vector<InputPolygon> usable;
    for (size_t i = 0; i < elements.size(); ++i) {
        if (!polygons[i].has_value()) continue;
        if (elements.size() > 1) feature.polygon = i;
        if (!polygons[i]->repair.empty()) {
            if (auto fault = JudgeRepair(*polygons[i], feature, sums, warn)) {
                faults->push_back(*std::move(fault));
                continue;
            }
        }
        usable.push_back(*std::move(polygons[i]));
    }
    return usable;
}

// Throws InputError if a file names another reference system than GeoJSON's, as older files may.
// Its numbers would be taken for degrees.
void RequireWgs84(const std::string& path, const dom::element& document) {
    dom::element crs;
    if (document["crs"].get(crs) || crs.is_null()) return;
    std::string_view name;
    if (crs.at_pointer("/properties/name").get(name)) name = "unknown";
    for (const std::string_view known : {"CRS84", "EPSG:4326", "EPSG::4326"}) {
        if (name.size() >= known.size() && name.substr(name.size() - known.size()) == known) return;
    }
    ThrowInputError(
            path,
            fmt::format("its crs is {}; only longitude and latitude of WGS 84 are read", name));
}

// The result of a parser. Throws std::bad_alloc for lack of memory; the parser must not be used
// afterwards, because it would write through a null pointer.
simdjson::error_code Take(simdjson::simdjson_result<dom::element> parsed, dom::element* document) {
    const auto error = parsed.get(*document);
    if (error == simdjson::MEMALLOC) throw std::bad_alloc();
    return error;
}

// Parses a whole file. The parser copies the text only if its string has no room for the padding.
simdjson::error_code Parse(const std::string& text, dom::parser* parser, dom::element* document) {
    return Take(parser->parse(text), document);
}

// Parses a part of a file. The parser copies it.
simdjson::error_code Parse(std::string_view text, dom::parser* parser, dom::element* document) {
    return Take(parser->parse(text.data(), text.size()), document);
}

// Why a text is not JSON, as a phrase for a message.
std::string DescribeJsonError(std::string_view text, simdjson::error_code error) {
    const std::string place = PlaceOfJsonError(text);
    return fmt::format("is not JSON{}{}: {}", place.empty() ? "" : " ", place,
                       simdjson::error_message(error));
}

bool IsOfType(const dom::element& document, std::string_view wanted) {
    std::string_view type;
    return !document["type"].get(type) && type == wanted;
}

// Whether a file is a sequence of features, rather than a broken text of another kind.
bool BeginsWithFeature(const std::vector<std::string_view>& texts, dom::parser* parser) {
    dom::element first;
    return !texts.empty() && !Parse(texts[0], parser, &first) && IsOfType(first, "Feature");
}

// Collects the zones of all files, and the faults in them.
class SourceReader {
  public:
    SourceReader(const SourceOptions& options, const Warn& warn, const ProgressCallback& progress)
        : mOptions(options), mWarn(warn), mProgress(progress) {}

    // Reads a file of any kind.
    void ReadFile(const std::string& path) {
        ++mFiles;
        const size_t featuresBefore = mFeatures;
        try {
            ReadDocument(path);
        } catch (const InputError& error) {
            ++mInvalidFiles;
            mErrors.push_back(error.what());
        }
        RejectUnnamed(path, mFeatures - featuresBefore);
    }

    // Unites the polygons of each zone. Throws InputError with all faults so far, unless they are
    // to be left out.
    Source Finish() {
        RequireNamed(mOptions.zones.only);
        RequireNamed(mOptions.zones.without);
        if (!mOptions.zones.names.empty() && mRenamed.empty()) mWarn("no zone gets a new name");
        size_t done = 0;
        for (auto& [tzid, zone] : mZones) {
            try {
                if (zone.polygons.empty()) ThrowInputError(zone.where, "its zone has no area");
                GeometryPtr area =
                        RequireGeometry(Unite(std::move(zone.polygons)).release(), zone.where);
                mSource.zones.push_back({tzid, std::move(area), zone.where});
            } catch (const InputError& error) {
                ++mInvalidZones;
                LeaveOut({error.what(), zone.polygons.empty() ? std::optional(0.0) : std::nullopt});
            }
            mProgress("uniting", ++done, mZones.size());
        }
        if (!mErrors.empty()) throw InputError(mErrors, Conclusion());
        mSource.leftOut.zones = mInvalidZones;
        return std::move(mSource);
    }

  private:
    // Throws InputError if the file is no GeoJSON of features.
    void ReadDocument(const std::string& path) {
        const std::string text = ReadText(path, mOptions.maxInputBytes);
        dom::parser parser;
        dom::element document;
        if (const auto error = Parse(text, &parser, &document)) {
            const std::vector<std::string_view> texts = SplitFeatures(text);
            if (!BeginsWithFeature(texts, &parser)) {
                ThrowInputError(path, DescribeJsonError(text, error));
            }
            ReadSequence(path, texts, &parser);
        } else if (IsOfType(document, "Feature")) {
            AddFeature({path, 0, {}, {}}, document);
            mProgress("reading", 1, 1);
        } else {
            ReadCollection(path, document);
        }
    }

    void ReadCollection(const std::string& path, const dom::element& document) {
        dom::array features;
        if (!IsOfType(document, "FeatureCollection") || document["features"].get(features)) {
            ThrowInputError(path, "is not a GeoJSON FeatureCollection");
        }
        RequireWgs84(path, document);
        size_t index = 0;
        for (const dom::element element : features) {
            AddFeature({path, index, {}, {}}, element);
            ++index;
            // The parser caps an array's size at 2^24 - 1. With more features, `all` is `done`.
            mProgress("reading", index, std::max(index, features.size()));
        }
    }

    // Reads texts of one feature each.
    void ReadSequence(const std::string& path, const std::vector<std::string_view>& texts,
                      dom::parser* parser) {
        for (size_t i = 0; i < texts.size(); ++i) {
            const Feature feature = {path, i, {}, {}};
            dom::element element;
            if (const auto error = Parse(texts[i], parser, &element)) {
                ++mFeatures;
                RejectFeature(feature.Where() + ": " + DescribeJsonError(texts[i], error));
            } else {
                AddFeature(feature, element);
            }
            mProgress("reading", i + 1, texts.size());
        }
    }

    // Adds a feature to its zone, as far as it can be used.
    void AddFeature(Feature feature, const dom::element& element) {
        ++mFeatures;
        try {
            if (!element.is_object()) ThrowInputError(feature.Where(), "is not an object");
            const auto identifier = FindIdentifier(element, mOptions.tzidProperty);
            if (!identifier.has_value()) {
                mUnnamed.Add(feature.index, element);
                return;
            }
            feature.tzid = ReadTzid(*identifier, feature, mOptions);
            if (!IsSeaZone(feature.tzid)) feature.tzid = NameOf(feature);
            mNames.insert(feature.tzid);
            if (IsSeaZone(feature.tzid)) {
                ++mSource.seaFeatures;
            } else if (!mOptions.zones.Keeps(feature.tzid)) {
                ++mSource.otherFeatures;
            } else {
                AddToZone(feature, element);
            }
        } catch (const InputError& error) {
            RejectFeature(error.what());
        }
    }

    // The name of a land zone in the database. Warns of a new one.
    std::string NameOf(const Feature& feature) {
        const std::string& tzid = feature.tzid;
        try {
            const std::string& name = mOptions.zones.NameOf(tzid);
            if (IsSeaZone(name))
                throw std::invalid_argument(tzid + " would get a name at sea, " + name);
            if (name != tzid && mRenamed.insert(tzid).second)
                mWarn(fmt::format("{} becomes {}", tzid, name));
            return name;
        } catch (const std::invalid_argument& error) {
            // Not a fault of one feature, which could be left out.
            if (mRenamed.insert(tzid).second) mErrors.push_back(error.what());
            return tzid;
        }
    }

    // Zones that were named and are not in the input are faults.
    void RequireNamed(const std::set<std::string>& names) {
        for (const std::string& name : names) {
            if (mNames.count(name) == 0) mErrors.push_back(name + ": the input has no such zone");
        }
    }

    void AddToZone(const Feature& feature, const dom::element& element) {
        std::vector<Fault> faults;
        std::vector<InputPolygon> polygons =
                ReadPolygons(element, feature, mOptions.crossAntimeridian, mWarn, &faults);
        if (!faults.empty()) ++mInvalidFeatures;
        if (polygons.empty() && !faults.empty()) {
            ++mSource.leftOut.features;
        } else {
            mSource.leftOut.polygons += faults.size();
            ++mSource.features;
            AddPolygonsToZone(feature, std::move(polygons));
        }
        for (const Fault& fault : faults)
            LeaveOut(fault);
    }

    void AddPolygonsToZone(const Feature& feature, std::vector<InputPolygon> polygons) {
        const auto any = [&](bool InputPolygon::*is) {
            return std::any_of(polygons.begin(), polygons.end(),
                               [is](const InputPolygon& polygon) { return polygon.*is; });
        };
        if (any(&InputPolygon::crossesAntimeridian)) {
            mWarn(feature.Where() +
                  ": crosses the antimeridian on edges of more than 180 degrees of longitude; cut "
                  "there");
        }
        if (any(&InputPolygon::isBeyond180)) {
            mWarn(feature.Where() +
                  ": has longitudes beyond 180 degrees; cut at the antimeridian and moved by whole "
                  "turns");
        }
        ZoneParts& zone = mZones[feature.tzid];
        if (zone.where.empty()) zone.where = feature.Where();
        for (InputPolygon& polygon : polygons) {
            mSource.points += polygon.points;
            AddPolygons(std::move(polygon.area), &zone.polygons);
        }
    }

    void RejectFeature(const std::string& line) {
        ++mInvalidFeatures;
        ++mSource.leftOut.features;
        LeaveOut({line, std::nullopt});
    }

    // Rejects the features of a file that no property names, in one line.
    void RejectUnnamed(const std::string& path, size_t featuresOfFile) {
        const UnnamedFeatures unnamed = std::exchange(mUnnamed, {});
        if (unnamed.Count() == 0) return;
        mInvalidFeatures += unnamed.Count();
        mSource.leftOut.features += unnamed.Count();
        const std::string line =
                path + ": " +
                unnamed.Describe(mOptions.tzidProperty, featuresOfFile, mOptions.skipBad);
        if (mOptions.skipBad) {
            mSource.leftOut.ofUnknownArea += unnamed.Count();
            mWarn(line);
        } else {
            mErrors.push_back(line);
        }
    }

    // How much is invalid, and whether it can be left out: zones would have to remain.
    std::string Conclusion() const {
        std::vector<std::string> invalid;
        if (mInvalidFeatures > 0 && !mOptions.skipBad) {
            invalid.push_back(fmt::format("{} of {} features", mInvalidFeatures, mFeatures));
        }
        if (mInvalidZones > 0 && !mOptions.skipBad) {
            invalid.push_back(fmt::format("{} of {} zones", mInvalidZones, mZones.size()));
        }
        std::string conclusion;
        if (!invalid.empty()) {
            conclusion = fmt::format("{} {} invalid{}", fmt::join(invalid, " and "),
                                     mInvalidFeatures + mInvalidZones == 1 ? "is" : "are",
                                     mSource.zones.empty() ? "" : " (--skip-bad leaves them out)");
        }
        if (mInvalidFiles > 0 && mFiles > 1) {
            conclusion += fmt::format("{}{} of {} files cannot be read",
                                      conclusion.empty() ? "" : "; ", mInvalidFiles, mFiles);
        }
        return conclusion;
    }

    // Records a fault as an error, or warns of it if faults are to be left out.
    void LeaveOut(const Fault& fault) {
        if (!mOptions.skipBad) {
            mErrors.push_back(fault.line);
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

    const SourceOptions& mOptions;
    const Warn& mWarn;
    const ProgressCallback& mProgress;
    Source mSource;
    std::map<std::string, ZoneParts> mZones;
    std::set<std::string> mNames;    // Of all zones, wanted or not.
    std::set<std::string> mRenamed;  // Former names that have been reported.
    UnnamedFeatures mUnnamed;        // Of the current file.
    size_t mFiles = 0;
    size_t mInvalidFiles = 0;
    size_t mFeatures = 0;         // All, valid or not, of land or sea.
    size_t mInvalidFeatures = 0;  // At least one of their polygons cannot be used.
    size_t mInvalidZones = 0;
    std::vector<std::string> mErrors;
};

}  // namespace

bool IsSeaZone(std::string_view tzid) {
    return tzid.substr(0, 7) == "Etc/GMT";
}

Source ReadSource(const std::vector<std::string>& paths, const Warn& warn,
                  const ProgressCallback& progress, const SourceOptions& options) {
    SourceReader reader(options, warn, progress);
    for (const std::string& path : paths)
        reader.ReadFile(path);
    Source source = reader.Finish();
    if (source.zones.empty()) {
        throw InputError(fmt::format("{}: no land zone in it", fmt::join(paths, ", ")));
    }
    return source;
}

}  // namespace offlinetz
