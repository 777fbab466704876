// Shows the progress of long work on a terminal. Written here because Debian packages no C++
// library for it.
#pragma once

#include <cstddef>
#include <string>

#include "compiler/progress_callback.h"

// Keeps one line on standard error up to date if that is a terminal, else shows nothing. Not
// thread-safe.
class Progress {
  public:
    Progress();
    ~Progress();  // Clears the line.
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Shows the progress of `step`: `done` of `all` parts, or only `done` if `all` is 0.
    void Show(const char* step, size_t done, size_t all);

    // A callback that calls Show. This object must outlive it.
    offlinetz::ProgressCallback Callback();

    // Prints a message (message.h) on a line of its own, on a terminal or not.
    void PrintMessage(const std::string& text);

  private:
    void Clear();

    bool mIsTerminal;
    std::string mShown;  // The line that is on the terminal.
};
