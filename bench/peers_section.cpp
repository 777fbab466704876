#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "geos_peer.h"
#include "input_files.h"
#include "memory.h"
#include "reader.h"
#include "s2_peer.h"
#include "sections.h"
#include "timing.h"

namespace bench {

namespace {

constexpr size_t kPoints = 100000;
constexpr int kRounds = 5;
constexpr uint64_t kSphereSeed = 2;

struct Rival {
    std::string name;
    std::string file;
    std::function<std::unique_ptr<Peer>()> load;
    std::unique_ptr<Peer> peer;
};

struct PointSet {
    const char* name;
    std::vector<Point> points;
};

std::vector<Rival> Rivals(const std::string& directory) {
    const std::string tiled = DefaultWorldFile(directory);
    const std::string geos = GeosFile(directory);
    const std::string s2 = S2File(directory);
    const std::string zones = PolygonZonesFile(directory);
    std::vector<Rival> rivals;
    rivals.push_back({"reader", tiled, [=] { return LoadReader(tiled, false); }, nullptr});
    rivals.push_back(
            {"reader, with a distance", tiled, [=] { return LoadReader(tiled, true); }, nullptr});
    rivals.push_back({"GEOS", geos, [=] { return LoadGeos(geos, zones); }, nullptr});
    if (HasS2()) {
        rivals.push_back({"S2, encoded index", s2,
                          [=] { return LoadS2(S2Index::kEncoded, s2, zones); }, nullptr});
        rivals.push_back({"S2, decoded index", s2,
                          [=] { return LoadS2(S2Index::kDecoded, s2, zones); }, nullptr});
    }
    return rivals;
}

std::string LoadTable(const std::vector<Rival>& rivals, const std::vector<Point>& points) {
    std::string text =
            "| | file, MB | first answer, ms | resident, MB | of it anonymous, MB |\n"
            "|---|--:|--:|--:|--:|\n";
    for (const Rival& rival : rivals) {
        ReadFile(rival.file);  // Brings it into the page cache, which the system may have emptied.
        const LoadCost cost = CostOfLoading(rival.load, points);
        text += fmt::format("| {} | {:.1f} | {:.1f} | {:.1f} | {:.1f} |\n", rival.name,
                            static_cast<double>(std::filesystem::file_size(rival.file)) / 1e6,
                            cost.milliseconds, cost.resident / 1e6, cost.anonymous / 1e6);
    }
    return text;
}

// How many times as long as a candidate one of the others takes.
std::string Ratio(const std::vector<Rival>& rivals, const std::vector<Times>& times, size_t own,
                  const std::string& other) {
    for (size_t i = 0; i < rivals.size(); ++i) {
        if (rivals[i].name == other && i != own)
            return fmt::format("{:.1f}", times[i].mean / times[own].mean);
    }
    return "";
}

std::string TimesTable(const std::vector<Rival>& rivals, const PointSet& set) {
    std::vector<Candidate> candidates;
    candidates.reserve(rivals.size());
    for (const Rival& rival : rivals) {
        candidates.push_back(
                {[peer = rival.peer.get()](const Point& p) { peer->Look(p.lat, p.lon); },
                 &set.points});
    }
    const std::vector<Times> times = MeasureInTurns(candidates, kRounds);
    std::string text = fmt::format(
            "\n| {} {} | mean, µs | median, µs | 99 %, µs | GEOS takes | S2 takes |\n"
            "|---|--:|--:|--:|--:|--:|\n",
            fmt::group_digits(set.points.size()), set.name);
    for (size_t i = 0; i < rivals.size(); ++i) {
        text += fmt::format("| {} | {:.2f} | {:.2f} | {:.2f} | {} | {} |\n", rivals[i].name,
                            times[i].mean / 1e3, times[i].median / 1e3, times[i].p99 / 1e3,
                            Ratio(rivals, times, i, "GEOS"),
                            Ratio(rivals, times, i, "S2, encoded index"));
    }
    return text;
}

std::string DifferencesTable(const std::vector<Rival>& rivals, const std::vector<PointSet>& sets) {
    const std::vector<std::pair<std::string, std::string>> pairs = {
            {"reader", "GEOS"}, {"reader", "S2, encoded index"}, {"GEOS", "S2, encoded index"}};
    const auto find = [&](const std::string& name) -> Peer* {
        for (const Rival& rival : rivals) {
            if (rival.name == name) return rival.peer.get();
        }
        return nullptr;
    };
    std::string text = "| points whose zones differ |";
    for (const PointSet& set : sets)
        text += fmt::format(" {} {} |", fmt::group_digits(set.points.size()), set.name);
    text += "\n|---|--:|--:|--:|\n";
    for (const auto& [a, b] : pairs) {
        Peer* const first = find(a);
        Peer* const second = find(b);
        if (first == nullptr || second == nullptr) continue;
        text += fmt::format("| {} and {} |", a, b);
        for (const PointSet& set : sets) {
            size_t differences = 0;
            for (const Point& p : set.points) {
                if (first->ZonesAt(p.lat, p.lon) != second->ZonesAt(p.lat, p.lon)) ++differences;
            }
            text += fmt::format(" {} |", differences);
        }
        text += "\n";
    }
    return text;
}

}  // namespace

std::string PeersSection(const std::string& directory) {
    offlinetz::StartGeometry();
    std::vector<PointSet> sets;
    sets.push_back({"points on land",
                    LandPoints(OpenDatabase(DefaultWorldFile(directory)).get(), kPoints)});
    sets.push_back({"points on the sphere",
                    DrawPoints(kPoints, kSphereSeed, [](Random* r) { return r->OnSphere(); })});
    sets.push_back({"cities", Cities("/usr/share/libtimezonemap/ui/cities15000.txt")});

    std::vector<Rival> rivals = Rivals(directory);
    const std::string load = LoadTable(rivals, sets[0].points);
    for (Rival& rival : rivals)
        rival.peer = rival.load();
    const std::string differences = DifferencesTable(rivals, sets);
    std::string text =
            "## Beside GEOS and S2\n\n"
            "The reader has the tiled database, borders thinned within 20 m. Its peers have the "
            "polygons that the database was made from, whole: GEOS (an STR tree of their boxes, "
            "each polygon prepared) and S2 (a shape index that was made beforehand and is decoded "
            "where a query needs it, and the same one decoded once and kept; edges that bend on "
            "the sphere got points between, so that none is further than a metre off). Every "
            "answer holds the identifiers of all zones, and is made and freed within the time. "
            "The cities are those of Debian's libtimezonemap-data. The last two columns say how "
            "many times as long GEOS and S2 with the encoded index "
            "take on average.\n";
    if (!HasS2()) text += "\nS2 was not installed: it is missing below.\n";
    for (const PointSet& set : sets)
        text += TimesTable(rivals, set);
    text += "\nThat all answer the same question: so many points have other zones, beside "
            "borders that were thinned and rounded for the reader and not for its peers.\n\n" +
            differences;
    text += "\nLoading, each in a process of its own, from a file in the page cache: the time "
            "until "
            "the first answer, and what is resident more after a pass over the points on land. The "
            "reader and S2 map their files, whose pages the system may drop; GEOS reads well-known "
            "binary, which it has no index for. Pages of the program's own code count.\n\n" +
            load;
    return text;
}

}  // namespace bench
