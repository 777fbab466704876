// The commands of the host program. Each Add function declares a command, its options and the
// function that runs it. No file is touched before the command runs.
#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>

// The exit codes of the program.
enum ExitCode {
    kExitOk = 0,
    kExitFailed = 1,  // The command failed, or its answer is no.
    kExitUsage = 2,   // The command line, or a coordinate on it, is not valid.
    kExitWarned = 3,  // The command found warnings only.
};

// An argument that the command line's own checks accept is not valid. The program prints the
// message and exits with kExitUsage.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A command stores its exit code in `*exitCode` when it runs, and throws std::exception with a
// message for the user if it fails. `exitCode` must outlive `app`.
void AddLookupCommand(CLI::App* app, int* exitCode);
void AddVerifyCommand(CLI::App* app, int* exitCode);
void AddInspectCommand(CLI::App* app, int* exitCode);
void AddDiffCommand(CLI::App* app, int* exitCode);
void AddMapCommand(CLI::App* app, int* exitCode);
void AddCompileCommand(CLI::App* app, int* exitCode);
void AddServiceCommand(CLI::App* app, int* exitCode);
