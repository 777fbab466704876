// Transcripts: a file of steps, each followed by the lines that it must give.
//
//     == a section, run from a fresh start
//     > a step
//     a line of its outcome
//     [a name]
//
// A "[name]" stands for lines that several outcomes share. They are written once, after "= name",
// up to an empty line. Lines that start with '#' are comments.
//
// The test runs the steps, writes the file again in memory and compares the two texts. If
// UPDATE_TRANSCRIPTS is set in the environment, the new text replaces the file, for review.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using Words = std::vector<std::string>;

// A log message between bars, because many end with a blank.
inline std::string Bars(const std::string& message) {
    std::string line = "|";
    for (const char c : message)
        line += c == '\n' ? std::string("\\n") : std::string(1, c);
    return line + "|";
}

// Replaces each occurrence of the `shared` lines by "[name]".
inline void PutName(const std::string& name, const Words& shared, Words* lines) {
    for (auto at = lines->begin();;) {
        at = std::search(at, lines->end(), shared.begin(), shared.end());
        if (at == lines->end()) return;
        *at = "[" + name + "]";
        at = lines->erase(at + 1, at + static_cast<std::ptrdiff_t>(shared.size()));
    }
}

// Checks the transcript at `path`: calls `begin` at the start of each section, and for each step
// `run`, which returns the lines of its outcome.
inline void CheckTranscript(const std::string& path, const std::function<void()>& begin,
                            const std::function<Words(const std::string& step)>& run) {
    std::ifstream file(path);
    ASSERT_TRUE(file.is_open()) << path;
    std::string expected;
    std::string actual;
    std::vector<std::pair<std::string, Words>> shared;
    bool isShared = false;
    for (std::string line; std::getline(file, line);) {
        expected += line + "\n";
        isShared = isShared && !line.empty();
        if (isShared) shared.back().second.push_back(line);
        if (line.rfind("= ", 0) == 0) {
            shared.push_back({line.substr(2), {}});
            isShared = true;
        }
        if (isShared) {
            actual += line + "\n";
            continue;
        }
        const bool isStep = line.rfind("> ", 0) == 0;
        const bool isSection = line.rfind("== ", 0) == 0;
        if (!isStep && !isSection && !line.empty() && line[0] != '#') continue;
        actual += line + "\n";
        if (isSection) begin();
        if (!isStep) continue;
        Words lines = run(line.substr(2));
        for (const auto& [name, part] : shared)
            PutName(name, part, &lines);
        for (const std::string& outcome : lines)
            actual += outcome + "\n";
    }
    if (std::getenv("UPDATE_TRANSCRIPTS") != nullptr) std::ofstream(path) << actual;
    if (expected != actual) {
        const auto [here, there] =
                std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
        const auto excerpt = [](const std::string& text, std::ptrdiff_t position) {
            const size_t step = text.rfind("\n> ", static_cast<size_t>(position));
            return text.substr(step == std::string::npos ? 0 : step, 600);
        };
        ADD_FAILURE() << path << " differs; expected:" << excerpt(expected, here - expected.begin())
                      << "\nand got:" << excerpt(actual, there - actual.begin());
    }
    EXPECT_NE(std::string::npos, actual.find("\n> ")) << "no step in " << path;
}
