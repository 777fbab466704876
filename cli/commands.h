// The commands of the host program. Each Add function declares a command and its options on the
// command line and says what to run; nothing touches a file before the command runs.
#pragma once

#include <CLI/CLI.hpp>

// What the program returns to the shell.
enum ExitCode {
    kExitOk = 0,
    kExitFailed = 1,  // The work could not be done, or its answer is no.
    kExitUsage = 2,   // The command line or a coordinate on it makes no sense.
    kExitWarned = 3,  // Done, and something was found that may be meant so.
};

// Each command stores its exit code in `*exitCode` when it runs.
void AddLookupCommand(CLI::App* app, int* exitCode);
void AddVerifyCommand(CLI::App* app, int* exitCode);
void AddInspectCommand(CLI::App* app, int* exitCode);
void AddDiffCommand(CLI::App* app, int* exitCode);
void AddMapCommand(CLI::App* app, int* exitCode);
void AddCompileCommand(CLI::App* app, int* exitCode);
void AddServiceCommand(CLI::App* app, int* exitCode);
