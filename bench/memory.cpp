#include "memory.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "timing.h"

namespace bench {

namespace {

// A row of the kernel's account of this process, in bytes.
double StatusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes;
        if (word == name + ":" && status >> kilobytes) return 1024.0 * kilobytes;
    }
    throw std::runtime_error("/proc/self/status has no " + name);
}

LoadCost Load(const std::function<std::unique_ptr<Peer>()>& load,
              const std::vector<Point>& points) {
    malloc_trim(0);  // What this process kept from its parent must not serve the peer.
    const double resident = StatusBytes("VmRSS");
    const double anonymous = StatusBytes("RssAnon");
    LoadCost cost;
    const auto start = std::chrono::steady_clock::now();
    const std::unique_ptr<Peer> peer = load();
    peer->Look(points[0].lat, points[0].lon);
    cost.milliseconds = NanosecondsSince(start) / 1e6;
    for (const Point& p : points)
        peer->Look(p.lat, p.lon);
    malloc_trim(0);  // What loading freed is not needed.
    cost.resident = StatusBytes("VmRSS") - resident;
    cost.anonymous = StatusBytes("RssAnon") - anonymous;
    return cost;
}

}  // namespace

LoadCost CostOfLoading(const std::function<std::unique_ptr<Peer>()>& load,
                       const std::vector<Point>& points) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no child process");
    if (child == 0) {
        try {
            const LoadCost cost = Load(load, points);
            _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s\n", failure.what());
            _exit(1);
        }
    }
    close(ends[1]);
    LoadCost cost;
    const bool isWhole = read(ends[0], &cost, sizeof cost) == sizeof cost;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    if (!isWhole) throw std::runtime_error("a child process could not measure");
    return cost;
}

}  // namespace bench
