// Database files put together by hand, well formed or not.
#pragma once

#include <zonedetect.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "database/grid.h"
#include "database/open_database.h"

using Bytes = std::vector<uint8_t>;

Bytes Unsigned(uint32_t value);
Bytes Signed(int32_t value);
Bytes String(const std::string& text);
Bytes operator+(Bytes a, const Bytes& b);

// Sections as raw bytes; the header's sizes follow them unless given.
struct RawDatabase {
    Bytes magic = {'P', 'L', 'B'};
    uint8_t tableType = 0;
    uint8_t version = 7;
    uint8_t precision = 21;
    uint8_t fieldCount = 1;
    Bytes headerStrings = String("TimezoneId") + String("notice");
    Bytes boxTable;
    Bytes metadata;
    Bytes polygons;

    // Adds a ring under the record at `record` with stored coordinates as given; its box is
    // widened by the reader's shift unless `box` is given. Entries must come sorted.
    void AddRing(uint32_t record, const offlinetz::GridRing& ring);
    void AddRing(uint32_t record, const offlinetz::GridRing& ring, const offlinetz::GridBox& box);
    // Adds a record and returns its offset.
    uint32_t AddRecord(const std::string& text);

    Bytes Content() const;
    Bytes File() const;  // Content and a digest trailer that holds.

  private:
    uint32_t mLastRecord = 0;
    uint32_t mLastPolygon = 0;
};

Bytes WithTrailer(Bytes content);

void WriteFile(const std::string& path, const Bytes& bytes);
Bytes ReadFile(const std::string& path);

using offlinetz::DatabasePtr;

// Opens a database, which keeps a copy of `file`; null where the reader refuses it. The copy is a
// heap block of exactly the content: a sanitizer sees a read beyond it, the trailer included.
DatabasePtr OpenBytes(const Bytes& file);

// A float that the reader truncates to `units` (of 90 or 180 degrees to `scale`).
float DegreesAtUnits(int32_t units, int precision, double degreesPerScale);
