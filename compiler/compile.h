// Compiles boundary polygons to a database file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "certify.h"
#include "database/encode.h"
#include "output_limit.h"
#include "self_check.h"
#include "snap.h"
#include "source.h"
#include "zone_choice.h"

namespace offlinetz {

// Fewer points a tile make lookups faster and the file larger; bench/RESULTS.md has measurements.
constexpr size_t kDefaultMaxTilePoints = 350;

// That of the world database.
constexpr double kDefaultMaxErrorMetres = 40.0;

struct CompileOptions {
    std::vector<std::string> inputs;    // "-" is standard input.
    std::string output;                 // "-" is standard output.
    std::string tzidProperty = "tzid";  // See SourceOptions.
    ZoneChoice zones;
    int version = 1;     // The database's version byte, 0 to 255.
    std::string notice;  // Up to kMaxStringLength bytes; see FaultOfNotice.
    int precision = zonedetect::kNauticalPrecision;  // Of Grid.
    // No answer may differ further from a source border, in metres. 0: keep every point, whatever
    // the error.
    double maxErrorMetres = kDefaultMaxErrorMetres;
    bool exceedMaxError = false;  // Write the database even if some edges exceed that.
    size_t maxTilePoints = kDefaultMaxTilePoints;  // Of TileWorld; 0 keeps rings whole.
    bool bareIdentifiers = false;    // Store identifiers without double quotes at both ends.
    bool crossAntimeridian = false;  // See SourceOptions.
    bool skipBad = false;            // Leave out invalid features, polygons and zones.
    uint64_t maxInputBytes = kDefaultMaxInputBytes;  // Of each input, unpacked.
    uint64_t maxOutputBytes = kDefaultMaxOutputBytes;
    size_t selfCheckPoints = 0;  // The number of lookups to compare; 0: no self-check.
};

struct CompileSummary {
    size_t features = 0;       // As in Source.
    size_t seaFeatures = 0;    // As in Source.
    size_t otherFeatures = 0;  // As in Source.
    LeftOut leftOut;
    size_t zones = 0;
    size_t pointsIn = 0;   // Of the features' rings.
    size_t rings = 0;      // Simplified, before tiling.
    size_t pointsOut = 0;  // Of those rings.
    size_t tiles = 0;
    size_t entries = 0;      // Of the box table.
    size_t entryPoints = 0;  // Of the entries' rings.
    size_t pointsAdded = 0;  // By snap rounding, where edges met.
    SnapCounts snap;
    Certificate certificate;
    SectionSizes sizes;   // In bytes.
    size_t fileSize = 0;  // In bytes.
    SelfCheckResult selfCheck;
};

// Both functions are called on the thread that compiles.
struct CompileListener {
    std::function<void(const std::string& line)> warn;  // One line a note; it may quote any text.
    ProgressCallback progress;
};

// Compiles the inputs into the output file, which is replaced as a whole or not at all. The same
// inputs and options give the same bytes. StartGeometry must have been called.
//
// Failures leave the old file as it is:
// - If the self-check finds a failure, the summary lists it and the function returns.
// - InputError: options or inputs are invalid, with all faults; or the output would exceed its
//   limit, with the place where most zones overlap.
// - Other std::exceptions: the machine refuses memory, files or space.
//
// The world, 183 MB of GeoJSON, takes about 100 s and 1.1 GB of memory on two cores.
CompileSummary Compile(const CompileOptions& options, const CompileListener& listener);

}  // namespace offlinetz
