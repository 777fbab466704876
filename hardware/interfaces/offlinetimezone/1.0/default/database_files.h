// Opens, truncates and synchronises the files of the database directory. Other programs may have
// put pipes, devices or directories in the place of the two database files: no function here waits
// for another process. Any thread may call.
#pragma once

#include <cstdio>

// Opens `path` as a binary stream for reading. Returns null with errno set on failure; errno is
// ENODEV for anything but a regular file or a directory (reading a directory fails). The caller
// closes the stream.
FILE* OpenForReading(const char* path);

// Opens the file `path` as a binary stream for writing from its start. Creates the file if it does
// not exist; does not truncate it. Returns null with errno set on failure. The caller closes the
// stream. Fails with ENODEV for anything but a regular file: writing to a pipe that has lost its
// reader would end the process. Fails with EINVAL if `path` is another name of the file `kept`,
// whose content would then be overwritten.
FILE* OpenForWriting(const char* path, const char* kept);

// Truncates the file of a stream that was opened for writing to 0 bytes. Returns false with errno
// set on failure.
bool Truncate(FILE* file);

// Waits until the content of a file, or the entries of a directory, have reached the storage
// medium. Ignores errors.
void Synchronise(const char* path);
