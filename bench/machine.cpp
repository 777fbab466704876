#include "machine.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <geos_c.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>

namespace bench {

namespace {

// What follows the separator in the first line of a file that begins with `name`.
std::string Entry(const char* path, const std::string& name, char separator) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(name, 0) != 0) continue;
        const size_t start = line.find_first_not_of(" \t\"", line.find(separator) + 1);
        return line.substr(start, line.find_last_not_of(" \"") + 1 - start);
    }
    return "unknown";
}

const char* Compiler() {
#ifdef __clang__
    return "clang++ " __clang_version__;
#else
    return "g++ " __VERSION__;
#endif
}

}  // namespace

std::string DescribeMachine() {
    utsname system = {};
    uname(&system);
    const double kilobytes = std::strtod(Entry("/proc/meminfo", "MemTotal", ':').c_str(), nullptr);
    const double load = std::strtod(Entry("/proc/loadavg", "", '\0').c_str(), nullptr);
    return fmt::format(
            "- Processor: {}, {} cores; {:.0f} GB of memory\n"
            "- System: {}, {} {} {}; programs at work as this began (load average): {:.1f}\n"
            "- Compiler: {}, build type {}\n"
            "- Peers: GEOS {}; {}\n"
            "- Date: {:%Y-%m-%d}\n",
            Entry("/proc/cpuinfo", "model name", ':'), sysconf(_SC_NPROCESSORS_ONLN),
            kilobytes / 1048576.0, Entry("/etc/os-release", "PRETTY_NAME", '='), system.sysname,
            system.release, system.machine, load, Compiler(), OFFLINETZ_BUILD_TYPE, GEOSversion(),
            OFFLINETZ_S2_NAME, fmt::gmtime(std::time(nullptr)));
}

}  // namespace bench
