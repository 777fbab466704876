// Files that belong to the program, wherever it was built, installed or moved to.
#pragma once

#include <string>

// The path of a file of the program's own, by its path relative to the program's directory.
std::string BesideProgram(const std::string& relative);
