// The exception for bad input.
#pragma once

#include <exception>
#include <string>
#include <vector>

namespace offlinetz {

// Bad input: file, feature and reason, one line for each fault.
class InputError : public std::exception {
  public:
    explicit InputError(const std::string& line) : InputError(std::vector<std::string>{line}) {}
    explicit InputError(const std::vector<std::string>& lines) : mLines(lines) {
        for (const std::string& line : mLines)
            mText += (mText.empty() ? "" : "\n") + line;
    }
    const char* what() const noexcept override { return mText.c_str(); }
    const std::vector<std::string>& Lines() const { return mLines; }

  private:
    std::vector<std::string> mLines;  // A line may quote a text that has line breaks.
    std::string mText;
};

}  // namespace offlinetz
