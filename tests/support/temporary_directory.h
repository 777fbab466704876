// A directory of a test's own, made the working directory while it lives.
#pragma once

#include <string>

class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& Path() const { return mPath; }

  private:
    std::string mPath;
    std::string mPrevious;
};
