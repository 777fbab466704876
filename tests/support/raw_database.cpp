#include "raw_database.h"

#include <sha1.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "database/encode.h"

using offlinetz::GridBox;
using offlinetz::GridPoint;
using offlinetz::GridRing;

Bytes Unsigned(uint32_t value) {
    Bytes bytes;
    offlinetz::AppendUnsigned(value, &bytes);
    return bytes;
}

Bytes Signed(int32_t value) {
    Bytes bytes;
    offlinetz::AppendSigned(value, &bytes);
    return bytes;
}

Bytes String(const std::string& text) {
    Bytes bytes = Unsigned(static_cast<uint32_t>(text.size()));
    for (const char c : text)
        bytes.push_back(static_cast<uint8_t>(c ^ 0x80));
    return bytes;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

void RawDatabase::AddRing(uint32_t record, const GridRing& ring) {
    GridBox box = offlinetz::BoxOf(ring);
    box.max.lon += zonedetect::kRingShift;
    AddRing(record, ring, box);
}

void RawDatabase::AddRing(uint32_t record, const GridRing& ring, const GridBox& box) {
    const auto position = static_cast<uint32_t>(polygons.size());
    AddEntry(box, static_cast<int32_t>(record - mLastRecord), position - mLastPolygon);
    mLastRecord = record;
    mLastPolygon = position;
    polygons = std::move(polygons) + Unsigned(static_cast<uint32_t>(ring.size()));
    GridPoint previous;
    for (const GridPoint& p : ring) {
        polygons =
                std::move(polygons) + Signed(p.lat - previous.lat) + Signed(p.lon - previous.lon);
        previous = p;
    }
}

void RawDatabase::AddEntry(const GridBox& box, int32_t recordDelta, uint32_t ringDelta) {
    for (const int32_t number : {box.min.lat, box.min.lon, box.max.lat, box.max.lon, recordDelta})
        offlinetz::AppendSigned(number, &boxTable);
    offlinetz::AppendUnsigned(ringDelta, &boxTable);
}

uint32_t RawDatabase::AddRecord(const std::string& text) {
    const auto offset = static_cast<uint32_t>(metadata.size());
    metadata = metadata + String(text);
    return offset;
}

Bytes RawDatabase::Content() const {
    return magic + Bytes{tableType, version, precision, fieldCount} + headerStrings +
           Unsigned(static_cast<uint32_t>(boxTable.size())) +
           Unsigned(static_cast<uint32_t>(metadata.size())) +
           Unsigned(static_cast<uint32_t>(polygons.size())) + boxTable + metadata + polygons;
}

Bytes RawDatabase::File() const {
    return WithTrailer(Content());
}

Bytes WithTrailer(Bytes content) {
    SHA1Context context;
    Bytes digest(SHA1HashSize);
    SHA1Reset(&context);
    SHA1Input(&context, content.data(), static_cast<uint32_t>(content.size()));
    SHA1Result(&context, digest.data());
    return std::move(content) + digest;
}

Bytes SampleDatabase(const char* zone, uint8_t version, size_t size) {
    RawDatabase raw;
    raw.version = version;
    GridRing ring = {{0, 0}};
    for (int32_t lat = 1; lat < static_cast<int32_t>(size / 2); ++lat)
        ring.push_back({lat, 0});
    ring.insert(ring.end(), {{100000, 0}, {100000, 100000}, {0, 100000}});
    raw.AddRing(raw.AddRecord(zone), ring);
    return raw.File();
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) std::abort();
}

Bytes ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

DatabasePtr OpenBytes(const Bytes& file) {
    constexpr size_t kTrailer = 20;
    const size_t length = file.size() < kTrailer ? 0 : file.size() - kTrailer;
    const auto content = std::make_shared<const Bytes>(
            file.begin(), file.begin() + static_cast<ptrdiff_t>(length));
    return {zonedetect::OpenBytes(content->data(), file.size(), nullptr), {content}};
}

float DegreesAtUnits(int32_t units, int precision, double degreesPerScale) {
    const double inner = units + (units > 0 ? 0.5 : (units < 0 ? -0.5 : 0.0));
    return static_cast<float>(inner * degreesPerScale / std::ldexp(1.0, precision - 1));
}
