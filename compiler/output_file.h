// Writes a file so that its path holds the old or the new bytes, never half of them; or to standard
// output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace offlinetz {

// Checks, before long work on the files `inputs`, that its result can be written to the file
// `path`. Throws std::invalid_argument where `path` is empty or names something that is no regular
// file, std::system_error where its directory cannot be written to, and std::runtime_error where it
// is one of the inputs, also by way of a link of either kind. An input "-" is standard input. The
// output "-", standard output, is always right.
void CheckOutputPath(const std::string& path, const std::vector<std::string>& inputs);

// A new version of the file `path`, written beside it, synchronised, and put in its place by
// Commit, with the old one's permissions; destroyed before that, it leaves the old file as it was.
// A link is followed; a path that is anything but a regular file is refused. One at a time in a
// process: a hangup, interrupt or termination signal removes its temporary file before it ends the
// process. All functions throw std::system_error, and std::invalid_argument for a path that can be
// no file's.
//
// The path "-" is standard output, which gets the bytes with Commit. Until then they are in memory.
class OutputFile {
  public:
    OutputFile(const std::string& path, const std::vector<uint8_t>& bytes);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Where the new bytes are until Commit.
    const std::string& TemporaryPath() const { return mTemporaryPath; }

    void Commit();

  private:
    void OpenMemory(const std::vector<uint8_t>& bytes);
    void Remove();
    void Forget();

    std::string mPath;
    int mMemory = -1;            // For standard output: a file in memory with the bytes.
    std::string mTemporaryPath;  // Empty once committed.
};

}  // namespace offlinetz
