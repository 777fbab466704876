#include "zonedetect.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kSourceName[] = "zonedetect.cpp";
constexpr uint8_t kMagic[3] = {'P', 'L', 'B'};
constexpr int32_t kTrailerSize = 20;
constexpr int32_t kFixedHeaderSize = 7;
constexpr uint32_t kReferenceBase = 256;  // String lengths from here on are references.
constexpr uint32_t kMaxReferencedLength = 256;
constexpr uint32_t kMaxRingPoints = 1000000;
constexpr uint8_t kStringMask = 0x80;
constexpr uint32_t kRingShift = 3;  // Rings are tested this many longitude units further west.

// A lookup decodes at most this many bytes of rings for each byte of content, then its scan
// ends as at a broken ring. No honest database comes near it (each ring is read at most once),
// but a hostile one could point every entry of a long table at one long ring and hold the
// worker thread for hours; with the limit its cost stays proportional to its size.
constexpr uint64_t kRingBytesPerContentByte = 64;

// A lookup collects at most this many rings, then its scan ends as where memory is short. An
// honest point lies in a handful; a hostile table could otherwise multiply its own size into
// lists that no device has the memory for.
constexpr size_t kMaxHits = 4096;

// --- Numbers -----------------------------------------------------------------------------

// A position in the content and the end that no read may pass.
struct Cursor {
    const uint8_t* next;
    const uint8_t* end;
};

// Reads an unsigned varint; groups at bit 32 or above are dropped. False, with the cursor
// moved, when it starts at or runs past the end.
inline bool ReadUnsigned(Cursor* cursor, uint32_t* value) {
    const uint8_t* next = cursor->next;
    const uint8_t* const end = cursor->end;
    uint32_t result = 0;
    for (unsigned shift = 0; next < end; shift += 7) {
        const uint8_t byte = *next++;
        if (shift < 32) result |= uint32_t{byte & 0x7Fu} << shift;
        if ((byte & 0x80u) == 0) {
            cursor->next = next;
            *value = result;
            return true;
        }
        if (shift > 32) shift -= 7;  // Stays beyond 32 however long the number is.
    }
    return false;
}

// Reads a signed varint: sign in bit 0, magnitude above it.
inline bool ReadSigned(Cursor* cursor, int32_t* value) {
    uint32_t raw;
    if (!ReadUnsigned(cursor, &raw)) return false;
    const auto magnitude = static_cast<int32_t>(raw >> 1);
    *value = (raw & 1u) != 0 ? -magnitude : magnitude;
    return true;
}

// Sums in a database wrap as 32-bit two's complement; signed overflow never happens.
inline int32_t WrappingAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Truncation toward zero that clamps and turns NaN into 0, as float casts alone do not.
inline int32_t TruncateToInt32(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483648.0f) return INT32_MAX;
    if (value <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(value);
}

inline int64_t TruncateToInt64(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0f) return INT64_MAX;
    if (value <= -9223372036854775808.0f) return INT64_MIN;
    return static_cast<int64_t>(value);
}

// A precision outside 1 to 31 has no scale; callers answer without one.
inline bool HasScale(const ZDDatabase& db) {
    return db.precision >= 1 && db.precision <= 31;
}

inline float Scale(const ZDDatabase& db) {
    return static_cast<float>(int32_t{1} << (db.precision - 1));
}

inline int32_t LatitudeUnits(float degrees, float scale) {
    return TruncateToInt32(degrees / 90.0f * scale);
}

inline int32_t LongitudeUnits(float degrees, float scale) {
    return TruncateToInt32(degrees / 180.0f * scale);
}

inline Cursor CursorAt(const ZDDatabase& db, uint32_t position) {
    const auto length = static_cast<uint32_t>(db.length);
    return {db.mapping + std::min(position, length), db.mapping + length};
}

inline uint32_t PositionOf(const ZDDatabase& db, const Cursor& cursor) {
    return static_cast<uint32_t>(cursor.next - db.mapping);
}

// --- Opening -----------------------------------------------------------------------------

bool MapFile(const char* path, ZDDatabase* db) {
    db->fd = open(path, O_RDONLY | O_CLOEXEC);
    if (db->fd < 0) return false;
    const off_t size = lseek(db->fd, 0, SEEK_END);
    // Lengths are signed 32-bit numbers: a file of 2 GiB or more is refused like a broken one.
    if (size <= kTrailerSize || size > INT32_MAX) return false;
    db->length = static_cast<int32_t>(size) - kTrailerSize;
    if (lseek(db->fd, 0, SEEK_SET) != 0) return false;
    void* mapping = mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, db->fd, 0);
    if (mapping == MAP_FAILED) return false;
    db->mapping = static_cast<const uint8_t*>(mapping);
    db->checksum = db->mapping + db->length;
    return true;
}

bool ParseHeader(ZDDatabase* db) {
    if (db->length < kFixedHeaderSize) return false;
    if (std::memcmp(db->mapping, kMagic, sizeof kMagic) != 0) return false;
    db->tableType = db->mapping[3];
    db->version = db->mapping[4];
    db->precision = db->mapping[5];
    const uint8_t fieldCount = db->mapping[6];

    // One slot more than needed: an empty array must not look like a failed allocation.
    db->fieldNames = static_cast<char**>(std::calloc(fieldCount + size_t{1}, sizeof(char*)));
    if (db->fieldNames == nullptr) return false;
    db->fieldCount = fieldCount;

    uint32_t position = kFixedHeaderSize;
    for (int i = 0; i < fieldCount; ++i)
        db->fieldNames[i] = ZDParseString(db, &position);
    db->notice = ZDParseString(db, &position);
    if (db->notice == nullptr) return false;

    Cursor cursor = CursorAt(*db, position);
    uint32_t boxTableSize;
    uint32_t metadataSize;
    uint32_t polygonDataSize;
    if (!ReadUnsigned(&cursor, &boxTableSize) || !ReadUnsigned(&cursor, &metadataSize) ||
        !ReadUnsigned(&cursor, &polygonDataSize)) {
        return false;
    }
    db->boxTableOffset = PositionOf(*db, cursor);
    db->metadataOffset = db->boxTableOffset + boxTableSize;
    db->polygonDataOffset = db->metadataOffset + metadataSize;
    return db->polygonDataOffset + polygonDataSize == static_cast<uint32_t>(db->length);
}

// --- Rings -------------------------------------------------------------------------------

struct Point {
    int32_t lat;
    int32_t lon;
};

// Quadrants around the target, counted counterclockwise: north-east 0, north-west 1,
// south-west 2, south-east 3.
inline int QuadrantOf(const Point& point, const Point& target) {
    if (point.lat >= target.lat) return point.lon >= target.lon ? 0 : 1;
    return point.lon < target.lon ? 2 : 3;
}

// The line through an oblique edge: lat = slope * lon + intercept, in single precision.
struct EdgeLine {
    float slope;
    float intercept;

    EdgeLine(const Point& from, const Point& to)
        : slope(static_cast<float>(int64_t{to.lat} - from.lat) /
                static_cast<float>(int64_t{to.lon} - from.lon)),
          intercept(static_cast<float>(to.lat) - slope * static_cast<float>(to.lon)) {}

    int32_t LongitudeAt(int32_t lat) const {
        return TruncateToInt32((static_cast<float>(lat) - intercept) / slope);
    }
};

inline bool LiesBetween(int32_t value, int32_t a, int32_t b) {
    return value >= std::min(a, b) && value <= std::max(a, b);
}

// Squared distance in latitude units from the target to the edge's perpendicular foot where
// that lies within the edge, else to the edge's end `to`.
uint64_t SquaredDistance(const Point& from, const Point& to, const Point& target) {
    const auto targetLat = static_cast<float>(target.lat);
    const auto targetLon = static_cast<float>(target.lon);
    float footLat;
    float footLon;
    if (from.lon == to.lon) {
        footLat = targetLat;
        footLon = static_cast<float>(to.lon);
    } else if (from.lat == to.lat) {
        footLat = static_cast<float>(to.lat);
        footLon = targetLon;
    } else {
        const EdgeLine line(from, to);
        const float s = targetLon + line.slope * targetLat;
        const float m = 1.0f + line.slope * line.slope;
        footLon = (s - line.slope * line.intercept) / m;
        footLat = (line.intercept + line.slope * s) / m;
    }
    int64_t deltaLat = int64_t{to.lat} - target.lat;
    int64_t deltaLon = int64_t{to.lon} - target.lon;
    if (LiesBetween(TruncateToInt32(footLat), to.lat, from.lat) &&
        LiesBetween(TruncateToInt32(footLon), to.lon, from.lon)) {
        deltaLat = TruncateToInt64(footLat - targetLat);
        deltaLon = TruncateToInt64(footLon - targetLon);
    }
    // Unsigned, so that far points wrap instead of overflowing.
    const auto lat = static_cast<uint64_t>(deltaLat);
    const auto lon = static_cast<uint64_t>(deltaLon);
    return lat * lat + 4 * (lon * lon);
}

// Classifies `target` against the ring at `cursor`: one of ZDLookupInZone,
// ZDLookupInExcludedZone, ZDLookupBorderVertex, ZDLookupOnBorder, ZDLookupNotInZone, or
// ZDLookupParsingError when the ring cannot be read. Lowers `*minDistance` (null: not wanted)
// to the squared distance of the nearest edge visited. Leaves the cursor behind what was read.
ZDLookupResult ClassifyAgainstRing(Cursor* cursor, const Point& target, uint64_t* minDistance) {
    uint32_t count;
    if (!ReadUnsigned(cursor, &count) || count > kMaxRingPoints) return ZDLookupParsingError;

    const auto onBorder = [minDistance](ZDLookupResult result) {
        if (minDistance != nullptr) *minDistance = 0;
        return result;
    };
    Point point = {0, 0};
    Point first = {0, 0};
    Point previous = {0, 0};
    int previousQuadrant = 0;
    int64_t winding = 0;
    for (uint32_t visit = 0; visit <= count; ++visit) {
        if (visit < count) {
            int32_t deltaLat;
            int32_t deltaLon;
            if (!ReadSigned(cursor, &deltaLat) || !ReadSigned(cursor, &deltaLon)) {
                return ZDLookupParsingError;
            }
            point.lat = WrappingAdd(point.lat, deltaLat);
            point.lon = WrappingAdd(point.lon, deltaLon);
            if (visit == 0) first = point;
        } else {
            point = first;  // Closes the ring.
        }

        if (point.lat == target.lat && point.lon == target.lon) {
            return onBorder(ZDLookupBorderVertex);
        }
        const int quadrant = QuadrantOf(point, target);
        if (visit > 0) {
            const int turn = (quadrant - previousQuadrant) & 3;
            if (turn == 1) {
                winding += 1;
            } else if (turn == 3) {
                winding -= 1;
            } else if (turn == 2) {
                // Opposite quadrants: the side on which the edge passes decides.
                const int32_t crossing = EdgeLine(previous, point).LongitudeAt(target.lat);
                if (crossing == target.lon) return onBorder(ZDLookupOnBorder);
                const bool southward = quadrant >= 2;
                winding += (target.lon > crossing) == southward ? 2 : -2;
            }
            if (minDistance != nullptr) {
                *minDistance = std::min(*minDistance, SquaredDistance(previous, point, target));
            }
        }
        previous = point;
        previousQuadrant = quadrant;
    }

    switch (winding) {
        case -4:
            return ZDLookupInZone;
        case 0:
            return ZDLookupNotInZone;
        case 4:
            return ZDLookupInExcludedZone;
        default:
            return onBorder(ZDLookupOnBorder);
    }
}

// --- Result list -------------------------------------------------------------------------

struct ResultList {
    ZDResult* entries;  // Room for count + 1.
    size_t count;       // Zone entries, without the end entry.
};

// False when the list cannot grow, or has grown beyond what any honest table holds at a point.
bool Append(const ZDDatabase& db, ZDLookupResult result, uint32_t recordOffset, ResultList* list) {
    if (list->count == kMaxHits) return false;
    auto* grown = static_cast<ZDResult*>(
            std::realloc(list->entries, (list->count + 2) * sizeof(ZDResult)));
    if (grown == nullptr) return false;
    list->entries = grown;
    grown[list->count++] = {result, recordOffset, db.fieldCount, db.fieldNames, nullptr};
    return true;
}

// Walks the bounding-box table and collects the rings that hold the target.
void ScanBoxTable(const ZDDatabase& db, const Point& target, uint64_t* minDistance,
                  ResultList* list) {
    const Point ringTarget = {target.lat,
                              WrappingAdd(target.lon, -static_cast<int32_t>(kRingShift))};
    uint64_t ringBytesLeft = kRingBytesPerContentByte * static_cast<uint64_t>(db.length);
    uint32_t recordOffset = 0;
    uint32_t polygonOffset = 0;
    Cursor cursor = CursorAt(db, db.boxTableOffset);
    while (PositionOf(db, cursor) < db.metadataOffset) {
        int32_t minLat;
        int32_t minLon;
        int32_t maxLat;
        int32_t maxLon;
        int32_t recordDelta;
        uint32_t polygonDelta;
        if (!ReadSigned(&cursor, &minLat) || !ReadSigned(&cursor, &minLon) ||
            !ReadSigned(&cursor, &maxLat) || !ReadSigned(&cursor, &maxLon) ||
            !ReadSigned(&cursor, &recordDelta) || !ReadUnsigned(&cursor, &polygonDelta)) {
            return;
        }
        if (minLat > target.lat) return;  // Sorted: no later box reaches down to the target.
        recordOffset += static_cast<uint32_t>(recordDelta);
        polygonOffset += polygonDelta;
        if (minLon > target.lon || maxLat < target.lat || maxLon < target.lon) continue;

        const uint32_t ringPosition = db.polygonDataOffset + polygonOffset;
        if (db.metadataOffset + recordOffset >= db.polygonDataOffset ||
            ringPosition >= static_cast<uint32_t>(db.length)) {
            continue;
        }
        Cursor ring = CursorAt(db, ringPosition);
        const ZDLookupResult result = ClassifyAgainstRing(&ring, ringTarget, minDistance);
        if (result == ZDLookupParsingError) return;
        if (result != ZDLookupNotInZone && !Append(db, result, recordOffset, list)) return;

        const uint64_t ringBytes = PositionOf(db, ring) - ringPosition;
        if (ringBytes > ringBytesLeft) return;
        ringBytesLeft -= ringBytes;
    }
}

// The classification of a zone from those of its rings, in list order: a border or vertex
// anywhere wins (the last one), else the point must lie in more outlines than holes or the
// reverse.
struct ZoneTally {
    int64_t net = 0;
    int32_t other = ZDLookupIgnore;

    void Add(int32_t result) {
        if (result == ZDLookupInZone) {
            ++net;
        } else if (result == ZDLookupInExcludedZone) {
            --net;
        } else {
            other = result;
        }
    }
    int32_t Result() const {
        if (other != ZDLookupIgnore) return other;
        return net != 0 ? ZDLookupInZone : ZDLookupIgnore;
    }
};

// Leaves one entry a zone, where its first ring stood, and drops the zones that the point is
// not in.
void MergeZones(ResultList* list) {
    ZDResult* const end = list->entries + list->count;
    for (ZDResult* first = list->entries; first != end; ++first) {
        if (first->result == ZDLookupIgnore) continue;
        ZoneTally tally;
        for (ZDResult* entry = first; entry != end; ++entry) {
            if (entry->recordOffset != first->recordOffset) continue;
            tally.Add(entry->result);
            entry->result = ZDLookupIgnore;
        }
        first->result = tally.Result();
        // Merged entries lie behind this one, so an entry to keep is never met again.
    }
    list->count = static_cast<size_t>(
            std::remove_if(list->entries, end,
                           [](const ZDResult& r) { return r.result == ZDLookupIgnore; }) -
            list->entries);
}

void AttachZoneStrings(const ZDDatabase& db, ResultList* list) {
    for (size_t i = 0; i < list->count; ++i) {
        ZDResult& entry = list->entries[i];
        // Slot 0 always exists, also where the database names no field; the other slots are
        // never filled and stay null.
        entry.fieldValues =
                static_cast<char**>(std::calloc(std::max<size_t>(db.fieldCount, 1), sizeof(char*)));
        if (entry.fieldValues == nullptr) continue;
        uint32_t position = db.metadataOffset + entry.recordOffset;
        entry.fieldValues[0] = ZDParseString(&db, &position);
    }
}

}  // namespace

// --- Interface ---------------------------------------------------------------------------

ZDDatabase* ZDOpenDatabase(const char* path) {
    auto* db = static_cast<ZDDatabase*>(std::calloc(1, sizeof(ZDDatabase)));
    if (db == nullptr) return nullptr;
    db->fd = -1;
    std::printf("%s %d , open file : %s \n", kSourceName, __LINE__, path);
    if (!MapFile(path, db) || !ParseHeader(db)) {
        ZDCloseDatabase(db);
        return nullptr;
    }
    return db;
}

void ZDCloseDatabase(ZDDatabase* db) {
    if (db == nullptr) return;
    if (db->fieldNames != nullptr) {
        for (int i = 0; i < db->fieldCount; ++i)
            std::free(db->fieldNames[i]);
        std::free(db->fieldNames);
    }
    std::free(db->notice);
    if (db->mapping != nullptr) {
        munmap(const_cast<uint8_t*>(db->mapping), static_cast<size_t>(db->length) + kTrailerSize);
    }
    if (db->fd >= 0) close(db->fd);
    std::free(db);
}

char* ZDParseString(const ZDDatabase* db, uint32_t* position) {
    Cursor cursor = CursorAt(*db, *position);
    uint32_t length;
    if (!ReadUnsigned(&cursor, &length)) return nullptr;
    *position = PositionOf(*db, cursor);
    const bool isReference = length >= kReferenceBase;
    if (isReference) {
        const uint32_t target = db->metadataOffset + (length - kReferenceBase);
        cursor = CursorAt(*db, target);
        if (!ReadUnsigned(&cursor, &length) || length > kMaxReferencedLength) return nullptr;
    }
    // A text that runs past the content is as unreadable as any other number out of range.
    if (length > static_cast<size_t>(cursor.end - cursor.next)) return nullptr;
    if (!isReference) *position += length;
    char* text = static_cast<char*>(std::malloc(size_t{length} + 1));
    if (text == nullptr) return nullptr;
    for (uint32_t i = 0; i < length; ++i) {
        text[i] = static_cast<char>(cursor.next[i] ^ kStringMask);
    }
    text[length] = '\0';
    return text;
}

unsigned int ZDgetDBVersion(const ZDDatabase* db) {
    return db->version;
}
uint8_t ZDGetTableType(const ZDDatabase* db) {
    return db->tableType;
}
const char* ZDGetNotice(const ZDDatabase* db) {
    return db->notice;
}
const uint8_t* ZDGetChecksum(const ZDDatabase* db) {
    return db->checksum;
}
const uint8_t* ZDGetMapping(const ZDDatabase* db) {
    return db->mapping;
}
int32_t ZDGetLength(const ZDDatabase* db) {
    return db->length;
}

ZDResult* ZDLookup(const ZDDatabase* db, float lat, float lon, float* safezone) {
    ResultList list = {static_cast<ZDResult*>(std::malloc(sizeof(ZDResult))), 0};
    if (list.entries == nullptr) return nullptr;

    float distance = 0.0f;
    if (HasScale(*db)) {
        const float scale = Scale(*db);
        const Point target = {LatitudeUnits(lat, scale), LongitudeUnits(lon, scale)};
        uint64_t minDistance = UINT64_MAX;
        ScanBoxTable(*db, target, safezone != nullptr ? &minDistance : nullptr, &list);
        MergeZones(&list);
        AttachZoneStrings(*db, &list);
        distance = sqrtf(static_cast<float>(minDistance)) * 90.0f / scale;
    }
    list.entries[list.count] = {ZDLookupEnd, 0, 0, nullptr, nullptr};
    if (safezone != nullptr) *safezone = distance;
    return list.entries;
}

void ZDFreeResults(ZDResult* results) {
    if (results == nullptr) return;
    for (ZDResult* entry = results; entry->result != ZDLookupEnd; ++entry) {
        if (entry->fieldValues == nullptr) continue;
        std::free(entry->fieldValues[0]);
        std::free(entry->fieldValues);
    }
    std::free(results);
}

const char* ZDLookupResultToString(int32_t result) {
    switch (result) {
        case ZDLookupIgnore:
            return "Ignore";
        case ZDLookupEnd:
            return "End";
        case ZDLookupParsingError:
            return "Parsing error";
        case ZDLookupNotInZone:
            return "Not in zone";
        case ZDLookupInZone:
            return "In zone";
        case ZDLookupInExcludedZone:
            return "In excluded zone";
        case ZDLookupBorderVertex:
            return "Target point is border vertex";
        case ZDLookupOnBorder:
            return "Target point is on border";
        default:
            return "Unknown";
    }
}

const char* GetEtcAreaTimezone(const ZDDatabase* db, float lon, float lat) {
    static constexpr char kError[] = "\"error:error input\"";
    static constexpr const char* kWest[] = {
            "\"Etc/GMT\"",    "\"Etc/GMT+1\"",  "\"Etc/GMT+2\"", "\"Etc/GMT+3\"", "\"Etc/GMT+4\"",
            "\"Etc/GMT+5\"",  "\"Etc/GMT+6\"",  "\"Etc/GMT+7\"", "\"Etc/GMT+8\"", "\"Etc/GMT+9\"",
            "\"Etc/GMT+10\"", "\"Etc/GMT+11\"", "\"Etc/GMT+12\""};
    static constexpr const char* kEast[] = {
            "\"Etc/GMT\"",    "\"Etc/GMT-1\"",  "\"Etc/GMT-2\"", "\"Etc/GMT-3\"", "\"Etc/GMT-4\"",
            "\"Etc/GMT-5\"",  "\"Etc/GMT-6\"",  "\"Etc/GMT-7\"", "\"Etc/GMT-8\"", "\"Etc/GMT-9\"",
            "\"Etc/GMT-10\"", "\"Etc/GMT-11\"", "\"Etc/GMT-12\""};
    constexpr int32_t kWorldEdge = 1048576;  // 90 or 180 degrees at precision 21.

    if (!HasScale(*db)) return kError;
    const float scale = Scale(*db);
    const int32_t lonUnits = LongitudeUnits(lon, scale);
    const int32_t latUnits = LatitudeUnits(lat, scale);
    if (latUnits < -kWorldEdge || latUnits > kWorldEdge) return kError;
    if (lonUnits < -kWorldEdge || lonUnits > kWorldEdge) return kError;

    // Band n begins at the odd multiple 2n - 1 of 7.5 degrees, a 24th of the world's half.
    const int32_t magnitude = lonUnits < 0 ? -lonUnits : lonUnits;
    int band = 0;
    while (band < 12 && magnitude >= (2 * (band + 1) - 1) * kWorldEdge / 24)
        ++band;
    return lonUnits < 0 ? kWest[band] : kEast[band];
}

void FaultHandler(const char* /*file*/, int /*line*/) {}
