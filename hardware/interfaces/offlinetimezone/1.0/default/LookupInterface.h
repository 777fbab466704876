// The database manager: opens and closes the zone database of the process, answers points with the
// text that a client receives, verifies the database file, and restores it from its backup.
#pragma once

#include <cstdint>

#include "zonedetect.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

// Only the worker's thread may call the functions, except getDBVersion, which any thread may call.
// After the worker's thread has ended, WorkerThread::Close calls CloseDB. No function throws. They
// log with priority info and the tag "OfflinetimezoneInterface".
class LookupInterface {
  public:
    LookupInterface();

    // Opens the active database file. If that fails, no database is open; later answers say so.
    // Requires that PreOpenDB returned true and that no database is open.
    void OpenDB();

    // Closes the open database; does nothing if none is open.
    void CloseDB();

    // Returns the version of the open database (0 to 255), or 65535 if none is open. Never waits
    // for a verification, a copy or a lookup.
    int32_t getDBVersion();

    // Returns the answer for the point `lat`, `lon` (degrees): the joined identifiers of its zones,
    // the nautical zone if it has none, or a text with "error:". The answer is zero-terminated; the
    // caller frees it with free(). Returns null only if there is no memory for the answer.
    char* LookupTzId(float lat, float lon);

    // Verifies the active database file against its digest trailer. If the file is missing or
    // damaged, copies the backup over it once and verifies it again. Returns whether the active
    // file is good in the end. Requires that no database is open.
    bool PreOpenDB();

    // Copies the backup file over the active one. Returns false if that fails, as CopyFile does.
    // Requires that no database is open.
    bool InjectDB();

    // Copies the file `from` over the content of the file `to`. Returns true if every byte has been
    // written and has reached the storage medium. Otherwise `to` may be partly written; if `from`
    // cannot be read at all, or is the same file, the content of `to` is unchanged.
    bool CopyFile(const char* from, const char* to);

    // Writes the SHA-1 of the `length` bytes at `data` to the 20 bytes at `digest`. Returns 0, or
    // -1 if the digest fails (a null pointer).
    int sha1(const uint8_t* data, uint8_t* digest, uint32_t length);

  private:
    bool VerifyActiveFile();
    // Whether the digest trailer of the `size` bytes at `file` matches the content. `size` must be
    // greater than SHA1HashSize.
    bool CheckTrailer(const uint8_t* file, uint32_t size);

    int32_t mDebug;  // If nonzero, CheckTrailer logs the stored and the computed digest.
};

// Same as LookupTzId, for a database of the caller's own. `database` may be null: the answer is
// then that of no open database. `*safezone` receives the distance of ZDLookup in degrees; 0
// without a database or without memory for the lookup. Any thread may call.
char* LookupTzIdIn(const ZDDatabase* database, float lat, float lon, float* safezone);

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
