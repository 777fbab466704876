// Reader of the zone database: opening, point lookup, and the nautical fallback at sea.
//
// The bytes of a database are hostile until proved otherwise. Whatever they hold, no function
// here reads outside the file's content (the file less its 20-byte digest trailer, which the
// reader does not verify), raises an exception, or computes with undefined behaviour.
//
// An open handle is only read, but for what its first lookup remembers, so any number of threads
// may look points up in it at once; it must not be closed while one of them does. The format is
// described in docs/format.md.
#pragma once

#include <stdint.h>

#include "export.h"

struct ZDSpatialIndex;

#ifdef __cplusplus
extern "C" {
#endif

// Classification of a point against a ring or a zone.
typedef enum ZDLookupResult {
    ZDLookupIgnore = -3,
    ZDLookupEnd = -2,
    ZDLookupParsingError = -1,
    ZDLookupNotInZone = 0,
    ZDLookupInZone = 1,
    ZDLookupInExcludedZone = 2,
    ZDLookupBorderVertex = 3,
    ZDLookupOnBorder = 4,
} ZDLookupResult;

// An open database. Made by ZDOpenDatabase, released by ZDCloseDatabase, never changed between.
typedef struct ZDDatabase {
    int32_t fd;
    int32_t length;          // Content length in bytes: the file without its digest trailer.
    const uint8_t* mapping;  // The whole file, read-only.
    uint8_t tableType;
    uint8_t version;
    uint8_t precision;  // Coordinate scale 2^(precision - 1) units per 90/180 degrees.
    uint8_t fieldCount;
    char* notice;
    char** fieldNames;  // fieldCount entries; null where a name could not be decoded.
    uint32_t boxTableOffset;
    uint32_t metadataOffset;
    uint32_t polygonDataOffset;
    const uint8_t* checksum;  // The digest trailer, mapping + length.
    // What lookups remember of the box table, owned; null: they scan it. The first lookup fills it.
    struct ZDSpatialIndex* spatialIndex;
} ZDDatabase;

// One entry of a lookup's result list.
typedef struct ZDResult {
    int32_t result;         // A ZDLookupResult value.
    uint32_t recordOffset;  // Identifies the zone within its database.
    uint8_t fieldCount;
    char** fieldNames;   // Borrowed from the database.
    char** fieldValues;  // Owned; slot 0 holds the zone's first string. Array and slot may be null.
} ZDResult;

// Opens the database file at `path` (zero-terminated) and prints one line to standard output.
// Returns a handle that the caller releases with ZDCloseDatabase, or null when the file cannot
// be opened, mapped or parsed, or has 2 GiB or more; nothing stays held then.
OFFLINETZ_EXPORT ZDDatabase* ZDOpenDatabase(const char* path);

// Releases a handle and everything it owns; null is ignored. Result lists of the database must
// have been freed before.
OFFLINETZ_EXPORT void ZDCloseDatabase(ZDDatabase* db);

// Decodes the string at content position `*position` of `db` into a new zero-terminated text,
// which the caller frees, and moves `*position` past it (past the reference where the text is
// stored elsewhere). Returns null when it cannot be decoded: `*position` then stays where it was
// if the string's leading number could not be read, and stands right behind that number if the
// text lies outside the content. Internal to the reader.
char* ZDParseString(const ZDDatabase* db, uint32_t* position);

// Header fields of an open (non-null) database; pointers live as long as the handle.
OFFLINETZ_EXPORT unsigned int ZDgetDBVersion(const ZDDatabase* db);  // 0 to 255
OFFLINETZ_EXPORT uint8_t ZDGetTableType(const ZDDatabase* db);
OFFLINETZ_EXPORT const char* ZDGetNotice(const ZDDatabase* db);
OFFLINETZ_EXPORT const uint8_t* ZDGetChecksum(const ZDDatabase* db);  // SHA1HashSize bytes
OFFLINETZ_EXPORT const uint8_t* ZDGetMapping(const ZDDatabase* db);
OFFLINETZ_EXPORT int32_t ZDGetLength(const ZDDatabase* db);

// Finds the zones that contain the point `lat`, `lon` (degrees; any float, values outside the
// world included). Returns an array of one entry a zone, each ZDLookupInZone,
// ZDLookupBorderVertex or ZDLookupOnBorder, closed by an entry ZDLookupEnd; the caller releases
// it with ZDFreeResults before it closes the database. Returns null when memory is short;
// `*safezone` is then not written. Where `safezone` is not null it receives the distance in
// degrees to the nearest edge of the rings examined (a longitude degree counts as one latitude
// degree), 0 on a border. In a tiled database, within three quarters of that distance, less three
// units, no point has other zones: a device that moves need not ask again before it comes that far.
OFFLINETZ_EXPORT ZDResult* ZDLookup(const ZDDatabase* db, float lat, float lon, float* safezone);

// Releases a result list; null is ignored.
OFFLINETZ_EXPORT void ZDFreeResults(ZDResult* results);

// Names a classification in a constant text; "Unknown" outside -3 to 4.
OFFLINETZ_EXPORT const char* ZDLookupResultToString(int32_t result);

// Names the nautical zone of `lon` (degrees) in a constant text that carries a double-quote
// character at both ends, or "\"error:error input\"" for a point outside the world. The bands
// are those of precision 21; a precision outside 1 to 31 gives the error text.
OFFLINETZ_EXPORT const char* GetEtcAreaTimezone(const ZDDatabase* db, float lon, float lat);

// Assertion hook of the worker's internal checks: does nothing and returns.
OFFLINETZ_EXPORT void FaultHandler(const char* file, int line);

#ifdef __cplusplus
}
#endif
