// Checks and defaults of option values that the command-line library does not have.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

// Takes a whole decimal number from `least` to `greatest`. The library's own conversion lets a
// negative number wrap round, and reads 010 as 8.
CLI::Validator WholeNumber(uint64_t least, uint64_t greatest);

// Refuses an empty path, such as that of a shell variable that is not set.
CLI::Validator NamesFile();

// The path of a file of the program's own, from its path relative to the program's directory: it
// holds wherever the program was built, installed or moved to.
std::string BesideProgram(const std::string& relative);
