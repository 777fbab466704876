// Opening, truncating and synchronising the files of the database directory, in which others may
// have put pipes, devices or directories under the names of the two databases.
#pragma once

#include <cstdio>

// A binary stream that reads `path`, or null, with errno set. Never waits for another process: what
// is neither a file nor a directory (which fails when it is read) is refused with ENODEV.
FILE* OpenForReading(const char* path);

// A binary stream that writes the file `path` from its start, or null, with errno set. Makes the
// file where there is none; what it holds stays until it is truncated. Refuses with ENODEV what is
// not a file: writing to a pipe whose reader has gone would end the process. Refuses with EINVAL
// another name of the file `kept`, which would be lost with it.
FILE* OpenForWriting(const char* path, const char* kept);

// Cuts the file behind a stream that was opened for writing to nothing. False when that fails, with
// errno set.
bool Truncate(FILE* file);

// Waits until the content of the file, or the entries of the directory, are on the storage medium.
// What cannot be opened or synchronised is passed over.
void Synchronise(const char* path);
