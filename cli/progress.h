// Progress of long work, shown on a terminal only. Written here because Debian has no C++ library
// for it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "compiler/progress.h"

// Keeps one line on standard error up to date while it is a terminal; silent elsewhere.
class Progress {
  public:
    Progress();
    ~Progress();  // Clears the line.
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Shows how far `step` is: `done` of `all` parts, or `done` alone where `all` is 0.
    void Show(const char* step, size_t done, size_t all);

    // Calls Show. This object must outlive it.
    offlinetz::ProgressCallback Callback();

    // Prints a message (message.h) on a line of its own, terminal or not.
    void PrintMessage(const std::string& text);

  private:
    void Clear();

    bool mIsTerminal;
    std::string mShown;
};
