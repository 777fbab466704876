// Writes a file so that its path holds either all old or all new bytes at any time, also after a
// crash or a power failure. Or writes to standard output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace offlinetz {

// Checks that the result of long work can be written to `path` and does not overwrite one of the
// files `inputs`. Call it before the work. An input "-" is standard input. The path "-" is standard
// output and always passes.
//
// Throws std::invalid_argument if `path` is empty or names something other than a regular file,
// std::system_error if its directory cannot be written to, and std::runtime_error if it is the same
// file as an input, also through links.
void CheckOutputPath(const std::string& path, const std::vector<std::string>& inputs);

// Creates or replaces the file `path`: writes a temporary file in the same directory, synchronises
// it, and renames it. Symbolic links are followed. The new file has the old one's permissions and,
// if permitted, its owner. The path "-" is standard output.
//
// SIGHUP, SIGINT, SIGQUIT, SIGTERM and SIGXFSZ remove the temporary file before they end the
// process, unless the process handles or ignores them itself. Not thread-safe: one call at a time
// in a process.
//
// Throws std::invalid_argument if `path` is empty or names something other than a regular file, and
// std::system_error for all other failures. The old file then stays as it was, unless only the
// synchronisation of the directory failed: then the new file is in place.
void WriteOutput(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace offlinetz
