// The reference reader: a second implementation of the database format, simple and slow, to compare
// the reader with. It shares no code and no constants with the reader.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oracle {

struct ZoneHit {
    int result;
    uint32_t recordOffset;
    std::optional<std::string> text;  // The zone's first string. Null if it cannot be decoded.
};

struct Answer {
    std::vector<ZoneHit> hits;
    float safezone = 0.0f;
};

class ReferenceReader {
  public:
    // `file` is a whole database file. Throws std::runtime_error if the reader must refuse it.
    explicit ReferenceReader(std::vector<uint8_t> file);

    Answer Lookup(float lat, float lon) const;

    int Precision() const { return mContent[5]; }
    const std::string& Notice() const { return mNotice; }
    const std::vector<std::optional<std::string>>& FieldNames() const { return mFieldNames; }

  private:
    std::vector<uint8_t> mContent;
    std::vector<std::optional<std::string>> mFieldNames;
    std::string mNotice;
    uint32_t mBoxTable = 0;
    uint32_t mMetadata = 0;
    uint32_t mPolygons = 0;
};

}  // namespace oracle
