// offlinetz: looks points up in a zone database, checks one, compiles one, and is a client of the
// service.
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app{"Answers which time zone contains a point, without any network.", "offlinetz"};
    app.require_subcommand(1);
    int exitCode = kExitOk;
    AddLookupCommand(&app, &exitCode);
    AddVerifyCommand(&app, &exitCode);
    AddCompileCommand(&app, &exitCode);
    AddServiceCommand(&app, &exitCode);
    try {
        app.parse(argc, argv);
        // A report that did not get out is not done.
        if (std::fflush(stdout) != 0) throw std::runtime_error("standard output cannot be written");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitOk : kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "offlinetz: %s\n", error.what());
        return kExitFailed;
    }
    return exitCode;
}
