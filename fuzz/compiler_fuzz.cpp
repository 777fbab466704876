// Any input of the compiler. Either the compiler refuses it with an error that names the place, and
// writes nothing. Or the database verifies, opens, passes the self-check against the input, and
// answers like the reference reader, and the library's distances to borders are those by brute
// force. The bytes describe polygons close to each other, or are a file.
#include <platform/log.h>

#include <cmath>

#include "choices.h"
#include "compare_borders.h"
#include "compare_library.h"
#include "compare_readers.h"
#include "compiler/compile.h"
#include "temporary_directory.h"

namespace {

constexpr char kInput[] = "input.geojson";
constexpr char kOutput[] = "output.bin";

struct Position {
    double lat;
    double lon;
};

template <typename Item>
std::string List(uint32_t count, const Item& item) {
    std::string text = item();
    for (; count > 1; --count)
        text += ',' + item();
    return '[' + text + ']';
}

// Polygons whose corners lie mostly on a coarse lattice, so that their borders meet and cross.
std::string Describe(Choices* c, std::vector<Position>* corners) {
    static constexpr Position kOrigins[] = {{0, 0}, {10, 20}, {0, 179.99}, {45, -180}, {89.99, 0}};
    static constexpr double kSteps[] = {0.01, 0.0001, 0.1, 1, 0.00001, 3};  // Degrees.
    static constexpr const char* kNames[] = {"A/B", "C/D", "E/F", "Etc/GMT+1", "", "\\u00e9"};
    const Position origin = kOrigins[c->Below(5)];
    const double step = kSteps[c->Below(6)];
    const auto point = [&] {
        const uint8_t at = c->Byte();
        const double off = c->OneIn(4) ? c->Byte() / 256.0 : 0.0;
        const Position& p = corners->emplace_back(
                Position{origin.lat + (at / 16 + off) * step, origin.lon + at % 16 * step});
        return '[' + std::to_string(p.lon) + ',' + std::to_string(p.lat) + ']';
    };
    const auto ring = [&] {
        const std::string open = List(c->Below(16) + 3, point);
        return open.substr(0, open.size() - 1) + ',' + open.substr(1, open.find(']')) + ']';
    };
    const auto polygon = [&] { return List(c->OneIn(4) ? c->Below(3) + 1 : 1, ring); };
    const auto feature = [&] {
        return std::string(R"({"type":"Feature","properties":{"tzid":")") + kNames[c->Below(6)] +
               R"("},"geometry":{"type":"MultiPolygon","coordinates":)" +
               List(c->OneIn(4) ? c->Below(4) + 1 : 1, polygon) + "}}";
    };
    return R"({"type":"FeatureCollection","features":)" + List(c->Below(6) + 1, feature) + '}';
}

}  // namespace

// GEOS leaks the parts of an overlay that it abandons.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libgeos";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TemporaryDirectory directory;
    static const bool isStarted = (offlinetz::StartGeometry(), platform::DropLog(), true);
    static_cast<void>(isStarted);
    Choices choices(data, size);
    offlinetz::CompileOptions options;
    options.inputs = {kInput};
    options.output = kOutput;
    const uint8_t switches = choices.Byte();
    if (switches % 4 == 1) options.precision = 8 + static_cast<int>(choices.Below(16));
    if (switches % 8 >= 6) options.maxErrorMetres = 100.0 * choices.Byte();
    options.maxTilePoints = switches % 16 < 8 ? 32 : switches % 32 < 24 ? 0 : 200;
    options.bareIdentifiers = switches >= 128;
    options.crossAntimeridian = true;
    options.skipBad = switches % 64 < 32;
    options.maxInputBytes = 1 << 20;
    options.selfCheckPoints = 64;
    options.exceedMaxError = switches % 16 != 5;
    std::vector<Position> corners = {{0, 0}};
    const bool isText = choices.OneIn(4);
    const std::string text = isText ? "" : Describe(&choices, &corners);
    WriteFile(kInput, isText ? choices.Rest() : Bytes(text.begin(), text.end()));
    std::filesystem::remove(kOutput);
    try {
        const offlinetz::CompileSummary summary = offlinetz::Compile(
                options, {[](const std::string&) {}, [](const char*, size_t, size_t) {}});
        for (const std::string& failure : summary.selfCheck.failures)
            std::fprintf(stderr, "%s\n", failure.c_str());
        Require(summary.selfCheck.failures.empty(), "the self-check");
    } catch (const offlinetz::InputError& error) {
        Require(std::string(error.what()).find(kInput) == 0, "an error that says where");
        Require(!std::filesystem::exists(kOutput), "nothing half written");
        return 0;
    }
    const Bytes file = ReadFile(kOutput);
    Require(WithTrailer(Bytes(file.begin(), file.end() - 20)) == file, "the digest");
    const DatabasePtr database = OpenBytes(file);
    Require(database != nullptr, "a database that opens");
    const oracle::ReferenceReader reference(file);
    for (size_t i = 0; i < corners.size(); i += 1 + corners.size() / 16) {
        RequireSame(DifferenceWithText(*database, reference, static_cast<float>(corners[i].lat),
                                       static_cast<float>(corners[i].lon)));
    }
    offlinetz_database* library;
    offlinetz_open_memory(file.data(), file.size(), 0, &library);
    const LibraryPtr closer(library, offlinetz_close);
    offlinetz_border border;
    if (options.maxTilePoints == 0) {
        Require(offlinetz_nearest_border(library, 0, 0, 1e9, &border) == OFFLINETZ_UNKNOWN,
                "no distances without tiles");
        return 0;
    }
    const oracle::TrueBorders borders(*database);
    for (size_t i = 0; i < corners.size(); i += 1 + corners.size() / 8) {
        const double lat = std::clamp(corners[i].lat, -90.0, 90.0);
        const double lon = std::clamp(corners[i].lon, -180.0, 180.0);
        const std::string difference = oracle::DifferenceOfBorders(
                library, borders, {lat, lon}, 100.0 * std::pow(4.0, static_cast<double>(i % 8)));
        RequireSame(difference.empty() ? nullptr : difference.c_str());
    }
    return 0;
}
