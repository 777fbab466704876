// Writes a file so that its path holds the old or the new bytes, never a part of them; or writes to
// standard output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace offlinetz {

// Checks, before long work on the files `inputs`, that its result can be written to `path`. Throws
// std::invalid_argument where `path` is empty or names something that is not a regular file,
// std::system_error where its directory cannot be written to, and std::runtime_error where it is
// one of the inputs, by whatever link. An input "-" is standard input. The output "-", standard
// output, always passes.
void CheckOutputPath(const std::string& path, const std::vector<std::string>& inputs);

// Replaces the file `path`, or makes it: writes a temporary file beside it, synchronises that, and
// renames it, with the old file's permissions. On failure the old file stays as it was. A symbolic
// link is followed; what is not a regular file is refused. The path "-" is standard output.
//
// One call at a time in a process: a hangup, interrupt or termination signal removes the temporary
// file before it ends the process. Throws std::system_error, and std::invalid_argument for a path
// that cannot name a regular file.
void WriteOutput(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace offlinetz
