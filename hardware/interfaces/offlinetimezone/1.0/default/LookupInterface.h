// The database manager: opens and closes the one zone database of the process, answers
// coordinates with the text that a client receives, and keeps the database file usable.
#pragma once

#include <cstdint>

#include "zonedetect.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

// All operations belong to one thread, the worker's, except getDBVersion, which any thread may
// call. Every operation logs with priority info and the tag "OfflinetimezoneInterface".
class LookupInterface {
  public:
    LookupInterface();

    // Opens the active database file; the outcome shows in later answers only. Requires that
    // PreOpenDB returned true and that no database is open.
    void OpenDB();

    // Closes the open database; does nothing when none is open.
    void CloseDB();

    // The open database's version (0 to 255), or 65535 when none is open. Never waits for a
    // verification, a copy or a lookup.
    int32_t getDBVersion();

    // Answers a point (degrees) with the joined identifiers of its zones, the nautical zone
    // at sea, or an "error:" text. The answer is zero-terminated, allocated with malloc and
    // owned by the caller; null only when not even the answer could be allocated.
    char* LookupTzId(float lat, float lon);

    // Verifies the active database file against its digest trailer; restores it once from the
    // backup when it is missing or damaged. True when the active file is good in the end.
    bool PreOpenDB();

    // Copies the backup file over the active one. Requires that no database is open.
    bool InjectDB();

    // Copies the file `from` over the file `to`, in place. True when every byte has been
    // written and has reached the storage medium; otherwise `to` may be partly written.
    bool CopyFile(const char* from, const char* to);

    // Writes the SHA-1 of `length` bytes at `data` to the 20 bytes at `digest`. Returns 0, or
    // -1 on a digest error.
    int sha1(const uint8_t* data, uint8_t* digest, uint32_t length);

  private:
    bool VerifyActiveFile();
    bool CheckTrailer(const uint8_t* file, uint32_t size);

    int32_t mDebug;  // Nonzero: log the stored and the computed digest.
};

// The text for a point of `database` (which may be null: no database), as LookupTzId gives it
// for the open one; `*safezone` receives the distance in degrees to the nearest border
// examined, or 0 without a database or list. For programs that look into a database of their
// own.
char* LookupTzIdIn(const ZDDatabase* database, float lat, float lon, float* safezone);

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
