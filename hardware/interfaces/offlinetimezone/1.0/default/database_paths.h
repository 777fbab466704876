// Paths of the two database files. The directory is a constant of the build: host and test builds
// may configure another one. Nothing changes it at run time.
#pragma once

#ifndef OFFLINETZ_DATABASE_DIR
#define OFFLINETZ_DATABASE_DIR "/data/offlinetz"
#endif

inline constexpr char kDatabaseDirectory[] = OFFLINETZ_DATABASE_DIR;
// The active file: verified, opened and read.
inline constexpr char kActiveDatabasePath[] = OFFLINETZ_DATABASE_DIR "/lastcombinedTimezone.bin";
// The backup file, which holds the latest download. Restores and injections copy it over the active
// file.
inline constexpr char kBackupDatabasePath[] =
        OFFLINETZ_DATABASE_DIR "/lastcombinedTimezonebackup.bin";
