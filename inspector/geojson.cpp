#include "geojson.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <vector>

#include "compiler/geometry.h"

namespace offlinetz {

namespace {

void AppendRing(const std::vector<double>& xy, bool isReversed, std::string* text) {
    const size_t points = xy.size() / 2;
    *text += '[';
    for (size_t i = 0; i <= points; ++i) {
        const size_t place = i % points;
        const size_t p = isReversed ? points - 1 - place : place;
        fmt::format_to(std::back_inserter(*text), "{}[{:.7f},{:.7f}]", i > 0 ? "," : "", xy[2 * p],
                       xy[2 * p + 1]);
    }
    *text += ']';
}

}  // namespace

std::string FeatureOf(const nlohmann::ordered_json& properties, const GEOSGeometry* area) {
    std::string text = fmt::format(
            R"({{"type":"Feature","properties":{},"geometry":{{"type":"MultiPolygon","coordinates":[)",
            properties.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    bool isFirst = true;
    VisitRings(area, [&](const std::vector<double>& xy, bool isHole, bool isClockwise) {
        if (!isHole) text += isFirst ? "[" : "],[";
        if (isHole) text += ',';
        isFirst = false;
        // In GeoJSON exterior rings run counterclockwise and holes clockwise.
        AppendRing(xy, isHole != isClockwise, &text);
    });
    text += isFirst ? "]}}" : "]]}}";
    return text;
}

nlohmann::ordered_json ChangeJson(const Change& change) {
    nlohmann::ordered_json object = {
            {"from", nullptr}, {"to", nullptr}, {"km2", Rounded(change.km2, 1e6)}};
    if (!change.from.empty()) object["from"] = change.from;
    if (!change.to.empty()) object["to"] = change.to;
    for (const double side : change.box)
        object["box"].push_back(Rounded(side, 1e7));
    for (const double degrees : change.sample)
        object["sample"].push_back(Rounded(degrees, 1e7));
    return object;
}

double Rounded(double value, double parts) {
    return std::round(value * parts) / parts;
}

}  // namespace offlinetz
