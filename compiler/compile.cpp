#include "compile.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "cut.h"
#include "grid.h"
#include "mend.h"
#include "output_file.h"
#include "simplify.h"
#include "source.h"

namespace offlinetz {

namespace {

constexpr char kFieldName[] = "TimezoneId";
constexpr uint64_t kSelfCheckSeed = 1;

std::string StoredIdentifier(const std::string& tzid, bool bare) {
    return bare ? tzid : '"' + tzid + '"';
}

void CountRings(const std::vector<ZoneRings>& zones, size_t* rings, size_t* points) {
    for (const ZoneRings& zone : zones) {
        *rings += zone.size();
        for (const GridRing& ring : zone)
            *points += ring.size();
    }
}

std::vector<ZoneRings> DrawOnGrid(const std::vector<std::string>& inputs, const Source& source,
                                  const Grid& grid, double tolerance,
                                  const CompileListener& listener, CompileSummary* summary) {
    std::vector<ZoneRings> zones;
    for (const Zone& zone : source.zones) {
        zones.push_back(SnapToGrid(zone.area.get(), grid, &summary->snap));
    }
    MendOnGrid(&zones, [&](int round, size_t points) {
        summary->pointsAdded = points;
        listener.progress("mending", static_cast<size_t>(round), 0);
    });
    listener.progress("simplifying", 0, 0);
    summary->greatestSimplification = Simplify(&zones, grid, tolerance);
    summary->greatestRounding = grid.RoundingMetres(0);
    if (!IsClean(zones)) throw std::logic_error("simplified borders cross");
    CountRings(zones, &summary->rings, &summary->pointsOut);
    for (size_t i = 0; i < zones.size(); ++i) {
        if (zones[i].empty()) {
            throw InputError(fmt::format("{}: {} vanishes on a grid this coarse",
                                         fmt::join(inputs, ", "), source.zones[i].tzid));
        }
    }
    return zones;
}

}  // namespace

CompileSummary Compile(const CompileOptions& options, const CompileListener& listener) {
    if (!(options.toleranceMetres >= 0.0) || std::isinf(options.toleranceMetres)) {
        throw InputError("the tolerance is not a number of metres");
    }
    for (const std::string& input : options.inputs) {
        std::error_code ignored;
        if (std::filesystem::equivalent(input, options.output, ignored)) {
            throw InputError(options.output + ": is an input; it would be overwritten");
        }
    }
    CompileSummary summary;
    const Grid grid(options.precision);
    const Source source = ReadSource(options.inputs, listener.warn, listener.progress);
    summary.features = source.features;
    summary.seaFeatures = source.seaFeatures;
    summary.zones = source.zones.size();
    summary.pointsIn = source.points;

    std::vector<ZoneRings> zones =
            DrawOnGrid(options.inputs, source, grid, options.toleranceMetres, listener, &summary);

    listener.progress("cutting", 0, 0);
    DatabaseContent content;
    content.version = static_cast<uint8_t>(options.version);
    content.precision = options.precision;
    content.fieldNames = {kFieldName};
    content.notice = options.notice;
    for (size_t i = 0; i < zones.size(); ++i) {
        content.zones.push_back(StoredIdentifier(source.zones[i].tzid, options.bareIdentifiers));
        for (const GridRing& ring : zones[i]) {
            for (Piece& piece : CutRing(ring, options.maxRingPoints)) {
                summary.entryPoints += piece.ring.size();
                content.entries.push_back({static_cast<uint32_t>(i), std::move(piece)});
            }
        }
    }
    summary.entries = content.entries.size();

    const std::vector<uint8_t> bytes = EncodeDatabase(content, &summary.sizes);
    summary.fileSize = bytes.size();
    OutputFile output(options.output, bytes);
    if (options.selfCheckPoints > 0) {
        ZDDatabase* database = listener.open(output.TemporaryPath());
        if (database == nullptr) throw std::logic_error("the reader refuses the new database");
        summary.selfCheck = SelfCheck(source, database, grid, options.toleranceMetres,
                                      options.selfCheckPoints, kSelfCheckSeed, listener.progress);
        ZDCloseDatabase(database);
        if (!summary.selfCheck.failures.empty()) return summary;
    }
    output.Commit();
    return summary;
}

}  // namespace offlinetz
