// Describes the features of a file that lack the property that names their zone.
#pragma once

#include <simdjson.h>

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace offlinetz {

// Counts the features and notes which texts they have that could name a zone instead: properties,
// and the feature's own "id". Holds a bounded number of indexes and names, copied.
class UnnamedFeatures {
  public:
    // Adds a feature, which must be a JSON object. `index` is its position in the file.
    void Add(size_t index, const simdjson::dom::element& feature);

    size_t Count() const { return mCount; }

    // One line for all of them, without the file's name. `property` is the one that they lack,
    // `features` the number of features in the file. The names in it are foreign text.
    std::string Describe(const std::string& property, size_t features, bool areLeftOut) const;

  private:
    void AddName(std::string_view name, const simdjson::dom::element& value);

    size_t mCount = 0;
    std::vector<size_t> mIndexes;  // The first ones.
    std::set<std::string> mNames;  // The first ones in sorted order.
};

}  // namespace offlinetz
