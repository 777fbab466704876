// The exception for invalid input.
#pragma once

#include <exception>
#include <string>
#include <vector>

namespace offlinetz {

// The input cannot be compiled. Each line names one fault: file, feature and reason. The texts may
// quote foreign text as it is, so they are escaped before they are printed.
class InputError : public std::exception {
  public:
    explicit InputError(const std::string& line) : InputError(std::vector<std::string>{line}) {}
    explicit InputError(const std::vector<std::string>& lines, const std::string& conclusion = {})
        : mLines(lines), mConclusion(conclusion) {
        for (const std::string& line : mLines)
            mText += (mText.empty() ? "" : "\n") + line;
    }

    // All lines, joined by line breaks.
    const char* what() const noexcept override { return mText.c_str(); }
    // One line a fault; it may hold line breaks that it quotes.
    const std::vector<std::string>& Lines() const { return mLines; }
    // How much of the input is invalid, and what the user may do; empty if the lines say it all.
    const std::string& Conclusion() const { return mConclusion; }

  private:
    std::vector<std::string> mLines;
    std::string mConclusion;
    std::string mText;
};

// Throws an InputError of one line.
[[noreturn]] inline void ThrowInputError(const std::string& where, const std::string& reason) {
    throw InputError(where + ": " + reason);
}

}  // namespace offlinetz
