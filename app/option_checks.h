// Checks of option values that the command line's own leave open.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

// Takes a whole decimal number from `least` to `greatest`. The library's own conversion lets a
// negative number wrap round, and reads 010 as 8.
CLI::Validator WholeNumber(uint64_t least, uint64_t greatest);

// Refuses an empty path, such as that of a shell variable that is not set.
CLI::Validator NamesFile();
