#include <fmt/format.h>
#include <malloc.h>
#include <offlinetz.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "compiler/self_check.h"
#include "inputs.h"
#include "measure.h"
#include "peer.h"

namespace bench {

namespace {

constexpr size_t kPoints = 100000;
constexpr int kRounds = 5;
// Peers that differ at more than one in so many points do not do the same work.
constexpr size_t kPointsPerDifference = 1000;

class Reader : public Peer {
  public:
    Reader(const std::string& path, bool withDistance)
        : mDatabase(MapDatabase(path)), mWithDistance(withDistance) {}

    std::vector<std::string> ZonesAt(const Point& p) override {
        return offlinetz::ZonesAt(*mDatabase, p.lat, p.lon);
    }

    void Look(const Point& p) override {
        float distance;
        ZDFreeResults(ZDLookup(mDatabase.get(), p.lat, p.lon, mWithDistance ? &distance : nullptr));
    }

  private:
    offlinetz::DatabasePtr mDatabase;
    bool mWithDistance;
};

// The C library, asked for one point at a time.
class Library : public Peer {
  public:
    Library(const std::string& path, bool withRadius) : mWithRadius(withRadius) {
        if (offlinetz_open(path.c_str(), OFFLINETZ_SKIP_DIGEST | OFFLINETZ_MAP, &mDatabase) !=
            OFFLINETZ_OK) {
            const std::string message = offlinetz_message(mDatabase);
            offlinetz_close(mDatabase);
            throw std::runtime_error(message);
        }
    }
    ~Library() override { offlinetz_close(mDatabase); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    std::vector<std::string> ZonesAt(const Point& p) override {
        int32_t ids[8];
        const size_t count = offlinetz_find(mDatabase, static_cast<double>(p.lat),
                                            static_cast<double>(p.lon), ids, 8, nullptr, nullptr);
        std::vector<std::string> zones;
        for (size_t i = 0; i < count && ids[i] < offlinetz_zone_count(mDatabase) - 25; ++i)
            zones.emplace_back(offlinetz_zone_name(mDatabase, ids[i]));
        std::sort(zones.begin(), zones.end());
        return zones;
    }

    void Look(const Point& p) override {
        int32_t id;
        double radius;
        offlinetz_find(mDatabase, static_cast<double>(p.lat), static_cast<double>(p.lon), &id, 1,
                       nullptr, mWithRadius ? &radius : nullptr);
    }

  private:
    offlinetz_database* mDatabase = nullptr;
    bool mWithRadius;
};

// Places in AllPeers; kS2, the encoded index, only where this build has S2.
enum : size_t { kReader = 0, kLibrary = 2, kGeos = 4, kS2 = 5 };

std::vector<PeerKind> AllPeers(const std::string& directory) {
    const std::string path = WorldFile(directory);
    std::vector<PeerKind> peers = {
            {"reader", path, [path] { return std::make_shared<Reader>(path, false); }},
            {"reader, with a distance", path,
             [path] { return std::make_shared<Reader>(path, true); }},
            {"C library", path, [path] { return std::make_shared<Library>(path, false); }},
            {"C library, with a radius", path,
             [path] { return std::make_shared<Library>(path, true); }}};
    for (const auto& others : {GeosPeers(directory), S2Peers(directory)})
        peers.insert(peers.end(), others.begin(), others.end());
    return peers;
}

using PointSets = std::vector<std::pair<std::string, Points>>;  // With their names.

// A number of /proc/self/status, in bytes.
double StatusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes;
        if (word == name + ":" && status >> kilobytes) return 1024.0 * kilobytes;
    }
    throw std::runtime_error("/proc/self/status has no " + name);
}

struct LoadCost {
    double milliseconds;  // Until the first answer.
    double resident;      // Bytes more that are resident after a pass over the points.
    double anonymous;     // Those of them that are not pages of files.
};

LoadCost CostOfLoading(const PeerKind& kind, const Points& points) {
    malloc_trim(0);  // Otherwise the peer would use free memory that this process already holds.
    const double resident = StatusBytes("VmRSS");
    const double anonymous = StatusBytes("RssAnon");
    const auto start = std::chrono::steady_clock::now();
    const std::shared_ptr<Peer> peer = kind.load();
    peer->Look(points[0]);
    const double milliseconds = NanosecondsSince(start) / 1e6;
    for (const Point& p : points)
        peer->Look(p);
    malloc_trim(0);  // Memory that only loading needed does not count.
    return {milliseconds, StatusBytes("VmRSS") - resident, StatusBytes("RssAnon") - anonymous};
}

// CostOfLoading in a child process. An exception ends the child.
LoadCost CostOfLoadingAlone(const PeerKind& kind, const Points& points) {
    void* shared = mmap(nullptr, sizeof(LoadCost), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::bad_alloc();
    const pid_t child = fork();
    if (child == 0) {
        *static_cast<LoadCost*>(shared) = CostOfLoading(kind, points);
        _exit(0);
    }
    int status = 1;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error(kind.name + ": loading it could not be measured");
    const LoadCost cost = *static_cast<LoadCost*>(shared);
    munmap(shared, sizeof(LoadCost));
    return cost;
}

std::string LoadTable(const std::vector<PeerKind>& peers, const Points& points) {
    std::string text =
            "| | file, MB | first answer, ms | resident, MB | of it anonymous, MB |\n"
            "|---|--:|--:|--:|--:|\n";
    for (const PeerKind& kind : peers) {
        // Reading the file puts it into the page cache.
        const auto size = static_cast<double>(offlinetz::ReadFileBytes(kind.file)->size());
        const LoadCost cost = CostOfLoadingAlone(kind, points);
        text += fmt::format("| {} | {:.1f} | {:.1f} | {:.1f} | {:.1f} |\n", kind.name, size / 1e6,
                            cost.milliseconds, cost.resident / 1e6, cost.anonymous / 1e6);
    }
    return text;
}

std::string TimesTable(const std::string& heading, const std::vector<PeerKind>& peers,
                       const std::vector<Times>& times) {
    // How many times as long another peer takes.
    const auto ratio = [&](size_t other, size_t own) {
        const bool isKnown = other != own && other < times.size();
        return isKnown ? fmt::format("{:.1f}", times[other].mean / times[own].mean) : "";
    };
    std::string text = fmt::format(
            "| {} | mean, µs | median, µs | 99 %, µs | GEOS takes | S2 takes |\n"
            "|---|--:|--:|--:|--:|--:|\n",
            heading);
    for (size_t i = 0; i < peers.size(); ++i) {
        text += fmt::format("| {} | {:.2f} | {:.2f} | {:.2f} | {} | {} |\n", peers[i].name,
                            times[i].mean / 1e3, times[i].median / 1e3, times[i].p99 / 1e3,
                            ratio(kGeos, i), ratio(kS2, i));
    }
    return text + "\n";
}

std::string DifferencesTable(const std::vector<PeerKind>& peers, const PointSets& sets) {
    std::string text = "| points with different zones |";
    for (const auto& set : sets)
        text += " " + set.first + " |";
    text += "\n|---|--:|--:|--:|\n";
    for (const auto& [a, b] : {std::pair<size_t, size_t>(kReader, kLibrary),
                               {kReader, kGeos},
                               {kReader, kS2},
                               {kGeos, kS2}}) {
        if (b >= peers.size()) continue;
        const std::string names = peers[a].name + " and " + peers[b].name;
        text += "| " + names + " |";
        for (const auto& [name, points] : sets) {
            size_t differences = 0;
            for (const Point& p : points)
                differences += peers[a].peer->ZonesAt(p) != peers[b].peer->ZonesAt(p);
            if (differences * kPointsPerDifference > points.size())
                throw std::runtime_error(fmt::format("{}: {} differ", names, differences));
            text += fmt::format(" {} |", differences);
        }
        text += "\n";
    }
    return text;
}

// How much the figures of a second measurement differ from those of the first.
std::string NoiseTable(const std::vector<Times>& first, const std::vector<Times>& second) {
    std::string text = "| | median | greatest |\n|---|--:|--:|\n";
    for (const auto& [name, figure] :
         {std::pair("mean", &Times::mean), {"median", &Times::median}, {"99 %", &Times::p99}}) {
        std::vector<double> changes;
        for (size_t i = 0; i < first.size(); ++i)
            changes.push_back(std::fabs(100.0 * (second[i].*figure / (first[i].*figure) - 1.0)));
        text += fmt::format("| {} | {:.1f} % | {:.1f} % |\n", name, Median(changes),
                            *std::max_element(changes.begin(), changes.end()));
    }
    return text;
}

}  // namespace

void MeasurePeers(const std::string& directory) {
    offlinetz::StartGeometry();
    PointSets sets = {{"points on land", LandPoints(*MapDatabase(WorldFile(directory)), kPoints)},
                      {"points on the sphere", SpherePoints(kPoints)},
                      {"cities", Cities()}};
    for (auto& [name, points] : sets)
        name = fmt::format("{} {}", fmt::group_digits(points.size()), name);
    std::vector<PeerKind> peers = AllPeers(directory);
    WriteText(directory + "/loading.md", LoadTable(peers, sets[0].second));
    for (PeerKind& kind : peers)
        kind.peer = kind.load();
    WriteText(directory + "/differences.md", DifferencesTable(peers, sets));

    std::vector<Times> measurements[2];
    std::string tables;
    for (std::vector<Times>& all : measurements) {
        tables.clear();
        for (const auto& set : sets) {
            std::vector<Candidate> candidates;
            for (const PeerKind& kind : peers) {
                candidates.push_back(
                        {[peer = kind.peer.get()](const Point& p) { peer->Look(p); }, &set.second});
            }
            const std::vector<Times> times = MeasureInTurns(candidates, kRounds);
            tables += TimesTable(set.first, peers, times);
            all.insert(all.end(), times.begin(), times.end());
        }
    }
    WriteText(directory + "/times.md", tables);
    WriteText(directory + "/noise.md", NoiseTable(measurements[0], measurements[1]));
}

}  // namespace bench
