#include "unnamed_features.h"

#include <fmt/format.h>

#include <iterator>

namespace offlinetz {

namespace {

constexpr size_t kMaxListed = 8;  // Of indexes and of names.

}  // namespace

void UnnamedFeatures::Add(size_t index, const simdjson::dom::element& feature) {
    if (mCount++ < kMaxListed) mIndexes.push_back(index);
    simdjson::dom::object properties;
    if (!feature["properties"].get(properties)) {
        for (const auto& [name, value] : properties)
            AddName(name, value);
    }
    simdjson::dom::element id;
    if (!feature["id"].get(id)) AddName("id", id);
}

std::string UnnamedFeatures::Describe(const std::string& property, size_t features,
                                      bool areLeftOut) const {
    std::string line =
            fmt::format("no property '{}' in {} of {} features", property, mCount, features);
    const bool areAll = mCount == features;
    if (!areAll) {
        line += fmt::format(" (feature{} {}", mCount == 1 ? "" : "s", fmt::join(mIndexes, ", "));
        if (mCount > kMaxListed) line += fmt::format(" and {} more", mCount - kMaxListed);
        line += ')';
    }
    if (areLeftOut) line += ", left out";
    if (mNames.empty()) return line;
    std::vector<std::string> names(mNames.begin(), mNames.end());
    const bool areMore = names.size() > kMaxListed;
    if (areMore) names.resize(kMaxListed);
    line += fmt::format("; they have: {}{}", fmt::join(names, ", "), areMore ? ", ..." : "");
    // If other features have the property, another one is hardly meant.
    return areAll ? line + ". Use --tzid-property NAME" : line;
}

// Keeps one name more than are listed, to know whether there are more.
void UnnamedFeatures::AddName(std::string_view name, const simdjson::dom::element& value) {
    if (!value.is_string()) return;
    mNames.emplace(name);
    if (mNames.size() > kMaxListed + 1) mNames.erase(std::prev(mNames.end()));
}

}  // namespace offlinetz
