// offlinetz: the host program. Its commands look up points in a zone database, compile, check and
// compare databases, and act as a client of the service.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "commands.h"
#include "message.h"

namespace {

// If the caller closed a standard stream, opens /dev/null in its place, in the wrong direction. So
// reading or writing the stream fails, and no file opened later gets its descriptor.
void GuardStandardStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) >= 0) continue;
        if (open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) return;
    }
}

// Whether an argument starts with "-." and is a coordinate such as "-.5", or two in one word.
bool IsNegativeFraction(const std::string& argument) {
    return argument.size() > 2 && argument.compare(0, 2, "-.") == 0 &&
           std::isdigit(static_cast<unsigned char>(argument[2])) != 0 &&
           argument.find_first_not_of("0123456789.+-eE,; ") == std::string::npos;
}

// Whether an argument begins as an instant does, unlike a latitude: 2026-
bool IsInstant(const std::string& argument) {
    return argument == "now" || (argument.size() > 4 && argument[4] == '-' &&
                                 argument.find_first_not_of("0123456789") == 4);
}

// The arguments as the parser needs them, the last one first. The parser recognises a negative
// number by a digit after the minus, so "-.5" becomes "-0.5". It takes the instant of --time behind
// "=" only, because it cannot tell it from a latitude, and an empty one for none at all.
std::vector<std::string> Arguments(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const auto lookup = std::find(arguments.begin(), arguments.end(), "lookup");
    for (auto argument = lookup; argument != arguments.end(); ++argument) {
        if (IsNegativeFraction(*argument)) argument->insert(1, "0");
        if (*argument == "--time=") *argument += ' ';
        const auto next = std::next(argument);
        if (*argument == "--time" && next != arguments.end() && IsInstant(*next)) {
            *argument += "=" + *next;
            arguments.erase(next);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

// The text that follows an error of the command line. If a subcommand is missing, this is the help
// of the program or of `service`; otherwise it is a hint.
std::string Advice(const CLI::App& app) {
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().front();
    const bool lacksCommand = command->get_require_subcommand_min() > 0;
    return lacksCommand ? command->help() : "Run with --help for more information.\n";
}

int Run(int argc, char** argv) {
    CLI::App app{
            "Finds the time zone of a point without a network, and makes and checks its databases.",
            "offlinetz"};
    app.require_subcommand(1);
    app.footer(
            "'offlinetz COMMAND --help' shows the options of a command.\n"
            "\n"
            "Exit code: 0 done; 1 failed, or the answer is no; 2 the command line is not\n"
            "valid; 3 'verify' found warnings only, or 'service update' left the service\n"
            "without a database.\n"
            "\n"
            "Examples:\n"
            "  $ offlinetz lookup 48.8566 2.3522\n"
            "  $ offlinetz compile zones.geojson -o new.bin\n"
            "  $ offlinetz verify new.bin");
    app.set_version_flag("--version", "offlinetz " OFFLINETZ_VERSION);
    int exitCode = kExitOk;
    AddLookupCommand(&app, &exitCode);
    AddVerifyCommand(&app, &exitCode);
    AddInspectCommand(&app, &exitCode);
    AddDiffCommand(&app, &exitCode);
    AddMapCommand(&app, &exitCode);
    AddCompileCommand(&app, &exitCode);
    AddServiceCommand(&app, &exitCode);
    try {
        app.parse(Arguments(argc, argv));
    } catch (const CLI::Success& request) {
        app.exit(request);  // Prints the help or the version that was asked for.
    } catch (const CLI::ParseError& error) {
        PrintMessage(error.what());
        std::fputs(Advice(app).c_str(), stderr);
        return kExitUsage;
    } catch (const UsageError& error) {
        PrintMessage(error.what());
        return kExitUsage;
    }
    return exitCode;
}

// Memory may be short even for the options of the commands.
int RunSafely(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::bad_alloc&) {
        PrintMessage("out of memory");
    } catch (const std::exception& error) {
        PrintMessage(error.what());
    }
    return kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
    GuardStandardStreams();
    const int exitCode = RunSafely(argc, argv);
    // Output that could not be written is a failure.
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return exitCode;
    PrintMessage("standard output cannot be written");
    return exitCode == kExitOk ? kExitFailed : exitCode;
}
