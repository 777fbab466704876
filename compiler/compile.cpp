#include "compile.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "database/grid.h"
#include "database/open_database.h"
#include "database/output_file.h"
#include "database/text_rules.h"
#include "rebuild_rings.h"
#include "simplify.h"
#include "source.h"
#include "sphere_area.h"
#include "tile.h"

namespace offlinetz {

namespace {

constexpr char kFieldName[] = "TimezoneId";
constexpr uint64_t kSelfCheckSeed = 1;
constexpr uint64_t kBytesPerPoint = 4;  // About the size of a vertex in the file.
constexpr size_t kNamedZones = 5;       // The greatest number of zones that an error names.
constexpr size_t kNamedEdges = 10;      // The greatest number of edges that an error names.
constexpr size_t kProbedEdges = 500;    // The number of worst edges that the self-check looks at.

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

// Entries of one tile follow each other and share its box.
void CountEntries(const std::vector<TableEntry>& entries, CompileSummary* summary) {
    summary->entries = entries.size();
    for (size_t i = 0; i < entries.size(); ++i) {
        summary->entryPoints += entries[i].ring.size();
        if (i == 0 || entries[i].box.min != entries[i - 1].box.min) ++summary->tiles;
    }
}

// Removes zones that have no ring left on the grid. Throws InputError if there are any and
// `skipBad` is false, or if no zone remains.
void RemoveCollapsedZones(bool skipBad, const CompileListener& listener, Source* source,
                          std::vector<ZoneRings>* zones) {
    std::vector<std::string> errors;
    size_t kept = 0;
    for (size_t i = 0; i < zones->size(); ++i) {
        Zone& zone = source->zones[i];
        if ((*zones)[i].empty()) {
            errors.push_back(zone.where + ": its zone collapses on the grid");
            const double km2 = SquareKilometres(zone.area.get());
            ++source->leftOut.zones;
            source->leftOut.km2 += km2;
            if (skipBad) listener.warn(fmt::format("{}; left out, {:.2f} km2", errors.back(), km2));
        } else if (kept++ != i) {
            (*zones)[kept - 1] = std::move((*zones)[i]);
            source->zones[kept - 1] = std::move(zone);
        }
    }
    if ((!skipBad && !errors.empty()) || kept == 0) {
        throw InputError(errors, fmt::format("{} of {} zones cannot be kept on the grid{}",
                                             errors.size(), zones->size(),
                                             kept > 0 ? " (--skip-bad leaves them out)" : ""));
    }
    zones->resize(kept);
    source->zones.resize(kept);
}

// The error for a database that would become too large, which names the place and the zones there.
InputError DescribeLimit(const OutputLimitError& error, const std::vector<Zone>& zones,
                         const Grid& grid, uint64_t maxBytes) {
    std::string names;
    for (size_t i = 0; i < std::min(error.zones.size(), kNamedZones); ++i)
        names += (i == 0 ? "" : ", ") + zones[error.zones[i]].tzid;
    if (error.zones.size() > kNamedZones)
        names += fmt::format(" and {} more", error.zones.size() - kNamedZones);
    return InputError(fmt::format(
            "{}: the database would have more than {} bytes (--max-output raises the limit): too "
            "many borders cross, or lie beside or over each other, most of them near {:.4f} {:.4f} "
            "(latitude, longitude), of {} zones: {}",
            zones[error.zones.empty() ? 0 : error.zones.front()].where, maxBytes,
            grid.LatitudeDegrees(error.at.lat), grid.LongitudeDegrees(error.at.lon),
            error.zones.size(), names));
}

// The error for edges that exceed the greatest error, which names them.
InputError DescribeExcess(const Certificate& certificate, double limit,
                          const std::vector<Zone>& zones, const Grid& grid) {
    std::vector<std::string> lines;
    for (const CertifiedEdge& edge : certificate.worst) {
        if (edge.metres <= limit || lines.size() == kNamedEdges) break;
        lines.push_back(fmt::format("{}: an edge of {} at {:.6f} {:.6f} has an error of {:.1f} m",
                                    zones[edge.zone].where, zones[edge.zone].tzid,
                                    grid.LatitudeDegrees(edge.original.Lat()),
                                    grid.LongitudeDegrees(edge.original.Lon()),
                                    RoundedUp(edge.metres)));
    }
    return InputError(
            lines, fmt::format("the error would be {:.1f} m, and {} edges exceed {} m; a greater "
                               "--max-error permits that, --exceed-max-error writes the database "
                               "all the same",
                               RoundedUp(certificate.metres), certificate.exceeding, limit));
}

std::vector<ZoneRings> RingsOnGrid(const CompileOptions& options, const Grid& grid,
                                   const CompileListener& listener, Source* source,
                                   CompileSummary* summary) {
    const bool keepsAll = options.maxErrorMetres == 0.0;
    const double limit =
            keepsAll ? std::numeric_limits<double>::infinity() : options.maxErrorMetres;
    std::vector<ZoneRings> zones;
    Originals originals;
    std::vector<const GEOSGeometry*> areas;
    for (const Zone& zone : source->zones)
        areas.push_back(zone.area.get());
    const FilledHoles filledHoles = TinyFilledHoles(areas, grid);
    for (const Zone& zone : source->zones) {
        listener.progress("rounding", zones.size(), source->zones.size());
        zones.push_back(
                SnapToGrid(zone.area.get(), grid, filledHoles, limit, &summary->snap, &originals));
    }
    summary->pointsAdded = RebuildRings(&zones, listener.progress, &originals,
                                        options.maxOutputBytes / kBytesPerPoint);
    RemoveCollapsedZones(options.skipBad, listener, source, &zones);
    const std::vector<ZoneRings> noded = zones;
    listener.progress("simplifying", 0, 0);
    std::vector<MovedVertex> moved;
    if (!keepsAll) moved = Simplify(&zones, grid, limit, &originals);
    listener.progress("certifying", 0, 0);
    summary->certificate = Certify(noded, zones, moved, originals, grid, limit, kProbedEdges);
    double& metres = summary->certificate.metres;
    metres = std::max(metres, summary->snap.droppedMetres);
    if ((summary->certificate.exceeding > 0 || metres > limit) && !options.exceedMaxError)
        throw DescribeExcess(summary->certificate, limit, source->zones, grid);
    if (!MeetInVerticesOnly(zones)) throw std::logic_error("simplified borders cross");
    CountRings(zones, &summary->rings, &summary->pointsOut);
    return zones;
}

std::vector<TableEntry> MakeEntries(const CompileOptions& options, const Grid& grid,
                                    const CompileListener& listener, Source* source,
                                    CompileSummary* summary) {
    try {
        const std::vector<ZoneRings> zones = RingsOnGrid(options, grid, listener, source, summary);
        listener.progress("tiling", 0, 0);
        return TileWorld(zones, grid, options.maxTilePoints, listener.progress,
                         options.maxOutputBytes);
    } catch (const OutputLimitError& error) {
        throw DescribeLimit(error, source->zones, grid, options.maxOutputBytes);
    }
}

}  // namespace

CompileSummary Compile(const CompileOptions& options, const CompileListener& listener) {
    if (!(options.maxErrorMetres >= 0.0) || std::isinf(options.maxErrorMetres)) {
        throw InputError("the greatest error is not a number of metres");
    }
    if (options.notice.size() > kMaxStringLength) {
        throw InputError(fmt::format("the notice has {} bytes; the database holds up to {}",
                                     options.notice.size(), kMaxStringLength));
    }
    if (const char* fault = FaultOfNotice(options.notice)) {
        throw InputError(fmt::format("the notice {}", fault));
    }
    CheckOutputPath(options.output, options.inputs);
    CompileSummary summary;
    const Grid grid(options.precision);
    SourceOptions sourceOptions;
    sourceOptions.maxInputBytes = options.maxInputBytes;
    sourceOptions.maxTzidBytes =
            kMaxStringLength - StoredIdentifier("", options.bareIdentifiers).size();
    sourceOptions.tzidProperty = options.tzidProperty;
    sourceOptions.zones = options.zones;
    sourceOptions.crossAntimeridian = options.crossAntimeridian;
    sourceOptions.skipBad = options.skipBad;
    Source source = ReadSource(options.inputs, listener.warn, listener.progress, sourceOptions);
    DatabaseContent content;
    content.entries = MakeEntries(options, grid, listener, &source, &summary);
    CountEntries(content.entries, &summary);
    summary.features = source.features;
    summary.seaFeatures = source.seaFeatures;
    summary.otherFeatures = source.otherFeatures;
    summary.leftOut = source.leftOut;
    summary.zones = source.zones.size();
    summary.pointsIn = source.points;

    content.tableType =
            options.maxTilePoints == 0 ? zonedetect::kWholeRingsTable : zonedetect::kTiledTable;
    content.version = static_cast<uint8_t>(options.version);
    content.precision = options.precision;
    content.fieldNames = {kFieldName};
    content.notice = options.notice;
    for (const Zone& zone : source.zones)
        content.zones.push_back(StoredIdentifier(zone.tzid, options.bareIdentifiers));

    listener.progress("encoding", 0, 0);
    const std::vector<uint8_t> bytes = EncodeDatabase(content, &summary.sizes);
    summary.fileSize = bytes.size();
    if (bytes.size() > options.maxOutputBytes) {
        throw InputError(fmt::format("{}: would have {} bytes; --max-output raises the limit of {}",
                                     options.output, bytes.size(), options.maxOutputBytes));
    }
    if (options.selfCheckPoints > 0) {
        const DatabasePtr database(zonedetect::OpenBytes(bytes.data(), bytes.size(), nullptr));
        if (database == nullptr) throw std::logic_error("the reader refuses the new database");
        summary.selfCheck = SelfCheck(source, *database, grid, summary.certificate,
                                      options.selfCheckPoints, kSelfCheckSeed, listener.progress);
        if (!summary.selfCheck.failures.empty()) return summary;
    }
    WriteOutput(options.output, bytes);
    return summary;
}

}  // namespace offlinetz
