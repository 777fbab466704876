// Where the device keeps the zone database. The directory is a build constant: a host or test
// build may place it elsewhere when it is configured, nothing can move it at run time.
#pragma once

#ifndef OFFLINETZ_DATABASE_DIR
#define OFFLINETZ_DATABASE_DIR "/data/offlinetz"
#endif

inline constexpr char kDatabaseDirectory[] = OFFLINETZ_DATABASE_DIR;
// The file that is verified, opened and read.
inline constexpr char kActiveDatabasePath[] = OFFLINETZ_DATABASE_DIR "/lastcombinedTimezone.bin";
// The latest download: the source of every restore and injection.
inline constexpr char kBackupDatabasePath[] =
        OFFLINETZ_DATABASE_DIR "/lastcombinedTimezonebackup.bin";
