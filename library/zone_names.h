// The zones of a database and their ids.
#pragma once

#include <reader/nautical.h>
#include <zonedetect.h>

#include <cstdint>
#include <string>
#include <vector>

namespace offlinetz {

// The zones that the records of a database name, in the order of the records, and the nautical
// zones from west to east. Immutable, so any number of threads may use it.
class ZoneNames {
  public:
    // Adds the zone of a record, as it is stored: with double quotes around its name, which are
    // removed. Throws std::bad_alloc.
    void Add(const char* stored);

    // Adds the nautical zones. No zone may be added behind them. Throws std::bad_alloc.
    void Finish();

    int32_t Count() const { return static_cast<int32_t>(mBegins.size()); }
    // Null if there is no such id. Valid as long as this object.
    const char* NameOf(int32_t id) const;
    // The id of the first zone with a name; -1 if there is none.
    int32_t IdOf(const char* name) const;
    // The id of the nautical zone of a band (reader/nautical.h).
    int32_t NauticalId(int band) const { return mGreenwich + band; }
    bool IsNautical(int32_t id) const { return id >= NauticalId(-zonedetect::kNauticalBands); }

  private:
    std::vector<char> mTexts;       // Each with a zero behind it.
    std::vector<uint32_t> mBegins;  // Of each name in mTexts.
    std::vector<int32_t> mByName;   // The ids, sorted by name.
    int32_t mGreenwich = 0;
};

}  // namespace offlinetz
