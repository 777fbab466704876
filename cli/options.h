// Validators of option values that the command-line library lacks, and the path of a default value.
// The validators have no description: the help text of an option states its range.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

// Accepts a decimal whole number from `least` to `greatest`, and also 0 if `orZero` is set. The
// library's own conversion wraps negative numbers around and reads 010 as 8.
CLI::Validator WholeNumber(uint64_t least, uint64_t greatest, bool orZero = false);

// Accepts a decimal number from `least` to `greatest`. The library's own range lets NaN through.
CLI::Validator Number(double least, double greatest);

// Refuses an empty path, such as the value of a shell variable that is not set.
CLI::Validator NamesFile();

// The absolute path of one of the program's own files. `relative` is its path from the directory of
// the program, so the file is found wherever the program was built, installed or moved to. Relative
// to the working directory if /proc is not available.
std::string BesideProgram(const std::string& relative);
