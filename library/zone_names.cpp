#include "zone_names.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace offlinetz {

void ZoneNames::Add(const char* stored) {
    size_t length = std::strlen(stored);
    if (length >= 2 && stored[0] == '"' && stored[length - 1] == '"') {
        ++stored;
        length -= 2;
    }
    mBegins.push_back(static_cast<uint32_t>(mTexts.size()));
    mTexts.insert(mTexts.end(), stored, stored + length);
    mTexts.push_back('\0');
}

void ZoneNames::Finish() {
    mGreenwich = Count() + zonedetect::kNauticalBands;
    for (int band = -zonedetect::kNauticalBands; band <= zonedetect::kNauticalBands; ++band)
        Add(zonedetect::NauticalZone(band));
    mTexts.shrink_to_fit();
    mBegins.shrink_to_fit();
    mByName.resize(mBegins.size());
    std::iota(mByName.begin(), mByName.end(), 0);
    // Stable: of zones with one name, the first comes first.
    std::stable_sort(mByName.begin(), mByName.end(), [this](int32_t a, int32_t b) {
        return std::strcmp(NameOf(a), NameOf(b)) < 0;
    });
}

const char* ZoneNames::NameOf(int32_t id) const {
    return id >= 0 && id < Count() ? &mTexts[mBegins[static_cast<size_t>(id)]] : nullptr;
}

int32_t ZoneNames::IdOf(const char* name) const {
    const auto found = std::lower_bound(
            mByName.begin(), mByName.end(), name,
            [this](int32_t id, const char* wanted) { return std::strcmp(NameOf(id), wanted) < 0; });
    return found != mByName.end() && std::strcmp(NameOf(*found), name) == 0 ? *found : -1;
}

}  // namespace offlinetz
