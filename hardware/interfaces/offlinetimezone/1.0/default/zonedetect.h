// Reader of the zone database: opens a file, looks points up, and names nautical zones.
//
// The functions marked OFFLINETZ_EXPORT are the public C functions. ZDParseString is internal.
// No function takes a null handle, except ZDCloseDatabase.
//
// Hostile bytes. Whatever bytes a database holds, no function here reads outside the content (the
// file without its 20-byte digest trailer), throws, or has undefined behaviour. The reader does not
// verify the trailer.
//
// Threads. Every function may be called from any thread. An open handle is read-only, except for
// the spatial index that its first lookup builds, so any number of threads may look up points in
// one handle at the same time. No thread may use a handle while or after it is closed.
//
// Ownership. The caller closes each handle with ZDCloseDatabase and frees each result list with
// ZDFreeResults. All other texts and pointers belong to the handle or are constants.
//
// docs/format.md describes the file format.
#pragma once

#include <stdint.h>

#include "export.h"

struct ZDSpatialIndex;

#ifdef __cplusplus
extern "C" {
#endif

// Position of a point relative to a ring or a zone.
typedef enum ZDLookupResult {
    ZDLookupIgnore = -3,         // Internal: the entry was merged into another one.
    ZDLookupEnd = -2,            // The last entry of a result list.
    ZDLookupParsingError = -1,   // The ring cannot be decoded.
    ZDLookupNotInZone = 0,       // Outside the ring.
    ZDLookupInZone = 1,          // Inside an exterior ring; inside the zone.
    ZDLookupInExcludedZone = 2,  // Inside a hole.
    ZDLookupBorderVertex = 3,    // On a vertex.
    ZDLookupOnBorder = 4,        // On an edge, or the winding number is not -1, 0 or 1.
} ZDLookupResult;

// An open database. ZDOpenDatabase makes it and ZDCloseDatabase frees it; no field changes between.
typedef struct ZDDatabase {
    int32_t fd;              // The open file, or -1 if the handle borrows bytes from its caller.
    int32_t length;          // Length of the content in bytes (the file without its trailer).
    const uint8_t* mapping;  // The whole file, read-only.
    uint8_t tableType;
    uint8_t version;
    uint8_t precision;  // 2^(precision - 1) units are 90 degrees of latitude, 180 of longitude.
    uint8_t fieldCount;
    char* notice;
    char** fieldNames;  // fieldCount names; one that could not be decoded or copied is null.
    uint32_t boxTableOffset;
    uint32_t metadataOffset;
    uint32_t polygonDataOffset;
    const uint8_t* checksum;  // The digest trailer, at mapping + length.
    // Owned. Null if there was no memory for it: lookups then scan the box table. The first lookup
    // builds the index inside.
    struct ZDSpatialIndex* spatialIndex;
} ZDDatabase;

// One entry of a result list. The end entry has null pointers.
typedef struct ZDResult {
    int32_t result;         // A ZDLookupResult.
    uint32_t recordOffset;  // Identifies the zone within its database.
    uint8_t fieldCount;
    char** fieldNames;  // Borrowed from the database.
    // Owned by the result list: fieldCount slots, at least one. Slot 0 holds the first string of
    // the zone's record, or null if it cannot be decoded. The other slots are null.
    char** fieldValues;
} ZDResult;

// Opens the database file at `path` (zero-terminated) and maps it read-only. Prints one line to
// standard output. Does not wait for another process, even if `path` is a pipe.
// Returns a handle, which the caller closes with ZDCloseDatabase. Returns null and keeps nothing
// open if the file cannot be opened, mapped or decoded, if it has 2 GiB or more, or without memory.
// The file must keep its length until the handle is closed: reading behind the end of a truncated
// file raises SIGBUS.
OFFLINETZ_EXPORT ZDDatabase* ZDOpenDatabase(const char* path);

// Closes a handle and frees everything it owns; ignores null. Result lists borrow from the handle:
// free them first.
OFFLINETZ_EXPORT void ZDCloseDatabase(ZDDatabase* db);

// Internal. Decodes the string at content offset `*position` into a new zero-terminated text, which
// the caller frees with free(). Advances `*position` past the string; if the string is a reference
// to another place, past the reference.
// Returns null if the string cannot be decoded or without memory. If the leading number cannot be
// read, `*position` is unchanged. If the text lies outside the content, `*position` is behind the
// leading number.
char* ZDParseString(const ZDDatabase* db, uint32_t* position);

// Header fields of an open database. Pointers are valid until the handle is closed.
OFFLINETZ_EXPORT unsigned int ZDgetDBVersion(const ZDDatabase* db);   // 0 to 255
OFFLINETZ_EXPORT uint8_t ZDGetTableType(const ZDDatabase* db);        // 0 to 255
OFFLINETZ_EXPORT const char* ZDGetNotice(const ZDDatabase* db);       // Never null.
OFFLINETZ_EXPORT const uint8_t* ZDGetChecksum(const ZDDatabase* db);  // SHA1HashSize bytes
OFFLINETZ_EXPORT const uint8_t* ZDGetMapping(const ZDDatabase* db);   // The whole file.
OFFLINETZ_EXPORT int32_t ZDGetLength(const ZDDatabase* db);           // Bytes of the content.

// Finds the zones that contain the point `lat`, `lon` in degrees. Any float is accepted: values
// outside the world are clamped to the range of 32-bit units, and NaN counts as 0.
//
// Returns an array with one entry per zone, whose result is ZDLookupInZone, ZDLookupBorderVertex or
// ZDLookupOnBorder, and then an end entry (ZDLookupEnd). The caller frees it with ZDFreeResults
// before it closes the database. Returns null without memory; `*safezone` is then not written.
// A ring that cannot be decoded, or a spent limit of reader/read_budget.h, ends the search: the
// array then holds what was found until then. A database whose precision is outside 1 to 31 has no
// zones and gives a distance of 0.
//
// If `safezone` is not null it receives the distance in degrees from the point to the nearest edge
// of the rings examined. A degree of longitude counts as much as a degree of latitude. The distance
// is 0 on a border, and 2^32 units of latitude if no edge was examined. It is not a bound: single
// precision and the way in which it is measured may make it larger than the true distance, beside a
// corner and beside an edge that runs nearly along a meridian or parallel by any factor.
OFFLINETZ_EXPORT ZDResult* ZDLookup(const ZDDatabase* db, float lat, float lon, float* safezone);

// Frees a result list; ignores null.
OFFLINETZ_EXPORT void ZDFreeResults(ZDResult* results);

// Returns the name of a ZDLookupResult as a constant text; "Unknown" for other numbers.
OFFLINETZ_EXPORT const char* ZDLookupResultToString(int32_t result);

// Returns the nautical zone at `lon`, `lat` (degrees) as a constant text with a double quote at
// both ends. Returns "\"error:error input\"" for a point outside the world and for a database whose
// precision is outside 1 to 31. The bands are computed in units of precision 21, so they are right
// for databases of that precision only.
OFFLINETZ_EXPORT const char* GetEtcAreaTimezone(const ZDDatabase* db, float lon, float lat);

// Does nothing. The worker calls it when an internal check fails; a debugger may stop here.
OFFLINETZ_EXPORT void FaultHandler(const char* file, int line);

#ifdef __cplusplus
}
#endif
