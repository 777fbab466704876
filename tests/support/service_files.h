// The two database files of the tests' own build of the service.
#pragma once

#define ACTIVE "offlinetz/lastcombinedTimezone.bin"
#define BACKUP "offlinetz/lastcombinedTimezonebackup.bin"

inline constexpr char kActive[] = ACTIVE;
inline constexpr char kBackup[] = BACKUP;
