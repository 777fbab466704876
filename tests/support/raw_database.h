// Database files made section by section, valid or not.
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

// A database whose header and sections a test may set to any bytes.
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

    // Adds a ring of the stored coordinates, and its entry, which names the record at offset
    // `record`. Its bounding box is the ring's, widened by the reader's shift, if none is given.
    // Entries must be added in the order of the box table, by minimum latitude.
    void AddRing(uint32_t record, const offlinetz::GridRing& ring);
    void AddRing(uint32_t record, const offlinetz::GridRing& ring, const offlinetz::GridBox& box);
    // Adds an entry, with the record and the ring as differences to the entry before.
    void AddEntry(const offlinetz::GridBox& box, int32_t recordDelta, uint32_t ringDelta);
    // Adds a record and returns its offset in the section.
    uint32_t AddRecord(const std::string& text);

    Bytes Content() const;
    Bytes File() const;  // The content and its digest trailer.

  private:
    uint32_t mLastRecord = 0;
    uint32_t mLastPolygon = 0;
};

Bytes WithTrailer(Bytes content);

// A database of one zone of that name, from the equator and Greenwich to about 9 degrees north and
// 17 east. Points on the zone's edge pad it to at least `size` bytes.
Bytes SampleDatabase(const char* zone, uint8_t version, size_t size = 0);

void WriteFile(const std::string& path, const Bytes& bytes);
Bytes ReadFile(const std::string& path);

using offlinetz::DatabasePtr;

// Opens a database that keeps a copy of `file`. Null if the reader refuses it. The copy is a heap
// block of exactly the content, so a sanitizer reports each read beyond it, also of the trailer.
DatabasePtr OpenBytes(const Bytes& file);

// Degrees that the reader truncates to `units`. `degreesPerScale` is 90 for latitudes and 180 for
// longitudes.
float DegreesAtUnits(int32_t units, int precision, double degreesPerScale);
