// The whole way from boundary polygons to a database file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "database/encode.h"
#include "output_limit.h"
#include "self_check.h"
#include "snap.h"
#include "source.h"

namespace offlinetz {

// Measured (bench/RESULTS.md): fewer points a tile make lookups faster and the file larger.
constexpr size_t kDefaultMaxTilePoints = 350;

struct CompileOptions {
    std::vector<std::string> inputs;  // "-" is standard input.
    std::string output;               // "-" is standard output.
    std::string tzidProperty = "tzid";
    int version = 1;                               // 0 to 255.
    std::string notice;                            // Up to kMaxStringLength bytes.
    int precision = 21;                            // As Grid takes it; 21 fits the fallback at sea.
    double toleranceMetres = 20.0;                 // 0: keep every bend.
    size_t maxTilePoints = kDefaultMaxTilePoints;  // 0: keep rings whole.
    bool bareIdentifiers = false;                  // Without the double quotes at both ends.
    bool crossAntimeridian = false;                // See SourceOptions.
    bool skipBad = false;                          // Leave out what is bad in the inputs.
    uint64_t maxInputBytes = kDefaultMaxInputBytes;  // Of each input, unpacked.
    uint64_t maxOutputBytes = kDefaultMaxOutputBytes;
    size_t selfCheckPoints = 0;  // 0: no self-check.
};

struct CompileSummary {
    size_t features = 0;
    size_t seaFeatures = 0;
    LeftOut leftOut;
    size_t zones = 0;
    size_t pointsIn = 0;
    size_t rings = 0;      // After mending, before tiling.
    size_t pointsOut = 0;  // Of those rings.
    size_t tiles = 0;      // Boxes in the box table.
    size_t entries = 0;    // Of the box table.
    size_t entryPoints = 0;
    size_t pointsAdded = 0;  // By mending, where edges met.
    SnapCounts snap;
    double greatestSimplification = 0.0;  // Metres.
    double greatestRounding = 0.0;        // Metres, at the equator.
    SectionSizes sizes;
    size_t fileSize = 0;
    SelfCheckResult selfCheck;
};

struct CompileListener {
    std::function<void(const std::string& line)> warn;
    ProgressCallback progress;
};

// Compiles the inputs into the output file, which is replaced whole or not at all. A self-check
// that finds a failure leaves the old file too; the summary then lists it. Throws InputError with
// all that is bad in the input, or with the place where most zones overlap where the output would
// exceed its limit; std::exception's others for what the machine refuses. The same
// inputs and options give the same bytes.
CompileSummary Compile(const CompileOptions& options, const CompileListener& listener);

}  // namespace offlinetz
